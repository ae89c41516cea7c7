// The command line's watches and diagnoses, with the library, the daemon and real hosts behind
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "ctl.hpp"
#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

void NoDetection(const Host& host) {
    const std::string command =
        "echo 0 > /proc/sys/net/ipv6/conf/default/accept_dad;"
        "echo 0 > /proc/sys/net/ipv6/conf/default/dad_transmits";
    Shell(command);
    host.Shell(command);
}

// ---- Statistics

TEST(CtlStat, ShowsRatesAndTotals) {
    MakeIface("eth0");
    MakeIface("eth2");
    Daemon daemon({"--log-level=5"});
    const Done done = RunCtl("stat watch --count 2");
    EXPECT_EQ(0, done.status) << done.err;
    std::istringstream lines(done.out);
    std::string heading, first, second, third, fourth, rest;
    std::getline(lines, heading);
    std::getline(lines, first);
    std::getline(lines, second);
    std::getline(lines, third);
    std::getline(lines, fourth);
    EXPECT_EQ("INTERFACE         SENT/s    RECEIVED/s          SENT      RECEIVED", heading);
    EXPECT_THAT(first, MatchesRegex("eth0 +- +- +[0-9.]+ k?B +[0-9.]+ k?B"));
    EXPECT_THAT(second, MatchesRegex("eth2 +- +- +[0-9.]+ k?B +[0-9.]+ k?B"));
    EXPECT_THAT(third, MatchesRegex("eth0 +[0-9.]+ k?B +[0-9.]+ k?B +[0-9.]+ k?B +[0-9.]+ k?B"));
    EXPECT_THAT(fourth, MatchesRegex("eth2 .*"));
    EXPECT_FALSE(std::getline(lines, rest)) << rest;
    EXPECT_TRUE(daemon.WaitLog("statistics stop"));
}

TEST(CtlStat, JsonHasALineForEachReport) {
    MakeIface("eth1");
    Daemon daemon;
    const Done done = RunCtl("stat watch --count 2 --json");
    EXPECT_EQ(0, done.status) << done.err;
    ASSERT_EQ(2u, done.lines.size()) << done.out;
    const Json first = done.lines[0].at("interfaces").at(0);
    EXPECT_EQ("eth1", first.at("interface"));
    EXPECT_TRUE(first.at("sent_per_second").is_null());
    EXPECT_TRUE(done.lines[1].at("interfaces").at(0).at("sent_per_second").is_number());
    EXPECT_GE(done.lines[1].at("interfaces").at(0).at("sent"), first.at("sent"));
}

TEST(CtlStat, RedrawsInPlaceOnATerminal) {
    MakeIface("eth0");
    const Daemon daemon;
    Shell("script -qec '" VIMBRACTL_PATH " stat watch --count 3' /tmp/typescript >/dev/null");
    const std::string text = ReadFile("/tmp/typescript");
    size_t redrawn = 0;
    for (size_t at = 0; (at = text.find("\033[2A", at)) != std::string::npos; at++) {
        redrawn++;
    }
    EXPECT_EQ(2u, redrawn) << text;
}

TEST(CtlStat, CtrlCStopsIt) {
    for (const int number : {SIGINT, SIGTERM}) {
        Daemon daemon({"--log-level=5"});
        MakeIface("eth0");
        Ctl ctl("stat watch");
        ASSERT_TRUE(ctl.WaitOut("eth0"));
        ctl.Interrupt(number);
        EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
        EXPECT_EQ("", ctl.Err());
        EXPECT_TRUE(daemon.WaitLog("statistics stop"));
        Shell("ip link del eth0");
    }
}

TEST(CtlStat, ReaderThatGoesStopsIt) {
    MakeIface("eth0");
    Daemon daemon({"--log-level=5"});
    Shell(VIMBRACTL_PATH " stat watch 2>/dev/null | head -1");
    EXPECT_TRUE(daemon.WaitLog("statistics stop"));
}

TEST(CtlStat, SaysThatTheDaemonIsNotThere) {
    const Done done = RunCtl("stat watch");
    EXPECT_EQ(3, done.status);
    EXPECT_THAT(done.err, HasSubstr("cannot be reached"));
    EXPECT_EQ(2, RunCtl("stat watch --interval 0").status);
}

// ---- Conflicts and advertisements

