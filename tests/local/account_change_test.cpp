// Accounts in the password file: who is changed or deleted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/account.h>

#include <string>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "accounts.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using namespace bed;

namespace {

// ---- Changing -----------------------------------------------------------------------------------

TEST_F(Accounts, ModifyChangesThePasswordAlone) {
    const auto before = Identity(kPasswd);
    EXPECT_EQ(0, Modify("guest", "new"));
    const std::string hash = LoggedHash(log_);
    ExpectHashOf("new", hash);
    EXPECT_EQ("root:x:0:0:root:/root:/bin/sh\nadmin:y:0:0::/home/admin:/bin/sh\nguest:" + hash +
                  ":1000:1000:Guest:/home/guest:/bin/false\n",
              ReadFile(kPasswd));
    EXPECT_EQ(before, Identity(kPasswd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraModifyNetPwd", "achUser: [guest]"));
    for (const char* text : {"achUser = [root]", "achUser = [guest]", "achPasswd = []",
                             "achUid = [1000]", "achGid = [1000]", "achComment = [Guest]",
                             "achHomePath = [/home/guest]", "achDefShell = [/bin/false\n]"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "modify_user_in_pwd_file", text, Where::kSyslog));
    }
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "modify_user_in_pwd_file",
                 "achReadBuf = [guest:" + hash + ":1000:1000:Guest:/home/guest:/bin/false\n]",
                 Where::kSyslog));
    EXPECT_EQ(0, log_.Count(Kind::kError, kAny, kAny, Where::kSyslog));
}

TEST_F(Accounts, ModifyFillsAnEmptyComment) {
    EXPECT_EQ(0, Modify("admin", "new"));
    EXPECT_EQ("root:x:0:0:root:/root:/bin/sh\nadmin:" + LoggedHash(log_) +
                  ":0:0:tolvane:/home/admin:/bin/sh\n"
                  "guest::1000:1000:Guest:/home/guest:/bin/false\n",
              ReadFile(kPasswd));
}

