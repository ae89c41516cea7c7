// Accounts in the password file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/time.h>
#include <vimbra/account.h>
#include <vimbra/net_account.h>

#include <optional>
#include <string>
#include <utility>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace std::string_literals;
using namespace bed;

namespace {

constexpr char kPasswd[] = "/etc/passwd";
constexpr char kInetd[] = "/etc/inetd.conf";
constexpr char kInetdElsewhere[] = "/usr/config/system/inetd.conf";
constexpr char kHash[] = "$1$abcdefgh$0123456789012345678901";

constexpr char kTwoRoots[] =
    "root:x:0:0:root:/root:/bin/sh\n"
    "admin:y:0:0::/home/admin:/bin/sh\n"
    "guest::1000:1000:Guest:/home/guest:/bin/false\n";

s32 Add(std::string user, std::string password) {
    return VimbraAddNetUser(user.data(), password.data());
}

s32 Modify(std::string user, std::string password) {
    return VimbraModifyNetPwd(user.data(), password.data());
}

s32 Delete(std::string user) {
    return VimbraDelNetUser(user.data());
}

s32 Check(std::string user) {
    return check_user_in_pwd_file(user.data());
}

s32 Rewrite(std::string user, std::string hash) {
    return modify_user_in_pwd_file(user.data(), hash.data());
}

s32 Append(std::string user, std::string hash) {
    return add_user_to_pwd_file(user.data(), hash.data());
}

s32 Drop(std::string user) {
    return del_user_from_pwd_file(user.data());
}

// The hash that the last line of the log tells.
std::string LoggedHash(const Capture& log) {
    std::string hash;
    for (const LogLine& line : log.Syslog()) {
        if (line.text.starts_with("password: [")) {
            hash = line.text.substr(11, line.text.size() - 12);
        }
    }
    return hash;
}

// Hashes the password once more with a program that knows nothing of the library.
void ExpectHashOf(const std::string& password, const std::string& hash) {
    ASSERT_THAT(hash, testing::MatchesRegex("\\$1\\$[./0-9A-Za-z]{8}\\$[./0-9A-Za-z]{22}"));
    const std::string salt = hash.substr(3, 8);
    EXPECT_EQ(hash + "\n",
              OutputOf("busybox mkpasswd -m md5 -S '" + salt + "' '" + password + "'"));
}

class Accounts : public testing::Test {
 protected:
    void SetUp() override {
        WriteFile(kPasswd, kTwoRoots);
        Remove(kInetd);
        setenv("HOME", "/root", 1);
        setenv("SHELL", "/bin/ash", 1);
    }

