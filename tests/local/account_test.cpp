// Accounts in the password file: salts, who is there, who is added, who logs in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/time.h>
#include <vimbra/account.h>
#include <vimbra/net_account.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "accounts.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- Salt ---------------------------------------------------------------------------------------

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

// ---- Presence -----------------------------------------------------------------------------------

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

// ---- Adding -------------------------------------------------------------------------------------

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

// ---- The legacy names, and the world ------------------------------------------------------------

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