TEST(CtlConflict, ShowsTheOtherHost) {
    const Host other;
    NoDetection(other);
    Connect("eth0", other);
    other.Shell("ip link set eth0 address 02:00:00:00:00:02");
    Shell("ip address add 192.0.2.1/24 dev eth0");
    other.Shell("ip address add 192.0.2.1/24 dev eth0");
    Daemon daemon({"--log-level=5"});
    Done done = RunCtl("conflict watch --count 1");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ("our address 192.0.2.1 is used by 02:00:00:00:00:02\n", done.out);
    EXPECT_TRUE(daemon.WaitLog("conflict watch stop"));

    Shell("ip address add fd00::1/64 dev eth0");
    other.Shell("ip address add fd00::1/64 dev eth0");
    done = RunCtl("conflict watch --family ipv6 --count 1 --json");
    EXPECT_EQ(0, done.status) << done.err;
    ASSERT_EQ(1u, done.lines.size());
    EXPECT_EQ(Json::parse(R"({"conflict": "address", "family": "ipv6", "address": "fd00::1",
                              "mac": "02:00:00:00:00:02"})"),
              done.lines[0]);
}

TEST(CtlConflict, CtrlCStopsBothFamilies) {
    Daemon daemon({"--log-level=5"});
    Ctl ctl("conflict watch");
    ASSERT_TRUE(WaitFor([&] {
        const std::string log = daemon.Log();
        const size_t first = log.find("conflict watch start");
        return first != std::string::npos &&
               log.find("conflict watch start", first + 1) != std::string::npos;
    }));
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    const std::string log = daemon.Log();
    const size_t first = log.find("conflict watch stop");
    ASSERT_NE(std::string::npos, first);
    EXPECT_NE(std::string::npos, log.find("conflict watch stop", first + 1));
}

TEST(CtlConflict, SaysThatTheDaemonIsNotThere) {
    EXPECT_EQ(3, RunCtl("conflict watch").status);
}

TEST(CtlConflict, SaysThatTheDaemonRefused) {
    ScriptedDaemon daemon;
    daemon.On(281, Answer::Code(1));
    const Done done = RunCtl("conflict watch");
    EXPECT_EQ(4, done.status);
    EXPECT_THAT(done.err, HasSubstr("refused: 1 (Operation not permitted)"));
}

TEST(CtlRa, ShowsTheAddressesAfterAnAdvertisement) {
    const Host router;
    NoDetection(router);
    Connect("eth0", router);
    router.Shell("echo 1 > /proc/sys/net/ipv6/conf/all/forwarding");
    WriteFile("/tmp/radvd.conf",
              "interface eth0 { AdvSendAdvert on; MinRtrAdvInterval 3; MaxRtrAdvInterval 4;"
              " prefix 2001:db8:1::/64 { AdvOnLink on; AdvAutonomous on; }; };\n");
    Daemon daemon({"--log-level=5"});
    Ctl ctl("ra watch eth0 --json");
    ASSERT_TRUE(daemon.WaitLog("router advertisement start"));
    // It has carried that out when it answers the next request.
    ASSERT_EQ(0, RunCtl("mtu show eth0").status);
    const Program radvd(
        {"nsenter", "-t", std::to_string(router.Pid()), "-n", "radvd", "--nodaemon", "--logmethod",
         "stderr", "--config", "/tmp/radvd.conf", "--pidfile", "/tmp/radvd.pid"},
        "/tmp/radvd.log");
    ASSERT_TRUE(ctl.WaitOut("\n")) << ctl.Err() << daemon.Log() << ReadFile("/tmp/radvd.log")
                                   << Shell("ip -6 address show eth0");
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    EXPECT_TRUE(daemon.WaitLog("router advertisement stop"));
    const Json line = ctl.Lines().at(0);
    EXPECT_EQ("eth0", line.at("interface"));
    EXPECT_THAT(line.dump(), HasSubstr("2001:db8:1:"));
}

TEST(CtlRa, SaysThatThereIsNoSuchInterface) {
    const Daemon daemon;
    const Done done = RunCtl("ra watch nowhere0");
    EXPECT_EQ(5, done.status);
    EXPECT_THAT(done.err, HasSubstr("No such device"));
}

// ---- Echo tests and traces

class CtlDiag : public testing::Test {
 protected:
    void SetUp() override {
        NoDetection(host_);
        Connect("eth0", host_);
        Shell("ip address add 192.0.2.1/24 dev eth0 && ip address add fd00::1/64 dev eth0");
        host_.Shell("ip address add 192.0.2.2/24 dev eth0 && ip address add fd00::2/64 dev eth0");
        // The first packets get lost until the two know each other.
        for (const char* host : {"192.0.2.2", "fd00::2"}) {
            ASSERT_TRUE(WaitFor([host] {
                return ShellStatus(std::string("ping -n -q -c 1 -W 1 >/dev/null 2>&1 ") + host) ==
                       0;
            }));
        }
    }

