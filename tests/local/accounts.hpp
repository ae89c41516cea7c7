// What the tests of accounts share: the password file to begin with, and the calls.
#ifndef VIMBRA_TESTS_LOCAL_ACCOUNTS_HPP
#define VIMBRA_TESTS_LOCAL_ACCOUNTS_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/account.h>

#include <cstdlib>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "files.hpp"

namespace vimbra::tests {

inline constexpr char kPasswd[] = "/etc/passwd";
inline constexpr char kInetd[] = "/etc/inetd.conf";
inline constexpr char kInetdElsewhere[] = "/usr/config/system/inetd.conf";
inline constexpr char kHash[] = "$1$abcdefgh$0123456789012345678901";

inline constexpr char kTwoRoots[] =
    "root:x:0:0:root:/root:/bin/sh\n"
    "admin:y:0:0::/home/admin:/bin/sh\n"
    "guest::1000:1000:Guest:/home/guest:/bin/false\n";

inline s32 Add(std::string user, std::string password) {
    return VimbraAddNetUser(user.data(), password.data());
}

inline s32 Modify(std::string user, std::string password) {
    return VimbraModifyNetPwd(user.data(), password.data());
}

inline s32 Delete(std::string user) {
    return VimbraDelNetUser(user.data());
}

inline s32 Check(std::string user) {
    return check_user_in_pwd_file(user.data());
}

inline s32 Rewrite(std::string user, std::string hash) {
    return modify_user_in_pwd_file(user.data(), hash.data());
}

inline s32 Append(std::string user, std::string hash) {
    return add_user_to_pwd_file(user.data(), hash.data());
}

inline s32 Drop(std::string user) {
    return del_user_from_pwd_file(user.data());
}

// The hash that the last line of the log tells.
inline std::string LoggedHash(const bed::Capture& log) {
    std::string hash;
    for (const bed::LogLine& line : log.Syslog()) {
        if (line.text.starts_with("password: [")) {
            hash = line.text.substr(11, line.text.size() - 12);
        }
    }
    return hash;
}

// Hashes the password once more with a program that knows nothing of the library.
inline void ExpectHashOf(const std::string& password, const std::string& hash) {
    ASSERT_THAT(hash, testing::MatchesRegex("\\$1\\$[./0-9A-Za-z]{8}\\$[./0-9A-Za-z]{22}"));
    const std::string salt = hash.substr(3, 8);
    EXPECT_EQ(hash + "\n",
              OutputOf("busybox mkpasswd -m md5 -S '" + salt + "' '" + password + "'"));
}

class Accounts : public testing::Test {
 protected:
    void SetUp() override {
        bed::WriteFile(kPasswd, kTwoRoots);
        Remove(kInetd);
        setenv("HOME", "/root", 1);
        setenv("SHELL", "/bin/ash", 1);
    }

    bed::Capture log_;
};

}  // namespace vimbra::tests

#endif
