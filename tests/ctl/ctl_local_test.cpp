// The commands that change files of the system: DNS servers, accounts, services of inetd. No daemon
// has a part in them, and none runs here.
#include <crypt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>
#include <vimbra/bed.hpp>

#include "../ground/processes.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kResolv[] = "/etc/resolv.conf";
constexpr char kPasswd[] = "/etc/passwd";
constexpr char kInetd[] = "/etc/inetd.conf";

// Runs a command that succeeds and says nothing.
void ExpectDone(const std::string& words) {
    const Outcome done = Ctl(words);
    EXPECT_EQ(0, done.status) << words << "\n" << done;
    EXPECT_EQ("", done.out + done.err) << words;
}

void ExpectRefused(const std::string& words, int status, const std::string& message) {
    const Outcome refused = Ctl(words);
    EXPECT_EQ(status, refused.status) << words;
    EXPECT_THAT(refused.err, HasSubstr(message)) << words;
}

// What the following commands find on standard input.
void Input(const std::string& text) {
    WriteFile("/tmp/input", text);
    ASSERT_NE(nullptr, freopen("/tmp/input", "r", stdin));
}

// Field of an account's line; empty when there is no such account.
std::string Field(const std::string& user, size_t index) {
    std::istringstream file(ReadFile(kPasswd));
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string field;
        std::getline(fields, field, ':');
        if (field != user) {
            continue;
        }
        for (size_t i = 0; i < index; i++) {
            std::getline(fields, field, ':');
        }
        return field;
    }
    return "";
}

bool HasPassword(const std::string& user, const std::string& password) {
    const std::string hash = Field(user, 1);
    const char* made = crypt(password.c_str(), hash.c_str());
    return made != nullptr && hash == made;
}

TEST(CtlDns, SetWritesTheServersOfTheirFamilyAndShowPrintsAll) {
    WriteFile(kResolv, "");
    EXPECT_EQ("no servers\n", Ctl("dns show").out);
    ExpectDone("dns set eth0 192.0.2.53 192.0.2.54");
    ExpectDone("dns set eth0 2001:db8::53");
    EXPECT_EQ(
        "####eth0v6\nnameserver 2001:db8::53\n####eth0\nnameserver 192.0.2.53\n"
        "nameserver 192.0.2.54\n",
        ReadFile(kResolv));
    EXPECT_EQ("2001:db8::53\n192.0.2.53\n192.0.2.54\n", Ctl("dns show").out);
    EXPECT_EQ((Expected{{"servers", {"2001:db8::53", "192.0.2.53", "192.0.2.54"}}}),
              Ctl("dns show --json").Json());
}

TEST(CtlDns, SetWithoutServersTakesTheIpv4OnesAway) {
    WriteFile(kResolv, "####eth0v6\nnameserver 2001:db8::53\n####eth0\nnameserver 192.0.2.53\n");
    ExpectDone("dns set eth0");
    EXPECT_EQ("2001:db8::53\n", Ctl("dns show").out);
}

TEST(CtlDns, SetRefusesMixedFamiliesAndMoreThan64) {
    WriteFile(kResolv, "####eth0\nnameserver 192.0.2.53\n");
    ExpectRefused("dns set eth0 192.0.2.1 2001:db8::1", 2, "accepted: up to 64 servers, either");
    std::string words = "dns set eth0";
    for (int i = 1; i <= 64; i++) {
        words += " 192.0.2." + std::to_string(i);
    }
    ExpectRefused(words + " 192.0.2.65", 2, "accepted: up to 64 servers");
    EXPECT_EQ("192.0.2.53\n", Ctl("dns show").out);
    ExpectDone(words);
    EXPECT_THAT(Ctl("dns show").out, HasSubstr("\n192.0.2.64\n"));
}

TEST(CtlDns, AMissingFileIsTold) {
    unlink(kResolv);
    ExpectRefused("dns show", 1, "No such file or directory");
    ExpectRefused("dns set eth0 192.0.2.1", 1, "No such file or directory");
}