    Host host_;
    Daemon daemon_{{"--log-level=5"}};
};

TEST_F(CtlDiag, PingShowsEachAnswerAndASummary) {
    const Done done = RunCtl("ping 192.0.2.2 --count 2 --timeout 30000");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_THAT(done.out,
                MatchesRegex("PING 192.0.2.2: 56 data bytes\n"
                             "64 bytes from 192.0.2.2: icmp_seq=1 ttl=64 time=[0-9.]+ ms\n"
                             "64 bytes from 192.0.2.2: icmp_seq=2 ttl=64 time=[0-9.]+ ms\n"
                             "\n--- 192.0.2.2 ping statistics ---\n"
                             "2 packets transmitted, 2 received, 0% packet loss\n"
                             "rtt min/avg/max = [0-9.]+/[0-9.]+/[0-9.]+ ms\n"));
}

TEST_F(CtlDiag, PingInJson) {
    const Done done = RunCtl("ping fd00::2 --count 1 --size 100 --timeout 30000 --json");
    EXPECT_EQ(0, done.status) << done.err;
    ASSERT_EQ(2u, done.lines.size()) << done.out;
    EXPECT_EQ("reply", done.lines[0].at("result"));
    EXPECT_GT(done.lines[0].at("ms"), 0.0);
    EXPECT_LT(done.lines[0].at("ms"), 30000.0);
    EXPECT_EQ(1, done.lines[1].at("summary").at("received"));
    EXPECT_EQ(0, done.lines[1].at("summary").at("loss_percent"));
}

TEST_F(CtlDiag, PingTellsWhyThereIsNoAnswer) {
    host_.Shell("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    Done done = RunCtl("ping 192.0.2.2 --count 1 --timeout 200");
    EXPECT_EQ(5, done.status);
    EXPECT_THAT(done.out, HasSubstr("192.0.2.2: icmp_seq=1 no answer in time\n"));
    EXPECT_THAT(done.out, HasSubstr("1 packets transmitted, 0 received, 100% packet loss\n"));
    EXPECT_THAT(done.err, HasSubstr("192.0.2.2: no answer"));
    done = RunCtl("ping 198.51.100.1 --count 1 --timeout 30000 --json");
    EXPECT_EQ(5, done.status);
    EXPECT_EQ("unreachable", done.lines.at(0).at("result"));
    EXPECT_TRUE(done.lines.at(1).at("summary").at("avg_ms").is_null());
}

TEST_F(CtlDiag, PingGoesOnUntilCtrlC) {
    Ctl ctl("ping 192.0.2.2 --timeout 30000");
    ASSERT_TRUE(ctl.WaitOut("icmp_seq=3"));
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    EXPECT_THAT(ctl.Out(), HasSubstr(" received, 0% packet loss\n"));
    EXPECT_TRUE(daemon_.WaitLog("ping stop"));
}

TEST_F(CtlDiag, SeveralPingsOneAfterTheOther) {
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(0, RunCtl("ping 192.0.2.2 --count 1 --timeout 30000").status);
    }
}

TEST_F(CtlDiag, PingRefusals) {
    EXPECT_EQ(4, RunCtl("ping 192.0.2.2 --ttl 256 --count 1").status);
    EXPECT_EQ(2, RunCtl("ping host.example").status);
    EXPECT_EQ(2, RunCtl("ping 192.0.2.2 --count -1").status);
    daemon_.Stop();
    EXPECT_EQ(3, RunCtl("ping 192.0.2.2 --count 1").status);
}

class CtlTraceroute : public CtlDiag {
 protected:
    // 192.0.2.2 is a router to 203.0.113.1.
    void SetUp() override {
        CtlDiag::SetUp();
        Shell("ip link add left type veth peer name right && ip link set left netns " +
              std::to_string(host_.Pid()) + " name eth1 && ip link set right netns " +
              std::to_string(far_.Pid()) + " name eth0");
        host_.Shell(
            "ip address add 203.0.113.254/24 dev eth1 && ip link set eth1 up &&"
            "echo 1 > /proc/sys/net/ipv4/ip_forward");
        far_.Shell(
            "ip address add 203.0.113.1/24 dev eth0 && ip link set eth0 up &&"
            "ip route add default via 203.0.113.254");
        Shell("ip route add default via 192.0.2.2");
    }

    Host far_;
};

