// The command line's PPPoE, with the library and the daemon behind it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "ctl.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kStart[] = "pppoe start eth0 --user me@isp </tmp/password";

class CtlPppoe : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        WriteFile("/tmp/password", "open sesame\nnot this\n");
    }

    Pppd pppd_{"hold"};
    Daemon daemon_{{"--log-level=5"}};
};

TEST_F(CtlPppoe, LinkFromStartToStop) {
    Done done = RunCtl(kStart);
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ("", done.out);
    ASSERT_TRUE(Pppd::WaitDial(1));
    // It goes on without the tool.
    EXPECT_TRUE(Pppd::Runs(1));
    EXPECT_THAT(Pppd::Options(1), HasSubstr("\nuser \"me@isp\"\npassword \"open sesame\"\n"));
    EXPECT_THAT(Pppd::Options(1), HasSubstr("lcp-echo-interval 20\nlcp-echo-failure 3\n"));
    EXPECT_THAT(Pppd::Options(1), HasSubstr("\nnodefaultroute\nnoipv6\n"));
    done = RunCtl("pppoe stop --json");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ((Json{{"result", 0}}), Json::parse(done.out));
    EXPECT_FALSE(Pppd::Runs(1));
    EXPECT_EQ(0, RunCtl("pppoe stop").status);
}

TEST_F(CtlPppoe, OptionsReachTheDaemon) {
    const std::string options =
        " --family both --auto-dial 7 --retries 9 --echo-interval 11 --echo-failures 13"
        " --default-route --debug";
    for (const std::string watch : {"", " --watch"}) {
        const int dials = Pppd::Dials();
        Ctl ctl(kStart + options + watch);
        ASSERT_TRUE(Pppd::WaitDial(dials + 1)) << ctl.Err();
        const std::string seen = Pppd::Options(dials + 1);
        EXPECT_THAT(seen, HasSubstr("lcp-echo-interval 11\nlcp-echo-failure 13\n"));
        EXPECT_THAT(seen, HasSubstr("\ndefaultroute\n+ipv6\ndefaultroute6\ndebug\n"));
        if (!watch.empty()) {
            ctl.Interrupt();
        }
        EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
        EXPECT_EQ(0, RunCtl("pppoe stop --family both").status);
    }
}

TEST_F(CtlPppoe, WatchShowsEveryEventAndHangsUp) {
    Pppd::Plan(
        "case $run in 1) exit 8;; 2) exit 19;; esac\n"
        "ip_up 198.51.100.7 198.51.100.1 192.0.2.53 192.0.2.54; wait_for_test\n"
        "[ $run = 3 ] && exit 16; hold");
    Ctl ctl(std::string(kStart) + " --auto-dial 0 --watch");
    Pppd::LetGoOn();
    ASSERT_TRUE(Pppd::WaitDial(4));
    const std::string up =
        "connected: 198.51.100.7, peer 198.51.100.1, DNS 192.0.2.53, DNS 192.0.2.54\n";
    const std::string all =
        "no link: nobody answers, or there is no agreement\n"
        "the user name or the password is refused\n" +
        up + "the link is lost\n" + up;
    EXPECT_TRUE(ctl.WaitOut(all)) << ctl.Out() << ctl.Err() << daemon_.Log();
    EXPECT_TRUE(Pppd::Runs(4));
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    EXPECT_EQ(all, ctl.Out());
    EXPECT_EQ("", ctl.Err());
    EXPECT_FALSE(Pppd::Runs(4));
}

TEST_F(CtlPppoe, WatchInJson) {
    Pppd::Plan(
        "[ $run = 2 ] && exit 8\nipv6_up fe80::7 fe80::1; ip_up 198.51.100.7 198.51.100.1\n"
        "wait_for_test; exit 16");
    Ctl ctl(std::string(kStart) + " --family both --auto-dial 0 --retries 1 --watch --json");
    Pppd::LetGoOn();
    ASSERT_TRUE(ctl.WaitOut("stopped")) << ctl.Out() << ctl.Err() << daemon_.Log();
    ctl.Interrupt(SIGTERM);
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    const Json none = Json::array();
    EXPECT_THAT(ctl.Lines(), ElementsAre(Json{{"event", "connected"},
                                              {"family", "ipv6"},
                                              {"address", "fe80::7"},
                                              {"peer", "fe80::1"},
                                              {"dns", none}},
                                         Json{{"event", "connected"},
                                              {"family", "ipv4"},
                                              {"address", "198.51.100.7"},
                                              {"peer", "198.51.100.1"},
                                              {"dns", none}},
                                         Json{{"event", "lost"}}, Json{{"event", "no-link"}},
                                         Json{{"event", "stopped"}}));
}

TEST_F(CtlPppoe, ReaderThatGoesHangsUp) {
    Pppd::Plan("ip_up 198.51.100.7 198.51.100.1; hold");
    Shell(VIMBRACTL_PATH " " + std::string(kStart) + " --watch 2>/dev/null | head -1");
    EXPECT_TRUE(WaitFor([] { return !Pppd::Runs(1); }));
    EXPECT_TRUE(daemon_.WaitLog("PPPoE link for IPv4: stopped"));
}

