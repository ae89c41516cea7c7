// The list of lines behind the services, and the parts of it that no file leads to. Linked with
// -Wl,--wrap=fopen.
#include "api/api_serv/inetd_list.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vimbra/bed.hpp>

#include "lib/files/inetd.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

int g_interrupted = 0;

}  // namespace

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    if (g_interrupted > 0) {
        g_interrupted--;
        errno = EINTR;
        return nullptr;
    }
    return __real_fopen(path, mode);
}
}

namespace {

class InetdList : public testing::Test {
 protected:
    void SetUp() override { list_ = NewLine({}); }
    void TearDown() override { FreeList(list_); }

    std::string Text() const {
        std::string text;
        for (const ServNode* node = list_->next; node != nullptr; node = node->next) {
            text += node->Text();
        }
        return text;
    }

    ServNode* list_ = nullptr;
};

TEST_F(InetdList, PositionsCountFromTheHead) {
    EXPECT_EQ(0, AddOneNode(list_, 1, 0, {"b"}));
    EXPECT_EQ(0, AddOneNode(list_, 1, 0, {"a"}));
    EXPECT_EQ(0, AddOneNode(list_, 3, 0, {"c", "d"}));
    EXPECT_EQ("abcd", Text());
    EXPECT_EQ(-1, AddOneNode(list_, 0, 0, {"x"}));
    EXPECT_EQ(-1, AddOneNode(list_, 5, 0, {"x"}));
    EXPECT_EQ(-1, AddOneNode(list_, 0xffffffff, 0, {"x"}));
    EXPECT_EQ(-1, DelOneNode(list_, 0));
    EXPECT_EQ(-1, DelOneNode(list_, 4));
    EXPECT_EQ(0, DelOneNode(list_, 2));
    EXPECT_EQ("acd", Text());
    EXPECT_EQ(0, DelOneNode(list_, 1));
    EXPECT_EQ(0, DelOneNode(list_, 1));
    EXPECT_EQ(-1, DelOneNode(list_, 1));
    EXPECT_EQ("", Text());
}

TEST_F(InetdList, ANewServiceGetsMarkerAndLineAtTheEnd) {
    ASSERT_EQ(0, AddOneNode(list_, 1, 0, {"other\n"}));
    EXPECT_EQ(0, AddInetdfileLine(list_, g_atNetServiceInfo[0], {"line\n"}));
    EXPECT_EQ("other\n#telnetd\nline\n", Text());
    EXPECT_EQ(1u, list_->next->next->flag);
    EXPECT_EQ(0u, list_->next->next->next->flag);
}

TEST_F(InetdList, ALineGoesBehindItsMarker) {
    ASSERT_EQ(0, AddOneNode(list_, 1, 0, {"#ssh\n"}));       // no marker of the library's
    ASSERT_EQ(0, AddOneNode(list_, 2, 1, {"#telnetd\n"}));   // another service's
    ASSERT_EQ(0, AddOneNode(list_, 3, 1, {"# ssh\n"}));      // begins otherwise
    ASSERT_EQ(0, AddOneNode(list_, 4, 1, {"#"}));            // too short
    ASSERT_EQ(0, AddOneNode(list_, 5, 1, {"#sftp\n"}));      // begins as it does, and is another
    ASSERT_EQ(0, AddOneNode(list_, 6, 1, {"#some ssh\n"}));  // begins as it does
    ASSERT_EQ(0, AddOneNode(list_, 7, 0, {"end\n"}));
    EXPECT_EQ(0, AddInetdfileLine(list_, g_atNetServiceInfo[2], {"line\n"}));
    EXPECT_EQ("#ssh\n#telnetd\n# ssh\n##sftp\n#some ssh\nline\nend\n", Text());
}

// A file on another machine may be that slow.
TEST(InetdStream, IsOpenedAgainAfterASignal) {
    WriteFile("/etc/inetd.conf", "line\n");
    g_interrupted = 2;
    FILE* const stream = vimbra::OpenInetdStream("r");
    EXPECT_EQ(0, g_interrupted);
    ASSERT_NE(nullptr, stream);
    char line[16] = {};
    EXPECT_STREQ("line\n", fgets(line, sizeof(line), stream));
    fclose(stream);
}

}  // namespace
}  // namespace vimbra::tests