TEST_F(CtlTraceroute, ShowsTheHops) {
    const Done done = RunCtl("traceroute 203.0.113.1");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_THAT(done.out, MatchesRegex("traceroute to 203.0.113.1, 30 hops max\n"
                                       " 1  192.0.2.2  [0-9.]+ ms\n"
                                       " 2  203.0.113.1  [0-9.]+ ms\n"
                                       "203.0.113.1 reached, 2 hops\n"));
}

TEST_F(CtlTraceroute, InJson) {
    const Done done = RunCtl("traceroute 203.0.113.1 --json");
    EXPECT_EQ(0, done.status) << done.err;
    ASSERT_EQ(3u, done.lines.size()) << done.out;
    EXPECT_EQ("192.0.2.2", done.lines[0].at("address"));
    EXPECT_EQ("hop", done.lines[0].at("result"));
    EXPECT_EQ("arrived", done.lines[1].at("result"));
    EXPECT_EQ(2, done.lines[1].at("hop"));
    EXPECT_EQ(true, done.lines[2].at("summary").at("reached"));
}

TEST_F(CtlTraceroute, TellsWhyItDoesNotArrive) {
    Done done = RunCtl("traceroute 198.51.100.1");
    EXPECT_EQ(5, done.status);
    EXPECT_THAT(done.out, HasSubstr(" 1  192.0.2.2  "));
    EXPECT_THAT(done.out, HasSubstr(" ms !N\n198.51.100.1 not reached\n"));
    done = RunCtl("traceroute 203.0.113.1 --hops 1");
    EXPECT_EQ(5, done.status);
    Shell("ip route del default");
    done = RunCtl("traceroute 203.0.113.1");
    EXPECT_EQ(5, done.status);
    EXPECT_THAT(done.out, HasSubstr(" 1  Network is unreachable\n"));
}

TEST_F(CtlTraceroute, CtrlCStopsIt) {
    far_.Shell("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    Ctl ctl("traceroute 203.0.113.1");
    ASSERT_TRUE(ctl.WaitOut(" 2  *\n"));
    ctl.Interrupt();
    EXPECT_EQ(5, ctl.Wait());
    EXPECT_TRUE(daemon_.WaitLog("traceroute stop"));
}

// ---- Bonding and the web server

TEST(CtlWeb, StartsAndStopsTheServer) {
    mkdir("/tmp/www", 0755);
    WriteFile("/tmp/www/index.html", "hello");
    const Daemon daemon({"--web-root=/tmp/www"});
    EXPECT_EQ(0, RunCtl("web start 8080").status);
    const std::string fetch = "busybox wget -q -O - http://127.0.0.1:8080/index.html";
    EXPECT_EQ("hello", Shell(fetch));
    EXPECT_EQ(0, RunCtl("web stop --json").status);
    EXPECT_TRUE(WaitFor([&] { return ShellStatus(fetch) != 0; }));
    EXPECT_EQ(2, RunCtl("web start 65536").status);
}

TEST(CtlWeb, SaysWhyItCannotStart) {
    const Daemon daemon({"--web-root=/tmp"});
    const Program other({"busybox", "httpd", "-f", "-p", "8080", "-h", "/tmp"}, "/tmp/other.log");
    ASSERT_TRUE(WaitFor([] { return ShellStatus("busybox nc 127.0.0.1 8080 </dev/null") == 0; }));
    const Done done = RunCtl("web start 8080");
    EXPECT_EQ(4, done.status);
    EXPECT_THAT(done.err, HasSubstr("Address already in use"));
}

TEST(CtlBond, JoinsInterfacesOrSaysWhyNot) {
    MakeIface("eth0");
    MakeIface("eth1");
    const Daemon daemon;
    const bool able = ShellStatus("ip link add probe type bond && ip link del probe") == 0;
    const Done done = RunCtl("bond start active-backup eth0 eth1 --active eth1");
    EXPECT_EQ(able ? 0 : 4, done.status) << done.err;
    EXPECT_THAT(done.err, HasSubstr(able ? "" : "95 (Operation not supported)"));
    EXPECT_EQ(0, RunCtl("bond stop").status);
    EXPECT_EQ(5, RunCtl("bond start 0 eth0 nowhere0").status);
    EXPECT_EQ(2, RunCtl("bond start 0 a b c d e").status);
    EXPECT_EQ(2, RunCtl("bond start 7 eth0").status);
    EXPECT_EQ(1, RunCtl("bond start 0 eth0 --path /nowhere").status);
}

TEST(CtlBond, SaysThatTheDaemonIsNotThere) {
    EXPECT_EQ(3, RunCtl("bond start 0 eth0").status);
    EXPECT_EQ(3, RunCtl("web start").status);
}

}  // namespace
}  // namespace vimbra::tests
