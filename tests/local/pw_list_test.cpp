// The list of lines behind the password file, and what its calls say where no file leads to it.
#include "lib/files/pw_list.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

namespace {

using bed::Capture;
using bed::Kind;
using bed::ReadFile;
using bed::WriteFile;

class PwList : public testing::Test {
 protected:
    PwList() { WriteFile("/tmp/lines", "old\n"); }
    ~PwList() override { ReleaseList(list_); }

    static constexpr const char* kPath[] = {"/tmp/lines"};

    Capture log_;
    tagListNode* list_ = CreatList();
};

TEST_F(PwList, ALineGoesBehindTheLastWhateverIsGiven) {
    tagListNode* const first = InsertUserInfoToList(list_, {"a", "b\n"});
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, InsertUserInfoToList(first, {"c\n"}));
    ASSERT_NE(nullptr, InsertUserInfoToList(list_, {"d\n"}));
    LineFile file(kPath, LineFile::How::kRewrite);
    EXPECT_EQ(0, WriteListToFile(list_, file));
    EXPECT_EQ("ab\nc\nd\n", ReadFile("/tmp/lines"));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(PwList, NoListAndNoFileAreTold) {
    EXPECT_EQ(nullptr, InsertUserInfoToList(nullptr, {"a"}));
    EXPECT_TRUE(log_.Has(Kind::kError, "InsertUserInfoToList", "parameter is null."));
    LineFile file(kPath, LineFile::How::kRewrite);
    EXPECT_EQ(-1, WriteListToFile(nullptr, file));
    EXPECT_TRUE(log_.Has(Kind::kError, "WriteListToFile", "list is null."));
    constexpr const char* kNowhere[] = {"/no/such/directory/file"};
    LineFile none(kNowhere, LineFile::How::kRewrite);
    EXPECT_EQ(-1, WriteListToFile(list_, none));
    EXPECT_TRUE(log_.Has(Kind::kError, "WriteListToFile", "open file error."));
    EXPECT_EQ("old\n", ReadFile("/tmp/lines"));
}

}  // namespace
}  // namespace vimbra::tests
