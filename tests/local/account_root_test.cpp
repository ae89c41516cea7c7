// Accounts in the password file: the other root, and the services' owner.
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

// ---- The other root -----------------------------------------------------------------------------

TEST_F(Accounts, OtherRootIsTheFirstThatDiffers) {
    char other[VIMBRA_USER_NAME_SIZE] = {};
    char user[] = "root";
    EXPECT_EQ(0, IsLastRootUser(user, other));
    EXPECT_STREQ("admin", other);
    for (const char* text : {"RootUser : root", "pchPasswd : x", "pcGid : 0", "pchUid : 0",
                             "RootUser : admin", "pchPasswd : y"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "IsLastRootUser", text));
    }
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "IsLastRootUser", "RootUser : guest"));
    char guest[] = "guest";
    EXPECT_EQ(0, IsLastRootUser(guest, other));
    EXPECT_STREQ("root", other);
}

TEST_F(Accounts, OtherRootByBeginningsOfIds) {
    char other[VIMBRA_USER_NAME_SIZE] = {};
    char user[] = "root";
    WriteFile(kPasswd, "root:x:0:0\na:x:1:0:\nb:x:0:1:\nc:x:0\nd:x::0:\ne:x:0100:0x:\n");
    EXPECT_EQ(0, IsLastRootUser(user, other));
    EXPECT_STREQ("e", other);
    WriteFile(kPasswd, "f::0:0\n");
    EXPECT_EQ(0, IsLastRootUser(user, other)) << "an empty password is a field too";
    EXPECT_STREQ("f", other);
}

TEST_F(Accounts, OtherRootMustBeWritable) {
    char other[VIMBRA_USER_NAME_SIZE] = {};
    char user[] = "root";
    const std::string longest(63, 'r');
    WriteFile(kPasswd, ":x:0:0:::\na b:x:0:0:::\na\tb:x:0:0:::\n" + longest + "r:x:0:0:::\n" +
                           longest + ":x:0:0:::\n");
    EXPECT_EQ(0, IsLastRootUser(user, other));
    EXPECT_EQ(longest, other);
}

TEST_F(Accounts, OtherRootRefusals) {
    char text[VIMBRA_USER_NAME_SIZE] = "root";
    EXPECT_EQ(1, IsLastRootUser(nullptr, text));
    EXPECT_EQ(1, IsLastRootUser(text, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "IsLastRootUser", "pchUser or pchOtherRoot is NULL!"));
    Remove(kPasswd);
    EXPECT_EQ(1, IsLastRootUser(text, text));
    EXPECT_TRUE(log_.Has(Kind::kError, "IsLastRootUser", "fopen error."));
}

// ---- The services' owner ------------------------------------------------------------------------

s32 ChangeOwner(std::string owner) {
    return ChangeNetServiceOwner(owner.data());
}

TEST_F(Accounts, OwnerOfEveryCompleteLine) {
    WriteFile(kInetd,
              "a  b\tc \t d e /f  g h\n"      // runs of separators
              "#a b c d e /f g\n"             // a comment
              "  lead b c d e /f g\n"         // separators in front
              "a b c d e /f\n"                // six fields
              "\n"                            // none
              "one b c d e /f g [x] after\n"  // a bracket ends the seventh
              "two b c d e /f ]\n"            // unless it is the first
              "last b c d e /f g");           // no newline
    EXPECT_EQ(0, ChangeOwner("boss"));
    EXPECT_EQ(
        "a b c d boss /f  g h\n\nlead b c d boss /f g\n\n"
        "one b c d boss /f g [x\ntwo b c d boss /f \n\nlast b c d boss /f g\n",
        ReadFile(kInetd));
    for (const char* text :
         {"pchSerName : a", "pchSockTyep : b", "pchProto : c", "pchFlags : d", "pchUser : e",
          "pchSerPath : /f", "pchArgs : g", "achReadBuf : last b c d e /f g"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "ChangeNetServiceOwner", text, Where::kSyslog));
    }
    EXPECT_EQ(2, log_.Count(Kind::kError, "ChangeNetServiceOwner", "strtok NULL!", Where::kSyslog));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "ChangeNetServiceOwner", "achReadBuf : #a b c d e /f g",
                            Where::kSyslog));
}

