// The command line and the daemon's second socket: what operators see of what applications and the
// kernel have done, and why something was refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "ctl.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr u32 kDhcpStart = 0x501;
constexpr u32 kLease = 0x505;

// An interface with a default route, and a table with routes and a rule of its own.
class CtlOperator : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        Shell("ip address add 10.0.0.1/24 dev eth0");
        ASSERT_EQ(0, RunCtl("gateway set eth0 10.0.0.2").status);
        ASSERT_EQ(0, RunCtl("table add 100").status);
        Shell("ip route add 198.51.100.0/24 via 10.0.0.3 metric 7 table 100");
        ASSERT_EQ(
            0,
            RunCtl("rule add --from 203.0.113.0/24 --priority 99 --fwmark 7 --table 100").status);
    }

    Daemon daemon_;
};

TEST_F(CtlOperator, GatewaysOfAllInterfaces) {
    Done done = RunCtl("gateway show");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ("ipv4  10.0.0.2  eth0  metric 0  table 254\n", done.out);
    done = RunCtl("gateway show --json");
    EXPECT_EQ((Json{{"gateways", Shown("gateways")}}), Json::parse(done.out));
    EXPECT_EQ("no gateways\n", RunCtl("gateway show --family ipv6").out);
    // As the library tells it.
    EXPECT_EQ("10.0.0.2\n", RunCtl("gateway show eth0").out);
}

TEST_F(CtlOperator, TablesAndTheirRoutes) {
    Done done = RunCtl("table show 100");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ("table 100, created\n  ipv4  198.51.100.0/24  via 10.0.0.3  eth0  metric 7  boot\n",
              done.out);
    done = RunCtl("table show");
    EXPECT_THAT(done.out, AllOf(HasSubstr("table 100, created\n"), HasSubstr("table 254\n")));
    done = RunCtl("table show 100 --json");
    EXPECT_EQ(1u, Json::parse(done.out).at("tables").size());
    EXPECT_EQ(5, RunCtl("table show 7").status);
}

TEST_F(CtlOperator, RulesInTheKernelsOrder) {
    const Done done = RunCtl("rule show");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ(
        "0:  ipv4  from all  table 255\n"
        "99:  ipv4  from 203.0.113.0/24  fwmark 7  table 100\n"
        "32766:  ipv4  from all  table 254\n"
        "32767:  ipv4  from all  table 253\n"
        "0:  ipv6  from all  table 255\n"
        "32766:  ipv6  from all  table 254\n",
        done.out);
    EXPECT_EQ((Json{{"rules", Shown("rules")}}), Json::parse(RunCtl("rule show --json").out));
}

TEST_F(CtlOperator, EverythingAtAGlance) {
    Done done = RunCtl("status");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_THAT(done.out, AllOf(HasSubstr("daemon: "),
                                HasSubstr("pid " + std::to_string(daemon_.Process().Pid())),
                                HasSubstr("gateways:\n  "), HasSubstr("gateway 10.0.0.2"),
                                HasSubstr("dhcp clients: none\n"), HasSubstr("bond: none\n")));
    done = RunCtl("status --json");
    EXPECT_EQ(12u, Json::parse(done.out).size());
    EXPECT_EQ(Shown("tables"), Json::parse(done.out).at("tables"));
}

TEST_F(CtlOperator, WithoutADaemonItIsStatus3) {
    EXPECT_EQ(0, daemon_.Stop());
    for (const char* words :
         {"status", "gateway show", "table show", "rule show", "dhcp lease", "dhcp state"}) {
        const Done done = RunCtl(words);
        EXPECT_EQ(3, done.status) << words;
        EXPECT_THAT(done.err, HasSubstr("cannot be asked at /run/vimbrad/status")) << words;
    }
}

// ---- Leases

