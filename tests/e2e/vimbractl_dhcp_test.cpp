// The command line's DHCP client and DHCP server, with a real server or client on the other side of
// the link.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "ctl.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// A second host at the other end of eth0.
class CtlDhcp : public testing::Test {
 protected:
    void SetUp() override { Connect("eth0", host_); }

    // On the other host: a server with one address to give.
    std::unique_ptr<Program> Serve() {
        host_.Shell("ip address add 192.0.2.1/25 dev eth0");
        return RunUdhcpd(host_,
                         "start 192.0.2.100\nend 192.0.2.100\noption subnet 255.255.255.128\n"
                         "option router 192.0.2.1\noption dns 192.0.2.53 192.0.2.54\n"
                         "option lease 3600\n");
    }

    Host host_;
    Daemon daemon_{{"--log-level=5"}};
};

constexpr char kLease[] =
    "eth0: 192.0.2.100/25, gateway 192.0.2.1, for 3600 s, DNS 192.0.2.53, DNS 192.0.2.54\n";

Json LeaseRecord() {
    return Json{{"interface", "eth0"},
                {"event", "lease"},
                {"address", "192.0.2.100"},
                {"prefix", 25},
                {"gateway", "192.0.2.1"},
                {"lease_time", 3600},
                {"dns", {"192.0.2.53", "192.0.2.54"}}};
}

// ---- The client

TEST_F(CtlDhcp, StartShowsWhatTheServerHandsOut) {
    const auto server = Serve();
    Ctl ctl("dhcp start eth0 --watch");
    ASSERT_TRUE(ctl.WaitOut(kLease)) << ctl.Err() << daemon_.Log();
    EXPECT_THAT(KernelAddresses("eth0", 2), Contains("192.0.2.100/25 global"));
    // The renewed lease is told by the same listener.
    EXPECT_EQ(0, RunCtl("dhcp renew eth0").status);
    EXPECT_TRUE(ctl.WaitOut(std::string(kLease) + kLease)) << ctl.Out();
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    // Only the watch has ended.
    EXPECT_EQ("running\n", RunCtl("dhcp state eth0").out);
}

TEST_F(CtlDhcp, StartShowsAFailure) {
    Ctl ctl("dhcp start eth0 --watch --json");
    ASSERT_TRUE(ctl.WaitOut("\n")) << ctl.Err() << daemon_.Log();
    ctl.Interrupt(SIGTERM);
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    EXPECT_EQ((Json{{"interface", "eth0"}, {"event", "failure"}}), ctl.Lines().at(0));
}

TEST_F(CtlDhcp, ClientFromStartToStop) {
    const auto server = Serve();
    EXPECT_EQ("stopped\n", RunCtl("dhcp state eth0").out);
    Done done = RunCtl("dhcp lease eth0 --renew");
    EXPECT_EQ(5, done.status);
    EXPECT_THAT(done.err, HasSubstr("no DHCP client runs on this interface"));

    done = RunCtl("dhcp start eth0");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ("", done.out);
    EXPECT_EQ((Json{{"interface", "eth0"}, {"family", "ipv4"}, {"running", true}}),
              Json::parse(RunCtl("dhcp state eth0 --json").out));
    done = RunCtl("dhcp lease eth0 --renew");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ(kLease, done.out);
    EXPECT_EQ(LeaseRecord(), RunCtl("dhcp lease eth0 --renew --json").lines.at(0));
    EXPECT_EQ(0, RunCtl("dhcp renew eth0").status);

    EXPECT_EQ(0, RunCtl("dhcp stop eth0").status);
    EXPECT_EQ("stopped\n", RunCtl("dhcp state eth0").out);
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
    EXPECT_EQ(0, RunCtl("dhcp stop eth0").status);
    done = RunCtl("dhcp renew eth0");
    EXPECT_EQ(4, done.status);
    EXPECT_THAT(done.err, HasSubstr("refused: 3 (No such process)"));
}

TEST_F(CtlDhcp, FamiliesHaveClientsOfTheirOwn) {
    host_.Shell("ip address add 2001:db8::1/64 dev eth0 nodad");
    const auto server = RunDnsmasq6(host_, "[2001:db8::53]");
    Ctl ctl("dhcp start eth0 --family ipv6 --watch");
    ASSERT_TRUE(ctl.WaitOut("eth0: 2001:db8::100/128, for 120 s, DNS 2001:db8::53\n"))
        << ctl.Err() << daemon_.Log();
    EXPECT_EQ("running\n", RunCtl("dhcp state eth0 --family ipv6").out);
    EXPECT_EQ("stopped\n", RunCtl("dhcp state eth0").out);
    EXPECT_EQ(0, RunCtl("dhcp stop eth0 --family ipv6").status);
    EXPECT_EQ("stopped\n", RunCtl("dhcp state eth0 --family ipv6").out);
    ctl.Interrupt();
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
}