class CtlUser : public testing::Test {
 protected:
    void SetUp() override {
        WriteFile(kPasswd, "root:x:0:0:root:/root:/bin/sh\nguest:x:5:5::/:/bin/sh\n");
        WriteFile(kInetd, "");
    }
};

TEST_F(CtlUser, AddTakesThePasswordFromStandardInput) {
    Input("open sesame\nnot this\n");
    ExpectDone("user add operator");
    EXPECT_TRUE(HasPassword("operator", "open sesame")) << ReadFile(kPasswd);
}

TEST_F(CtlUser, PasswdReplacesThePassword) {
    Input("first");
    ExpectDone("user add operator");
    Input("second");
    ExpectDone("user passwd operator");
    EXPECT_TRUE(HasPassword("operator", "second")) << ReadFile(kPasswd);
}

TEST_F(CtlUser, ThePasswordIsTypedTwiceOnATerminalAndNotShown) {
    WriteFile("/tmp/typed.py",
              "import os, pty, sys\n"
              "words = sys.argv[1:4]\n"
              "pid, fd = pty.fork()\n"
              "if pid == 0: os.execv(words[0], [words[0], 'user', 'add', 'operator'])\n"
              "seen = b''\n"
              "for prompt, text in ((b'New password: ', words[1]), (b'Again: ', words[2])):\n"
              "    while not seen.endswith(prompt): seen += os.read(fd, 1)\n"
              "    os.write(fd, text.encode() + b'\\n')\n"
              "try:\n"
              "    while True: seen += os.read(fd, 1)\n"
              "except OSError: pass\n"
              "sys.stdout.write(seen.decode())\n"
              "sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))\n");
    const std::string typed = OutputOf("python3 /tmp/typed.py " VIMBRACTL
                                       " secret other >/tmp/differ; echo $?;"
                                       "python3 /tmp/typed.py " VIMBRACTL " secret secret");
    EXPECT_THAT(typed, testing::StartsWith("2\n"));
    EXPECT_THAT(ReadFile("/tmp/differ"), HasSubstr("the two are not the same"));
    EXPECT_THAT(typed, HasSubstr("New password: "));
    EXPECT_THAT(typed, Not(HasSubstr("secret")));
    EXPECT_TRUE(HasPassword("operator", "secret")) << ReadFile(kPasswd);
}

TEST_F(CtlUser, AnEmptyPasswordIsRefused) {
    for (const std::string& text : {std::string(), std::string("\n"), std::string("a\0b\n", 4)}) {
        Input(text);
        ExpectRefused("user add operator", 2, "password: refused; accepted: a line of text");
    }
    EXPECT_EQ("", Field("operator", 0));
}

TEST_F(CtlUser, WhatIsThereAndWhatIsNotIsToldInWords) {
    Input("secret");
    ExpectRefused("user add guest", 1, "there is an account called guest already");
    Input("secret");
    ExpectRefused("user passwd nobody", 5, "there is no account called nobody");
    ExpectRefused("user delete nobody", 5, "there is no account called nobody");
    ExpectRefused("user delete root", 1, "the last root user is not removed!");
    WriteFile(kPasswd, "a:x:0:0:::\ntwin:x:5:5:::\ntwin:x:6:6:::\n");
    ExpectRefused("user delete twin", 1, "several accounts are called twin");
}

TEST_F(CtlUser, ANameThatWouldMakeAnotherLineIsRefused) {
    Input("secret");
    ExpectRefused("user add a:b", 2, "accepted: a name of 1 to 63 characters without a colon");
    ExpectRefused("user add " + std::string(64, 'a'), 2, "accepted: a name of 1 to 63");
    EXPECT_EQ(2, CtlWords({"user", "add", "a\nb"}).status);
    EXPECT_EQ(2, CtlWords({"user", "add", ""}).status);
}