// Kept: the last field carries the line's newline and the format adds one; the next change drops
// the empty lines that this makes.
TEST_F(Accounts, OwnerLinesDoNotGrowForEver) {
    WriteFile(kInetd, "a b c d e /f g\n");
    EXPECT_EQ(0, ChangeOwner("x"));
    EXPECT_EQ("a b c d x /f g\n\n", ReadFile(kInetd));
    EXPECT_EQ(0, ChangeOwner("y"));
    EXPECT_EQ("a b c d y /f g\n\n", ReadFile(kInetd));
}

TEST_F(Accounts, OwnerInTheOtherPlace) {
    WriteFile(kInetdElsewhere, "a b c d e /f g\n");
    EXPECT_EQ(0, ChangeOwner("x"));
    // Writing looks for the file again, and the first place can be made.
    EXPECT_EQ("a b c d x /f g\n\n", ReadFile(kInetd));
    EXPECT_EQ("a b c d e /f g\n", ReadFile(kInetdElsewhere));
}

TEST_F(Accounts, OwnerWithoutConfiguration) {
    EXPECT_EQ(2, ChangeOwner("x"));
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "ChangeNetServiceOwner", "the inetd config file is not existed!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_NE(0, access(kInetd, F_OK));
}

// What is there and cannot be opened is not missing, whichever of the two it is.
TEST_F(Accounts, OwnerOfAConfigurationThatCannotBeOpened) {
    for (const char* path : {kInetd, kInetdElsewhere}) {
        WriteFile(path, "");
        Remove(path);
        ASSERT_EQ(0, symlink("inetd.conf", path));
        EXPECT_EQ(-1, ChangeOwner("x")) << path;
        Remove(path);
    }
    EXPECT_EQ(2, log_.Count(Kind::kError, "ChangeNetServiceOwner", "fopen error"));
    EXPECT_EQ(2, log_.Count(Kind::kError));
    EXPECT_EQ(2, ChangeOwner("x"));
    // The second place is taken when the first cannot be opened.
    ASSERT_EQ(0, symlink("inetd.conf", kInetd));
    WriteFile(kInetdElsewhere, "a b c d e /f g\n");
    EXPECT_EQ(0, ChangeOwner("x"));
    EXPECT_EQ("a b c d x /f g\n\n", ReadFile(kInetdElsewhere));
}

TEST_F(Accounts, OwnerLongLinesAndZeroBytes) {
    const std::string args(10000, 'g');
    WriteFile(kInetd,
              "a b c d e /f " + args + "\n" + "z b c d e /f g\0more\n\0\n"s + "y b c d e /f g\n");
    EXPECT_EQ(0, ChangeOwner("x"));
    EXPECT_EQ("a b c d x /f " + args + "\n\nz b c d x /f g\ny b c d x /f g\n\n", ReadFile(kInetd));
}

TEST_F(Accounts, OwnerNamesThatWouldMeanSomethingElse) {
    WriteFile(kInetd, "a b c d e /f g\n");
    for (const char* owner : {"", "a b", "a\tb", "a\nb"}) {
        EXPECT_EQ(-1, ChangeOwner(owner));
    }
    EXPECT_EQ(-1, ChangeNetServiceOwner(nullptr));
    EXPECT_EQ(5, log_.Count(Kind::kError, "ChangeNetServiceOwner"));
    EXPECT_EQ("a b c d e /f g\n", ReadFile(kInetd));
}

TEST_F(Accounts, OwnerOnAFullDisk) {
    const std::string content = "a b c d e /f " + std::string(4070, 'g') + "\n";
    OnFullDisk(kInetd, content);
    EXPECT_EQ(-1, ChangeOwner(std::string(60, 'x')));
    EXPECT_EQ(content, ReadFile(kInetd));
}

TEST_F(Accounts, ConfigurationStream) {
    EXPECT_EQ(nullptr, open_config_file("r"));
    EXPECT_EQ(nullptr, open_config_file(nullptr));
    WriteFile(kInetdElsewhere, "elsewhere\n");
    char text[32] = {};
    FILE* stream = open_config_file("r");
    ASSERT_NE(nullptr, stream);
    EXPECT_STREQ("elsewhere\n", fgets(text, sizeof(text), stream));
    fclose(stream);
    stream = open_config_file("w+");
    ASSERT_NE(nullptr, stream);
    fclose(stream);
    EXPECT_EQ(0, access(kInetd, F_OK)) << "made in the first place";
}

}  // namespace
}  // namespace vimbra::tests