TEST_F(CtlPppoe, PasswordIsTypedOnceAndNotShown) {
    WriteFile("/tmp/typed.py",
              "import os, pty, sys\n"
              "pid, fd = pty.fork()\n"
              "if pid == 0: os.execv(sys.argv[1], sys.argv[1:])\n"
              "seen = b''\n"
              "while not seen.endswith(b'Password: '): seen += os.read(fd, 1)\n"
              "os.write(fd, b'typed secret\\n')\n"
              "try:\n"
              "    while True: seen += os.read(fd, 1)\n"
              "except OSError: pass\n"
              "sys.stdout.write(seen.decode())\n"
              "sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))\n");
    const std::string seen =
        Shell("python3 /tmp/typed.py " VIMBRACTL_PATH " pppoe start eth0 --user me");
    EXPECT_THAT(seen, Not(HasSubstr("secret")));
    ASSERT_TRUE(Pppd::WaitDial(1));
    EXPECT_THAT(Pppd::Options(1), HasSubstr("\npassword \"typed secret\"\n"));
}

TEST_F(CtlPppoe, Refusals) {
    for (const std::string options : {"", " --watch"}) {
        const Done done =
            RunCtl("pppoe start nowhere0 --user me" + options + " </tmp/password --json");
        EXPECT_EQ(5, done.status);
        const Json error = Json::parse(done.err).at("error");
        EXPECT_EQ(
            "interface: \"nowhere0\" does not exist: the network daemon refused: 19 (No such "
            "device): no interface nowhere0",
            error.at("message"));
        EXPECT_EQ(19, error.at("daemon"));
    }
    EXPECT_EQ(2, RunCtl("pppoe start eth0 </tmp/password").status);
    EXPECT_EQ(2, RunCtl("pppoe start --user me </tmp/password").status);
    EXPECT_EQ(2, RunCtl(std::string(kStart) + " --family 7").status);
    EXPECT_EQ(2, RunCtl(std::string(kStart) + " --echo-interval 0").status);
    EXPECT_EQ(2, RunCtl(std::string(kStart) + " --echo-failures 256").status);
    EXPECT_EQ(2, RunCtl(std::string(kStart) + " --retries 65536").status);
    EXPECT_EQ(2, RunCtl("pppoe start eth0 --user me </dev/null").status);
    EXPECT_EQ(
        2, RunCtl("pppoe start eth0 --user " + std::string(255, 'x') + " </tmp/password").status);
    WriteFile("/tmp/password", std::string(255, 'x'));
    EXPECT_EQ(2, RunCtl(kStart).status);
    WriteFile("/tmp/password", std::string(254, 'x'));
    EXPECT_EQ(0, RunCtl(kStart).status);
    EXPECT_TRUE(Pppd::WaitDial(1));
    EXPECT_EQ(1, Pppd::Dials());
    Shell("rm /dev/ppp");
    EXPECT_THAT(RunCtl(kStart).err, HasSubstr("refused: 95 (Operation not supported)"));
    daemon_.Stop();
    EXPECT_EQ(3, RunCtl(kStart).status);
    EXPECT_EQ(3, RunCtl(std::string(kStart) + " --watch").status);
    const Done done = RunCtl("pppoe stop");
    EXPECT_EQ(3, done.status);
    EXPECT_THAT(done.err, HasSubstr("cannot be reached"));
}

TEST(CtlPppoeRequest, SaysWhenTheDaemonGivesNoAnswer) {
    ScriptedDaemon daemon;
    daemon.On(0x602, Answer::Close());
    const Done done = RunCtl("pppoe stop");
    EXPECT_EQ(3, done.status);
    EXPECT_THAT(done.err, HasSubstr("gave no answer"));
}

TEST(CtlPppoeRequest, IsTheOneThatTheLibraryMakes) {
    ScriptedDaemon daemon;
    WriteFile("/tmp/password", "secret\n");
    const std::string words = std::string(kStart) +
                              " --family both --auto-dial 7 --retries 65535 --echo-interval 11"
                              " --echo-failures 13 --default-route --debug";
    EXPECT_EQ(0, RunCtl(words).status);
    Ctl ctl(words + " --watch");
    ASSERT_TRUE(daemon.WaitRequests(2));
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    EXPECT_EQ(0, RunCtl("pppoe stop --family both").status);
    const auto requests = daemon.Requests();
    ASSERT_EQ(4u, requests.size());
    EXPECT_EQ(0x601u, requests[0].type);
    EXPECT_EQ(0x602u, requests[2].type);
    EXPECT_EQ(811u, requests[0].body.size());
    EXPECT_EQ(requests[1].raw, requests[0].raw);
    EXPECT_EQ(requests[2].raw, requests[3].raw);
}

TEST(CtlPppoeVersion, IsTheLibrarys) {
    EXPECT_EQ("pppd version 2.4.5\nPPPoE Version 3.10\n", RunCtl("pppoe version").out);
    EXPECT_EQ("pppd version 2.4.5\nPPPoE Version 3.10",
              Json::parse(RunCtl("pppoe version --json").out).at("version"));
}

}  // namespace
}  // namespace vimbra::tests