TEST_F(CtlUser, DeleteTakesTheAccountAway) {
    const FakeProcess inetd("inetd");
    ExpectDone("user delete guest");
    EXPECT_EQ("root:x:0:0:root:/root:/bin/sh\n", ReadFile(kPasswd));
}

TEST_F(CtlUser, DeleteSaysWhatItHasDoneWhenInetdDoesNotRun) {
    ExpectRefused("user delete guest", 1,
                  "user delete: the account is deleted, but inetd's services are not in order: ");
    EXPECT_EQ("root:x:0:0:root:/root:/bin/sh\n", ReadFile(kPasswd));
    ExpectRefused("user delete guest", 5, "there is no account called guest");
}

TEST_F(CtlUser, NoPasswordIsAskedForInVain) {
    Input("");
    ExpectRefused("user add guest", 1, "there is an account called guest already");
    ExpectRefused("user passwd nobody", 5, "there is no account called nobody");
}

class CtlService : public testing::Test {
 protected:
    void SetUp() override {
        WriteFile(kPasswd, "root:x:0:0:root:/root:/bin/sh\n");
        WriteFile(kInetd, "");
    }
};

TEST_F(CtlService, StartWritesTheLineAndTellsInetd) {
    FakeProcess inetd("inetd");
    ExpectDone("service start telnetd");
    EXPECT_THAT(
        ReadFile(kInetd),
        HasSubstr("telnet\tstream\ttcp\tnowait\troot\t/sbin/telnetd\t/sbin/telnetd -i  \n"));
    EXPECT_EQ(SIGHUP, inetd.EndedBy());
}

TEST_F(CtlService, StartTakesPortFamilyAndPath) {
    const FakeProcess inetd("inetd");
    ASSERT_EQ(0, Ctl("service start httpd --port 8080 --family ipv6 --path /etc/my.conf").status);
    EXPECT_THAT(ReadFile(kInetd), HasSubstr("8080\tstream\ttcp6\tnowait\troot\t/sbin/httpd\t"
                                            "/sbin/httpd -i -c  /etc/my.conf\n"));
}

TEST_F(CtlService, TheFamilyOfADatagramServiceIsItsProtocols) {
    {
        const FakeProcess inetd("inetd");
        ASSERT_EQ(0, Ctl("service start tftpd --family ipv6").status);
    }
    EXPECT_THAT(ReadFile(kInetd), HasSubstr("tftp\tdgram\tudp6\t"));
}

TEST_F(CtlService, StopTakesTheLineAwayAndEndsAProcess) {
    WriteFile(kInetd, "telnet stream tcp nowait root /sbin/telnetd /sbin/telnetd -i\nother\n");
    FakeProcess inetd("inetd");
    FakeProcess telnetd("telnetd");
    ExpectDone("service stop telnetd");
    EXPECT_EQ("other\n", ReadFile(kInetd));
    EXPECT_EQ(SIGHUP, inetd.EndedBy());
    EXPECT_EQ(SIGKILL, telnetd.EndedBy());
}

TEST_F(CtlService, WithoutInetdTheFailureIsTold) {
    ExpectRefused("service start telnetd", 1, "can't get the pid of Inetd");
}

TEST_F(CtlService, ArgumentsAreReadStrictly) {
    ExpectRefused("service start gopherd", 2, "accepted: telnetd, ssh, ftpd, tftpd or httpd");
    ExpectRefused("service start tcp_server1", 2, "accepted: telnetd, ssh");
    ExpectRefused("service stop gopherd", 2, "accepted: telnetd, ssh, ftpd, tftpd or httpd");
    ExpectRefused("service start telnetd --port 0", 2, "accepted: a number from 1 to 65535");
    ExpectRefused("service start telnetd --port 65536", 2, "accepted: a number from 1 to 65535");
    ExpectRefused("service start httpd --path " + std::string(65, 'a'), 2, "up to 64 characters");
    EXPECT_EQ("", ReadFile(kInetd));
}

}  // namespace
}  // namespace vimbra::tests