TEST(CtlOperatorLease, IsShownAndTheApplicationStillGetsItsEvents) {
    const Host host;
    Connect("eth0", host);
    host.Shell("ip address add 192.0.2.1/25 dev eth0");
    const DhcpServer server(host);
    MakeIface("eth1");
    const Daemon daemon;
    EXPECT_EQ(5, RunCtl("dhcp lease").status);
    EXPECT_EQ("no DHCP client runs\n", RunCtl("dhcp state").out);
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Pack().U16(2).Text("eth0", 16)));
    ASSERT_EQ(0, Ask(kDhcpStart, Pack().U16(2).Text("eth1", 16)));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);

    constexpr char kShown[] =
        "eth0: 192\\.0\\.2\\.100/25, gateway 192\\.0\\.2\\.1, for 3600 s, 3[56][0-9][0-9] s left, "
        "DNS 192\\.0\\.2\\.53\n";
    EXPECT_THAT(RunCtl("dhcp lease").out,
                AllOf(ContainsRegex(kShown), HasSubstr("eth1: no lease, asking\n")));
    EXPECT_THAT(RunCtl("dhcp lease eth0").out,
                AllOf(ContainsRegex(kShown), Not(HasSubstr("eth1"))));
    EXPECT_EQ("eth0  ipv4  bound\neth1  ipv4  asking\n", RunCtl("dhcp state").out);
    const Json lease = Json::parse(RunCtl("dhcp lease eth0 --json").out).at("dhcp_clients").at(0);
    EXPECT_EQ("192.0.2.100", lease.at("lease").at("address"));
    EXPECT_EQ(5, RunCtl("dhcp lease eth0 --family ipv6").status);

    // Nobody has taken its place.
    EXPECT_EQ(0, RunCtl("dhcp renew eth0").status);
    EXPECT_EQ(kLease, listener.Wait(2).at(1).type);
}

// ---- Refusals

// A daemon without any of its programs.
class CtlMissing : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        Shell("ip address add 192.0.2.1/24 dev eth0");
        const std::string path = getenv("PATH");
        setenv("PATH", "/nowhere", 1);
        daemon_ = std::make_unique<Daemon>(std::vector<std::string>{"--web-root=/tmp"});
        setenv("PATH", path.c_str(), 1);
    }

    // The reason is told to whoever asked, and in the log.
    void ExpectRefused(const std::string& words, const std::string& change,
                       const std::string& why) {
        const Done done = RunCtl(words);
        EXPECT_EQ(4, done.status) << words;
        EXPECT_THAT(done.err, HasSubstr("): " + why + "\n")) << words;
        EXPECT_TRUE(daemon_->WaitLog(change + ": refused with ")) << daemon_->Log();
        EXPECT_THAT(daemon_->Log(), HasSubstr(": " + why + " (")) << words;
    }

    std::unique_ptr<Daemon> daemon_;
};

TEST_F(CtlMissing, ProgramsAreNamedByTheRefusal) {
    ExpectRefused("dhcp start eth0", "DHCP client start", "busybox is missing");
    ExpectRefused("dhcp start eth0 --family ipv6", "DHCP client start", "dhclient is missing");
    ExpectRefused("dhcp-server start eth0 192.0.2.50/24 192.0.2.60", "DHCP server start",
                  "busybox is missing");
    ExpectRefused("web start 8080", "web server start", "busybox is missing");
    ExpectRefused("ntp start 192.0.2.2", "NTP client start", "chronyd is missing");
    ExpectRefused("ntp check 192.0.2.2", "NTP server check", "chronyd is missing");
}

TEST_F(CtlMissing, StartTellsOfEachOnce) {
    ASSERT_TRUE(daemon_->WaitLog("listening on"));
    for (const char* thing : {"busybox", "dhclient", "chronyd", "pppd"}) {
        const std::string line = std::string(" info: ") + thing + " is missing: no ";
        const std::string log = daemon_->Log();
        const size_t first = log.find(line);
        ASSERT_NE(std::string::npos, first) << thing;
        EXPECT_EQ(std::string::npos, log.find(line, first + 1)) << thing;
    }
    EXPECT_THAT(RunCtl("status").out, HasSubstr("thing busybox"));
}

}  // namespace
}  // namespace vimbra::tests
