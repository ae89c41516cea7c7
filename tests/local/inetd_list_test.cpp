// The list of lines behind the services, and the parts of it that no file leads to.
#include "api/api_serv/inetd_list.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

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
    ASSERT_EQ(0, AddOneNode(list_, 5, 1, {"#some ssh\n"}));  // begins as it does
    ASSERT_EQ(0, AddOneNode(list_, 6, 0, {"end\n"}));
    EXPECT_EQ(0, AddInetdfileLine(list_, g_atNetServiceInfo[2], {"line\n"}));
    EXPECT_EQ("#ssh\n#telnetd\n# ssh\n##some ssh\nline\nend\n", Text());
}

}  // namespace
}  // namespace vimbra::tests