TEST_F(Accounts, ModifyRefusals) {
    char text[] = "text";
    EXPECT_EQ(1105, VimbraModifyNetPwd(nullptr, text));
    EXPECT_EQ(1105, VimbraModifyNetPwd(text, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraModifyNetPwd", "username or pasword is NULL!"));
    EXPECT_EQ(-1, Modify("nobody-here", "x"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraModifyNetPwd", "check_user_in_pwd_file error nRet = [1]"));
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
}

TEST_F(Accounts, ModifyKeepsOddLinesAsTheyAre) {
    const std::string before =
        "#comment\nshort:x\nempty:::::\nlong:x:1:1:" + std::string(10000, 'c') + ":/:/bin/sh\n";
    const std::string after = "nul:x:2:2:a\0b:/:/bin/sh\nlast:x:3:3:c:/:/bin/s"s;
    WriteFile(kPasswd, before + "u:x:4:4:C:/h:/s\n" + after);
    EXPECT_EQ(0, Rewrite("u", "h"));
    EXPECT_EQ(before + "u:h:4:4:C:/h:/s\n" + after, ReadFile(kPasswd));
    EXPECT_EQ(0, Rewrite("last", "h"));
    EXPECT_THAT(ReadFile(kPasswd), testing::EndsWith("\nlast:h:3:3:c:/:/bin/s"));
    EXPECT_EQ(0, Rewrite("long", "h"));
    EXPECT_THAT(ReadFile(kPasswd),
                testing::HasSubstr("\nlong:h:1:1:" + std::string(10000, 'c') + ":/:/bin/sh\n"));
}

TEST_F(Accounts, ModifyOfLinesWithFewOrManyFields) {
    WriteFile(kPasswd, "a:x:1:2\nb:x:1:2:c:/h:/s:more:fields\n");
    EXPECT_EQ(0, Rewrite("a", "h"));
    EXPECT_EQ(0, Rewrite("b", "h"));
    EXPECT_EQ("a:h:1:2:tolvane::\nb:h:1:2:c:/h:/s:more:fields\n", ReadFile(kPasswd));
    WriteFile(kPasswd, "a:x:1\nb:x:1:2:::\n");
    EXPECT_EQ(-1, Rewrite("a", "h"));
    EXPECT_EQ(-1, Modify("a", "h"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraModifyNetPwd", "modify_user_in_pwd_file error"));
    EXPECT_EQ("a:x:1\nb:x:1:2:::\n", ReadFile(kPasswd));
}

TEST_F(Accounts, ModifyDropsLinesWithoutName) {
    WriteFile(kPasswd, "a:x:1:2:c:/:/s\n:x:0:0:::\n\nb:x:3:4:c:/:/s\n");
    EXPECT_EQ(0, Rewrite("b", "h"));
    EXPECT_EQ("a:x:1:2:c:/:/s\nb:h:3:4:c:/:/s\n", ReadFile(kPasswd));
    EXPECT_EQ(2,
              log_.Count(Kind::kError, "modify_user_in_pwd_file", "pVal is NULL", Where::kSyslog));
}

TEST_F(Accounts, ModifyOnAFullDisk) {
    const std::string content = "a::1:1:" + std::string(4070, 'c') + "::\n";
    OnFullDisk(kPasswd, content);
    EXPECT_EQ(-1, Modify("a", "x"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraModifyNetPwd", "modify_user_in_pwd_file error"));
    EXPECT_EQ(content, ReadFile(kPasswd)) << "nobody is locked out";
}

TEST_F(Accounts, ModifyWithoutAFile) {
    Remove(kPasswd);
    EXPECT_EQ(-1, Rewrite("a", "h"));
    EXPECT_TRUE(log_.Has(Kind::kError, "modify_user_in_pwd_file", "fopen error!"));
    EXPECT_EQ(-1, Drop("a"));
    EXPECT_TRUE(log_.Has(Kind::kError, "del_user_from_pwd_file", "fopen error!"));
    EXPECT_EQ(-1, del_user_from_pwd_file(nullptr));
}

TEST_F(Accounts, ModifyKeepsALinkedFile) {
    Remove(kPasswd);
    WriteFile("/tmp/passwd", kTwoRoots);
    ASSERT_EQ(0, symlink("/tmp/passwd", kPasswd));
    ASSERT_EQ(0, chmod("/tmp/passwd", 0600));
    const auto before = Identity("/tmp/passwd");
    EXPECT_EQ(0, Drop("guest"));
    EXPECT_EQ(0, Rewrite("root", "h"));
    EXPECT_EQ(0, Append("a", "h"));
    EXPECT_EQ(before, Identity("/tmp/passwd"));
    struct stat status {};
    ASSERT_EQ(0, lstat(kPasswd, &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

// ---- Deleting -----------------------------------------------------------------------------------

TEST_F(Accounts, DeleteDropsTheLine) {
    EXPECT_EQ(0, Delete("guest"));
    EXPECT_EQ("root:x:0:0:root:/root:/bin/sh\nadmin:y:0:0::/home/admin:/bin/sh\n",
              ReadFile(kPasswd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDelNetUser", "achUser: [guest]"));
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "ChangeNetServiceOwner", "the inetd config file is not existed!"));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Accounts, DeleteRefusals) {
    EXPECT_EQ(1105, VimbraDelNetUser(nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDelNetUser", "username is NULL!"));
    EXPECT_EQ(-1, Delete("nobody-here"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraDelNetUser", "check_user_in_pwd_file error nRet = [1]"));
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
}

TEST_F(Accounts, TheLastRootStays) {
    const std::string content =
        "root:x:0:0::/:/bin/sh\nguest:x:5:5::/:/bin/sh\nhalf:x:0:5::/:/bin/sh\n";
    WriteFile(kPasswd, content);
    EXPECT_EQ(-1, Delete("root"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDelNetUser", "the last root user is not removed!"));
    EXPECT_EQ(content, ReadFile(kPasswd));
    EXPECT_EQ(0, Delete("guest")) << "root is another root account for it";
}

TEST_F(Accounts, WithoutAnyRootNobodyIsDeleted) {
    WriteFile(kPasswd, "a:x:1:1:::\nb:x:2:2:::\n");
    EXPECT_EQ(-1, Delete("a"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDelNetUser", "the last root user is not removed!"));
}

TEST_F(Accounts, TwoLinesOfOneNameStopEverything) {
    const std::string content = std::string(kTwoRoots) + "guest:z:0:0:::\n";
    WriteFile(kPasswd, content);
    EXPECT_EQ(-1, Add("guest", "x"));
    EXPECT_EQ(-1, Modify("guest", "x"));
    EXPECT_EQ(-1, Delete("guest"));
    for (const char* function : {"VimbraAddNetUser", "VimbraModifyNetPwd", "VimbraDelNetUser"}) {
        EXPECT_TRUE(log_.Has(Kind::kError, function, "check_user_in_pwd_file error nRet = [3]"));
    }
    EXPECT_EQ(content, ReadFile(kPasswd));
}

TEST_F(Accounts, DeleteHandsTheServicesToTheOtherRoot) {
    WriteFile(kInetd,
              "telnet stream tcp nowait root /sbin/telnetd /sbin/telnetd -i\n"
              "# comment\nftp\tstream\ttcp\tnowait\tguest\t/sbin/ftpd\t/sbin/ftpd -w /\n");
    const auto before = Identity(kInetd);
    FakeProcess inetd("inetd");
    EXPECT_EQ(0, Delete("root"));
    EXPECT_EQ(SIGHUP, inetd.EndedBy());
    EXPECT_EQ(
        "telnet stream tcp nowait admin /sbin/telnetd /sbin/telnetd -i\n\n"
        "ftp stream tcp nowait admin /sbin/ftpd /sbin/ftpd -w /\n\n",
        ReadFile(kInetd));
    EXPECT_EQ("admin:y:0:0::/home/admin:/bin/sh\nguest::1000:1000:Guest:/home/guest:/bin/false\n",
              ReadFile(kPasswd));
    EXPECT_EQ(before, Identity(kInetd));
}

TEST_F(Accounts, DeleteTellsInetdsProcess) {
    WriteFile(kInetd, "");
    FakeProcess inetd("inetd");
    const std::string text = "Inetd Pid:" + std::to_string(inetd.Pid());
    EXPECT_EQ(0, Delete("guest"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDelNetUser", text));
    EXPECT_EQ(SIGHUP, inetd.EndedBy());
}

TEST_F(Accounts, DeleteWithoutInetdRunning) {
    WriteFile(kInetd, "a b c d e /f g\n");
    EXPECT_EQ(-1, Delete("guest"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDelNetUser", "can't get the pid of Inetd"));
    EXPECT_EQ(1, Check("guest")) << "nothing is taken back";
    EXPECT_EQ("a b c d root /f g\n\n", ReadFile(kInetd));
}

TEST_F(Accounts, DeleteStopsAtAnUnreadableConfiguration) {
    ASSERT_EQ(0, mkdir(kInetd, 0755));
    EXPECT_EQ(-1, Delete("guest"));
    EXPECT_TRUE(log_.Has(Kind::kError, "ChangeNetServiceOwner", "fopen error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDelNetUser", "changeNetServiceOwner error!"));
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
}

TEST_F(Accounts, DropKeepsEverythingElse) {
    const std::string before = ":noname:\n\n#x\nlong:" + std::string(10000, 'c') + "\n";
    const std::string after = "n\0ul:x\n"s + "last";
    WriteFile(kPasswd, before + "u:x\nu\n" + after);
    EXPECT_EQ(0, Drop("u"));
    EXPECT_EQ(before + after, ReadFile(kPasswd));
    EXPECT_EQ(0, Drop("last"));
    EXPECT_EQ(before + "n\0ul:x\n"s, ReadFile(kPasswd));
    WriteFile(kPasswd, "u:x:1:1:::\n");
    EXPECT_EQ(0, Drop("u"));
    EXPECT_EQ("", ReadFile(kPasswd));
}

}  // namespace
}  // namespace vimbra::tests