TEST_F(CtlDhcp, ClientRefusals) {
    for (const std::string options : {"", " --watch"}) {
        const Done done = RunCtl("dhcp start nowhere0" + options);
        EXPECT_EQ(5, done.status);
        EXPECT_THAT(done.err, HasSubstr("refused: 19 (No such device)"));
    }
    EXPECT_EQ(2, RunCtl("dhcp start").status);
    EXPECT_EQ(2, RunCtl("dhcp start eth0 --family both").status);
    EXPECT_EQ(2, RunCtl("dhcp start 12345678901234567").status);
    daemon_.Stop();
    EXPECT_EQ(3, RunCtl("dhcp start eth0").status);
    EXPECT_EQ(3, RunCtl("dhcp start eth0 --watch").status);
}

// ---- The server

class CtlDhcpServer : public CtlDhcp {
 protected:
    void SetUp() override {
        CtlDhcp::SetUp();
        Shell("ip address add 192.0.2.1/25 dev eth0");
    }
};

TEST_F(CtlDhcpServer, ServerFromStartToStop) {
    EXPECT_EQ("stopped\n", RunCtl("dhcp-server state eth0").out);
    Done done = RunCtl(
        "dhcp-server start eth0 192.0.2.50/25 192.0.2.50 --router 192.0.2.1 --dns 192.0.2.53 "
        "192.0.2.54");
    EXPECT_EQ(0, done.status) << done.err;
    EXPECT_EQ("running\n", RunCtl("dhcp-server state eth0").out);
    EXPECT_EQ((Json{{"interface", "eth0"}, {"running", true}}),
              Json::parse(RunCtl("dhcp-server state eth0 --json").out));
    const std::string told = RunUdhcpc(host_);
    EXPECT_THAT(told, HasSubstr("ip=192.0.2.50\n")) << daemon_.Log();
    EXPECT_THAT(told, HasSubstr("mask=25\n"));
    EXPECT_THAT(told, HasSubstr("router=192.0.2.1\n"));
    EXPECT_THAT(told, HasSubstr("dns=192.0.2.53 192.0.2.54\n"));

    EXPECT_EQ(0, RunCtl("dhcp-server stop eth0").status);
    EXPECT_EQ("stopped\n", RunCtl("dhcp-server state eth0").out);
    EXPECT_THAT(RunUdhcpc(host_, 5), Not(HasSubstr("ip=")));
    EXPECT_EQ(0, RunCtl("dhcp-server start eth0 192.0.2.50/25 192.0.2.60").status);
    EXPECT_EQ(0, RunCtl("dhcp-server stop").status);
    EXPECT_EQ("stopped\n", RunCtl("dhcp-server state eth0").out);
}

TEST_F(CtlDhcpServer, LeasesAreShownAsTheyChange) {
    ASSERT_EQ(0, RunCtl("dhcp-server start eth0 192.0.2.50/25 192.0.2.50").status);
    Ctl ctl("dhcp-server leases --watch");
    ASSERT_TRUE(ctl.WaitOut("no leases\n")) << ctl.Err() << daemon_.Log();
    EXPECT_THAT(RunUdhcpc(host_), HasSubstr("ip=192.0.2.50\n"));
    EXPECT_TRUE(ctl.WaitOut("192.0.2.50 " + MacOf(host_) + "\n")) << ctl.Out() << daemon_.Log();
    ctl.Interrupt(SIGTERM);
    EXPECT_EQ(0, ctl.Wait()) << ctl.Err();
    // The server has written its file more often.
    EXPECT_EQ("no leases\n192.0.2.50 " + MacOf(host_) + "\n", ctl.Out());
}

TEST_F(CtlDhcpServer, LeasesInJson) {
    ASSERT_EQ(0, RunCtl("dhcp-server start eth0 192.0.2.50/25 192.0.2.50").status);
    EXPECT_THAT(RunUdhcpc(host_), HasSubstr("ip=192.0.2.50\n"));
    // The client has its lease before the server's file does.
    const Json wanted{{"leases", {{{"address", "192.0.2.50"}, {"mac", MacOf(host_)}}}}};
    Done done;
    EXPECT_TRUE(WaitFor([&] {
        done = RunCtl("dhcp-server leases --json");
        return done.status == 0 && done.lines.at(0) == wanted;
    })) << done.out
        << done.err;
}

TEST_F(CtlDhcpServer, ServerRefusals) {
    EXPECT_EQ(5, RunCtl("dhcp-server start nowhere0 192.0.2.50/25 192.0.2.60").status);
    const Done done = RunCtl("dhcp-server start eth0 192.0.2.50/25 192.0.2.200");
    EXPECT_EQ(2, done.status);
    EXPECT_THAT(done.err, HasSubstr("accepted: an interface, a pool and a router in one network"));
    EXPECT_EQ(2, RunCtl("dhcp-server start eth0 192.0.2.50 192.0.2.60").status);
    EXPECT_EQ(2, RunCtl("dhcp-server start eth0 fd00::1/64 fd00::2").status);
    EXPECT_EQ(2, RunCtl("dhcp-server start eth0 192.0.2.50/25").status);
    daemon_.Stop();
    EXPECT_EQ(3, RunCtl("dhcp-server start eth0 192.0.2.50/25 192.0.2.60").status);
    EXPECT_EQ(3, RunCtl("dhcp-server stop eth0").status);
}

}  // namespace
}  // namespace vimbra::tests