    Capture log_;
};

// ---- Salt
// ----------------------------------------------------------------------------------------

TEST(Salt, CharactersInOrder) {
    const std::string order = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    for (int i = 0; i < 64; i++) {
        EXPECT_EQ(order[static_cast<size_t>(i)], i64c(i));
        EXPECT_EQ(order[static_cast<size_t>(i)], i64c(i + 64));
        EXPECT_EQ(order[static_cast<size_t>(i)], i64c(i - 64));
        EXPECT_EQ(order[static_cast<size_t>(i)], i64c(i | INT32_MIN));
    }
}

// The generator leaves its last state, from which the characters of its last step follow.
TEST(Salt, StepsFollowTheGenerator) {
    char salt[2 * 5 + 1 + 1];
    for (int steps = 0; steps <= 5; steps++) {
        memset(salt, '#', sizeof(salt));
        const u32 state = crypt_make_salt(salt, steps);
        EXPECT_EQ('\0', salt[2 * steps]);
        EXPECT_EQ('#', salt[2 * steps + 1]);
        u32 x = state;
        for (int i = steps; i > 0; i--) {
            EXPECT_EQ(i64c(static_cast<s32>(x >> 16)), salt[2 * i - 2]);
            EXPECT_EQ(i64c(static_cast<s32>(x >> 22)), salt[2 * i - 1]);
            x = (x - 1013904223) * 4276115653;  // 1664525 undone, modulo 2^32
        }
        // What is left is process id and time.
        EXPECT_LT(static_cast<u32>(getpid()) + static_cast<u32>(monotonic_us()) - x, 20000000u);
    }
    EXPECT_EQ('\0', *(crypt_make_salt(salt, -1), salt));
    crypt_make_salt(nullptr, 4);
}

TEST(Salt, Md5HasAPrefixAndEightCharacters) {
    char salt[VIMBRA_SALT_SIZE];
    EXPECT_EQ(salt + 3, crypt_make_pw_salt(salt, "md5"));
    EXPECT_THAT(salt, testing::MatchesRegex("\\$1\\$[./0-9A-Za-z]{8}"));
    EXPECT_EQ(salt + 3, crypt_make_pw_salt(salt, ""));
    EXPECT_EQ(11u, strlen(salt));
    EXPECT_EQ(salt, crypt_make_pw_salt(salt, "des"));
    EXPECT_THAT(salt, testing::MatchesRegex("[./0-9A-Za-z]{2}"));
    EXPECT_EQ(nullptr, crypt_make_pw_salt(nullptr, "md5"));
    EXPECT_EQ(nullptr, crypt_make_pw_salt(salt, nullptr));
}

TEST(Salt, ClockIsTheWallClock) {
    timeval now;
    gettimeofday(&now, nullptr);
    const u64 before = static_cast<u64>(now.tv_sec) * 1000000 + static_cast<u64>(now.tv_usec);
    const u64 told = monotonic_us();
    EXPECT_GE(told, before);
    EXPECT_LT(told, before + 20000000);
}

// ---- Presence
// ------------------------------------------------------------------------------------

TEST_F(Accounts, PresenceOfWholeNames) {
    EXPECT_EQ(2, Check("root"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "check_user_in_pwd_file", "pVal = [root]"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "check_user_in_pwd_file", "pVal = [guest]"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "check_user_in_pwd_file", "we have only one this user"));
    EXPECT_EQ(1, Check("roo"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "check_user_in_pwd_file", "we have not this user"));
    EXPECT_EQ(1, Check("rootx"));
    EXPECT_EQ(1, Check("oot"));
    WriteFile(kPasswd, std::string(kTwoRoots) + "root::5:5:::\n");
    EXPECT_EQ(3, Check("root"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "check_user_in_pwd_file", "we have many this user"));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Accounts, LineWithoutNameIsAnError) {
    for (const char* content : {":x:0:0:::\n", "root:x:0:0:::\n\nguest:::::\n", "::::::\n", ":"}) {
        WriteFile(kPasswd, content);
        log_.Clear();
        EXPECT_EQ(-1, Check("root")) << content;
        EXPECT_TRUE(log_.Has(Kind::kError, "check_user_in_pwd_file", "pVal is NULL"));
    }
}

TEST_F(Accounts, PresenceInAnEmptyFile) {
    WriteFile(kPasswd, "");
    EXPECT_EQ(1, Check("root"));
    EXPECT_EQ(-1, check_user_in_pwd_file(nullptr));
}

TEST_F(Accounts, PresenceWithoutAFile) {
    Remove(kPasswd);
    EXPECT_EQ(-1, Check("root"));
    EXPECT_TRUE(log_.Has(Kind::kError, "check_user_in_pwd_file", "fopen error."));
    ASSERT_EQ(0, mkdir(kPasswd, 0755));
    EXPECT_EQ(-1, Check("root"));
    EXPECT_EQ(2, log_.Count(Kind::kError, "check_user_in_pwd_file", "fopen error."));
}

TEST_F(Accounts, PresenceNeedsAWritableFile) {
    OnReadOnlyDisk(kPasswd, kTwoRoots);
    EXPECT_EQ(-1, Check("root"));
    EXPECT_TRUE(log_.Has(Kind::kError, "check_user_in_pwd_file", "fopen error."));
}

// ---- Adding
// --------------------------------------------------------------------------------------

TEST_F(Accounts, AddAppendsALine) {
    const auto before = Identity(kPasswd);
    EXPECT_EQ(0, Add("roo", "secret"));
    const std::string hash = LoggedHash(log_);
    const std::string ids = std::to_string(getuid()) + ":" + std::to_string(getgid());
    EXPECT_EQ(kTwoRoots + ("roo:" + hash + ":" + ids + ":tolvane:/root:/bin/ash\n"),
              ReadFile(kPasswd));
    ExpectHashOf("secret", hash);
    EXPECT_EQ(before, Identity(kPasswd));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraAddNetUser", "achUser: [roo]"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraAddNetUser", "password: [" + hash + "]"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "check_user_in_pwd_file", "we have not this user"));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Accounts, AddTwiceMakesTwoSalts) {
    EXPECT_EQ(0, Add("a", "secret"));
    const std::string first = LoggedHash(log_);
    EXPECT_EQ(0, Add("b", "secret"));
    EXPECT_NE(first, LoggedHash(log_));
}

TEST_F(Accounts, AddRefusesNulls) {
    char text[] = "text";
    EXPECT_EQ(1105, VimbraAddNetUser(nullptr, text));
    EXPECT_EQ(1105, VimbraAddNetUser(text, nullptr));
    EXPECT_EQ(1105, VimbraAddNetUser(nullptr, nullptr));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraAddNetUser", "username or pasword is NULL!"));
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
}

TEST_F(Accounts, AddRefusesAPresentUser) {
    EXPECT_EQ(-1, Add("root", "x"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraAddNetUser", "check_user_in_pwd_file error nRet = [2]"));
    WriteFile(kPasswd, "a:::::\na:::::\n");
    EXPECT_EQ(-1, Add("a", "x"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraAddNetUser", "check_user_in_pwd_file error nRet = [3]"));
    Remove(kPasswd);
    EXPECT_EQ(-1, Add("a", "x"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraAddNetUser",
                         "check_user_in_pwd_file error nRet = [ffffffff]"));
    EXPECT_NE(0, access(kPasswd, F_OK));
}

TEST_F(Accounts, NamesThatWouldMeanSomethingElse) {
    const std::string names[] = {"",
                                 "a:b",
                                 ":",
                                 "a\nb",
                                 "a\n",
                                 "\x01",
                                 "a\tb",
                                 "\x7f",
                                 std::string(64, 'a'),
                                 std::string(10000, 'a')};
    for (const std::string& name : names) {
        log_.Clear();
        EXPECT_EQ(-1, Add(name, "x"));
        EXPECT_EQ(1, log_.Count(Kind::kError, "VimbraAddNetUser"));
        EXPECT_EQ(-1, Modify(name, "x"));
        EXPECT_EQ(1, log_.Count(Kind::kError, "VimbraModifyNetPwd"));
        EXPECT_EQ(-1, Delete(name));
        EXPECT_EQ(1, log_.Count(Kind::kError, "VimbraDelNetUser"));
        std::string user = name;
        char password[] = "x";
        EXPECT_EQ(-1, NetAddNetCommonUser(user.data(), password));
        EXPECT_EQ(1, log_.Count(Kind::kError, "NetAddNetCommonUser"));
        EXPECT_EQ(-1, Append(name, kHash));
        EXPECT_EQ(1, log_.Count(Kind::kError, "add_user_to_pwd_file"));
        EXPECT_EQ(-1, Rewrite(name, kHash));
        EXPECT_EQ(1, log_.Count(Kind::kError, "modify_user_in_pwd_file"));
        EXPECT_EQ(0, log_.Count(Kind::kPrint)) << "no line that a name could forge";
    }
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
    EXPECT_EQ(0, Add(std::string(63, 'a'), "x"));
    EXPECT_EQ(0, Add("name with blanks and \xc3\xa4", "x"));
    EXPECT_EQ(2, Check("name with blanks and \xc3\xa4"));
}

TEST_F(Accounts, HashesThatWouldMeanSomethingElse) {
    for (const std::string& hash :
         {std::string("a:b"), std::string("a\n"), std::string(128, 'h')}) {
        EXPECT_EQ(-1, Append("a", hash));
        EXPECT_EQ(-1, Rewrite("root", hash));
    }
    char name[] = "root";
    EXPECT_EQ(-1, add_user_to_pwd_file(name, nullptr));
    EXPECT_EQ(-1, add_common_user_to_pwd_file(name, nullptr));
    EXPECT_EQ(-1, modify_user_in_pwd_file(name, nullptr));
    EXPECT_EQ(-1, modify_user_in_pwd_file(nullptr, name));
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
    EXPECT_EQ(0, Append("a", std::string(127, 'h')));
    EXPECT_EQ(0, Append("b", ""));
    EXPECT_EQ(2, Check("b"));
}

TEST_F(Accounts, EnvironmentThatMakesNoField) {
    const std::string ids = std::to_string(getuid()) + ":" + std::to_string(getgid());
    const std::string begin = "a:h:" + ids + ":tolvane:";
    const std::pair<std::optional<std::string>, bool> kValues[] = {{std::nullopt, false},
                                                                   {"/a:b", false},
                                                                   {"/a\nb", false},
                                                                   {"\x1b[0m", false},
                                                                   {"/ok", true},
                                                                   {"", true},
                                                                   {"/x y", true},
                                                                   {std::string(127, 'x'), true},
                                                                   {std::string(128, 'x'), false}};
    for (const auto& [given, good] : kValues) {
        const std::string value = given.value_or("");
        unsetenv("HOME");
        unsetenv("SHELL");
        if (given) {
            setenv("HOME", value.c_str(), 1);
            setenv("SHELL", value.c_str(), 1);
        }
        WriteFile(kPasswd, "");
        EXPECT_EQ(0, Append("a", "h"));
        EXPECT_EQ(begin + (good ? value + ":" + value : "/:/bin/sh") + "\n", ReadFile(kPasswd));
    }
    setenv("SHELL", std::string(128, 'x').c_str(), 1);
    WriteFile(kPasswd, "");
    char name[] = "a";
    char hash[] = "h";
    EXPECT_EQ(0, add_common_user_to_pwd_file(name, hash));
    EXPECT_EQ("a:h:1000:1000::/:/bin/sh\n", ReadFile(kPasswd));
}

TEST_F(Accounts, AddBehindAMissingNewline) {
    WriteFile(kPasswd, "root:x:0:0:::/bin/sh");
    EXPECT_EQ(0, Append("a", "h"));
    EXPECT_THAT(ReadFile(kPasswd), testing::StartsWith("root:x:0:0:::/bin/sh\na:h:"));
    EXPECT_EQ(2, Check("root"));
    EXPECT_EQ(2, Check("a"));
}

TEST_F(Accounts, PasswordThatCannotBeHashed) {
    EXPECT_EQ(-1, Add("a", std::string(5000, 'p')));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraAddNetUser", "NetSetNetPwd error"));
    EXPECT_EQ(-1, Modify("root", std::string(5000, 'p')));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraModifyNetPwd", "NetSetNetPwd error"));
    std::string user = "a";
    std::string password(5000, 'p');
    EXPECT_EQ(-1, NetAddNetCommonUser(user.data(), password.data()));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetAddNetCommonUser", "NetSetNetPwd error"));
    EXPECT_EQ(kTwoRoots, ReadFile(kPasswd));
}

TEST_F(Accounts, AddOnAFullDisk) {
    const std::string content = "a:b:1:1:" + std::string(4096 - 12, 'c') + "::\n";
    ASSERT_EQ(4095u, content.size());
    OnFullDisk(kPasswd, content);
    EXPECT_EQ(-1, Add("b", "x"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraAddNetUser", "add_user_to_pwd_file error"));
    std::string user = "b";
    EXPECT_EQ(-1, NetAddNetCommonUser(user.data(), user.data()));
    EXPECT_TRUE(log_.Has(Kind::kError, "add_common_user_to_pwd_file", "write error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetAddNetCommonUser", "add_user_to_pwd_file error"));
    EXPECT_EQ(content, ReadFile(kPasswd)) << "no half of a line";
}

TEST_F(Accounts, AppendOpensOrMakes) {
    Remove(kPasswd);
    char name[] = "a";
    char hash[] = "h";
    EXPECT_EQ(-1, add_common_user_to_pwd_file(name, hash)) << "must be there";
    EXPECT_TRUE(log_.Has(Kind::kError, "add_common_user_to_pwd_file", "fopen error!"));
    EXPECT_EQ(0, add_user_to_pwd_file(name, hash)) << "is made";
    AsDirectory(kPasswd);
    EXPECT_EQ(-1, add_user_to_pwd_file(name, hash));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "add_user_to_pwd_file", "fopen error!"));
}

TEST_F(Accounts, CommonUser) {
    std::string user = "common";
    std::string password = "pass word";
    EXPECT_EQ(0, NetAddNetCommonUser(user.data(), password.data()));
    const std::string hash = LoggedHash(log_);
    ExpectHashOf(password, hash);
    EXPECT_EQ(kTwoRoots + ("common:" + hash + ":1000:1000::/:/bin/ash\n"), ReadFile(kPasswd));
    EXPECT_EQ(-1, NetAddNetCommonUser(user.data(), password.data()));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "NetAddNetCommonUser", "check_user_in_pwd_file error nRet = [2]"));
    EXPECT_EQ(-1, NetAddNetCommonUser(nullptr, password.data()));
    EXPECT_EQ(-1, NetAddNetCommonUser(user.data(), nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "NetAddNetCommonUser", "username or pasword is NULL!"));
}

// ---- Changing
// ------------------------------------------------------------------------------------

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

// ---- Deleting
// ------------------------------------------------------------------------------------

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

// ---- The other root
// ------------------------------------------------------------------------------

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

// ---- The services' owner
// -------------------------------------------------------------------------

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

// ---- The legacy names, and the world
// -------------------------------------------------------------

TEST_F(Accounts, LegacyNamesAreTheSameCalls) {
    std::string user = "legacy";
    std::string password = "one";
    EXPECT_EQ(0, NetAddNetUser(user.data(), password.data()));
    EXPECT_EQ(2, Check("legacy"));
    password = "two";
    EXPECT_EQ(0, NetModifyNetPwd(user.data(), password.data()));
    ExpectHashOf("two", LoggedHash(log_));
    EXPECT_EQ(0, NetDelNetUser(user.data()));
    EXPECT_EQ(1, Check("legacy"));
    EXPECT_EQ(1105, NetAddNetUser(nullptr, nullptr));
    EXPECT_EQ(1105, NetModifyNetPwd(nullptr, nullptr));
    EXPECT_EQ(1105, NetDelNetUser(nullptr));
}

TEST_F(Accounts, NothingStaysOpen) {
    const auto before = OpenDescriptors();
    EXPECT_EQ(0, Add("a", "x"));
    EXPECT_EQ(0, Modify("a", "y"));
    EXPECT_EQ(0, Delete("a"));
    EXPECT_EQ(-1, Modify("a", "y"));
    AsDirectory(kPasswd);
    EXPECT_EQ(-1, Drop("a"));
    EXPECT_EQ(-1, Append("a", "h"));
    EXPECT_EQ(before, OpenDescriptors());
}

// Types a password at the login program of the system; true when it lets the user in.
bool LogsIn(const std::string& user, const std::string& password) {
    const std::string entered = "/tmp/entered";
    unlink(entered.c_str());
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        execlp("busybox", "busybox", "login", "-p", user.c_str(), nullptr);
        _exit(127);
    }
    std::string seen;
    char block[256];
    bool typed = false;
    for (;;) {
        const ssize_t count = read(terminal, block, sizeof(block));
        if (count <= 0) {
            break;  // the login program has gone
        }
        seen.append(block, static_cast<size_t>(count));
        if (!typed && seen.find("assword:") != std::string::npos) {
            typed = true;
            const std::string line = password + "\n";
            EXPECT_EQ(static_cast<ssize_t>(line.size()), write(terminal, line.data(), line.size()));
        } else if (seen.find("incorrect") != std::string::npos) {
            kill(child, SIGKILL);
        }
    }
    close(terminal);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(typed) << seen;
    return access(entered.c_str(), F_OK) == 0;
}

TEST_F(Accounts, ARealLoginProgramTakesThePassword) {
    WriteFile("/tmp/shell", "#!/bin/sh\ntouch /tmp/entered\n");
    ASSERT_EQ(0, chmod("/tmp/shell", 0755));
    setenv("SHELL", "/tmp/shell", 1);
    setenv("HOME", "/tmp", 1);
    EXPECT_EQ(0, Add("person", "old secret"));
    EXPECT_TRUE(LogsIn("person", "old secret"));
    EXPECT_FALSE(LogsIn("person", "new secret"));
    EXPECT_EQ(0, Modify("person", "new secret"));
    EXPECT_TRUE(LogsIn("person", "new secret"));
    EXPECT_FALSE(LogsIn("person", "old secret"));
}

}  // namespace
}  // namespace vimbra::tests
