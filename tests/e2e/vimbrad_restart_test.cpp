// A daemon that is killed, ended or exchanged, under applications that go on: what a later life
// takes up, and what is left when there is to be none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <vimbra/vimbra.h>

#include <cerrno>
#include <memory>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "address_watch.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"
#include "lives.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr u32 kDhcpStart = 0x501;
constexpr u32 kLease = 0x505;
constexpr u32 kFail = 0x506;
constexpr u32 kPppoeStart = 0x601;
constexpr u32 kNtpStart = 0x901;
constexpr u32 kWebStart = 0x301;
constexpr u32 kTableAdd = 288;
constexpr u32 kConflictStart = 281;
constexpr char kState[] = "/run/vimbrad/state.json";

char g_eth1[] = "eth1";

Bytes Dhcp(const char* iface = "eth0") {
    return Pack().U16(2).Text(iface, 16);
}

Bytes Pppoe(u32 autoDial) {
    return Pack()
        .U16(2)
        .Text("me@isp", 255)
        .Text("secret", 255)
        .Zeros(255)
        .U32(autoDial)
        .Zeros(20)
        .U32(0)
        .Text("eth0", 16);
}

// A second host at the other end of eth0, with a DHCP server that has one address to give.
class VimbradRestart : public testing::Test {
 protected:
    void SetUp() override {
        Connect("eth0", host_);
        host_.Shell("ip address add 192.0.2.1/25 dev eth0");
        MakeIface("eth1");
    }

    void Serve(const std::string& lease = "3600") {
        server_ = RunUdhcpd(host_,
                            "start 192.0.2.100\nend 192.0.2.100\noption subnet 255.255.255.128\n"
                            "option router 192.0.2.1\noption dns 192.0.2.53\nmin_lease 5\n"
                            "option lease " +
                                lease + "\n");
    }

    static void ExpectLease(bool there) {
        EXPECT_EQ(there ? 1u : 0u, KernelAddresses("eth0", 2).size());
        const std::string route = Shell("ip -4 route show default dev eth0");
        EXPECT_EQ(there, route.find("via 192.0.2.1") != std::string::npos) << route;
        EXPECT_EQ(there,
                  ReadFile("/etc/resolv.conf").find("nameserver 192.0.2.53") != std::string::npos);
    }

    Host host_;
    std::unique_ptr<Program> server_;
};

TEST_F(VimbradRestart, LeaseStaysAndIsToldAnew) {
    Serve();
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    const AddressWatch watch;
    daemon.KillAndBegin();
    EXPECT_EQ(kLease, listener.Wait(2).at(1).type);
    ExpectLease(true);
    EXPECT_EQ("", AddressWatch::DeletedOn("eth0"));
    EXPECT_EQ("bound", Shown("dhcp_clients").at(0).at("state"));
    // It is ours again: it goes with the client.
    EXPECT_EQ(0, Ask(0x502, Dhcp()));
    ExpectLease(false);
}

TEST_F(VimbradRestart, DnsServersFromBeforeTheLeaseComeBack) {
    constexpr char kBefore[] = "nameserver 203.0.113.53\n";
    WriteFile("/etc/resolv.conf", kBefore);
    Serve();
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    daemon.KillAndBegin();
    ASSERT_EQ(kLease, listener.Wait(2).at(1).type);
    EXPECT_EQ(0, Ask(0x502, Dhcp()));
    EXPECT_EQ(kBefore, ReadFile("/etc/resolv.conf"));
}

TEST_F(VimbradRestart, LeaseThatNoServerConfirmsEndsWithItsTime) {
    Serve("20");
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    daemon.Kill();
    server_.reset();
    daemon.Begin();
    ExpectLease(true);
    EXPECT_TRUE(WaitFor([] { return KernelAddresses("eth0", 2).empty(); }));
    ExpectLease(false);
    EXPECT_TRUE(WaitFor([&listener] { return listener.Messages().back().type == kFail; }));
}

TEST_F(VimbradRestart, LeaseOfAnInterfaceThatIsGoneIsToldLost) {
    Serve();
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    daemon.Kill();
    Shell("ip link del eth0");
    daemon.Begin();
    EXPECT_EQ(kFail, listener.Wait(2).at(1).type);
}

TEST_F(VimbradRestart, KeepLeavesTheNetworkAlone) {
    Serve();
    Lives daemon({"--keep"});
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    const AddressWatch watch;
    daemon.End();
    ExpectLease(true);
    EXPECT_EQ(1u, listener.Messages().size());
    daemon.Begin();
    EXPECT_EQ(kLease, listener.Wait(2).at(1).type);
    EXPECT_EQ("", AddressWatch::DeletedOn("eth0"));
}

TEST_F(VimbradRestart, EndWithoutKeepGivesTheLeaseBackAndTellsSo) {
    Serve();
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    daemon.End();
    EXPECT_EQ(kFail, listener.Wait(2).at(1).type);
    ExpectLease(false);
    EXPECT_EQ("", ReadFile(kState));
}

TEST_F(VimbradRestart, ForgettingTakesTheLeaseBackAndLeavesTheRest) {
    Serve();
    Lives daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Dhcp()));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    Shell("ip address add 10.1.0.1/24 dev eth1");
    daemon.KillAndBegin({"--forget"});
    ExpectLease(false);
    EXPECT_THAT(Shown("dhcp_clients"), IsEmpty());
    EXPECT_THAT(KernelAddresses("eth1", 2), ElementsAre("10.1.0.1/24 global"));
}

TEST_F(VimbradRestart, AddressesRoutesRulesAndGatewaysAreOursStill) {
    Shell("ip address add 10.9.0.1/24 dev eth1");
    Lives daemon;
    TVimbraIfaceIp address{VIMBRA_SCOPE_TYPE_DEF, Address("10.1.0.1"), 24};
    ASSERT_EQ(0, VimbraIfaceAddIp(g_eth1, &address));
    ASSERT_EQ(0, VimbraSetDefGateway(g_eth1, Address("10.1.0.2")));
    TVimbraIpRouteParam route{"eth1", Address("198.51.100.0"), Address("10.1.0.2"), 24, 7};
    ASSERT_EQ(0, VimbraAddOneIpRoute(&route));
    TVimbraIpRuleParam rule{Address("203.0.113.0"), 24, 77, 100, 0};
    ASSERT_EQ(0, VimbraAddIpRule(&rule));
    daemon.KillAndBegin();
    EXPECT_THAT(KernelAddresses("eth1", 2),
                ElementsAre("10.1.0.1/24 global", "10.9.0.1/24 global"));
    EXPECT_THAT(Shell("ip route"),
                AllOf(HasSubstr("default via 10.1.0.2"), HasSubstr("198.51.100.0/24")));
    daemon.End();
    // What was there before the daemon stays.
    EXPECT_THAT(KernelAddresses("eth1", 2), ElementsAre("10.9.0.1/24 global"));
    EXPECT_THAT(Shell("ip route"),
                AllOf(Not(HasSubstr("default")), Not(HasSubstr("198.51.100.0"))));
    EXPECT_THAT(Shell("ip rule"), Not(HasSubstr("203.0.113.0")));
}

TEST_F(VimbradRestart, PriorityAndTablesAreKept) {
    Lives daemon;
    TVimbraNetworkPrioInfo list{};
    list.dwNetNum = 2;
    list.tNetPrioParam[0] = {"eth1", VIMBRA_NETWORK_PRIORITY_1};
    list.tNetPrioParam[1] = {"eth0", VIMBRA_NETWORK_PRIORITY_3};
    ASSERT_EQ(0, VimbraSetNetworkPriority(&list));
    ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    daemon.KillAndBegin();
    TVimbraNetworkPrioInfo kept{};
    EXPECT_EQ(0, VimbraGetNetworkPriority(&kept));
    EXPECT_EQ(AsBytes(list), AsBytes(kept));
    EXPECT_EQ(EEXIST, Ask(kTableAdd, Pack().U32(100)));
    daemon.KillAndBegin({"--forget"});
    EXPECT_EQ(0, VimbraGetNetworkPriority(&kept));
    EXPECT_EQ(0u, kept.dwNetNum);
    EXPECT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
}

TEST_F(VimbradRestart, DhcpServerServesOn) {
    Shell("ip address add 10.1.0.1/24 dev eth1");
    Lives daemon;
    TVimbraDhcpsInfo pool{};
    pool.tIpPoolStart = Address("10.1.0.100");
    pool.tIpPoolEnd = Address("10.1.0.200");
    pool.dwIpPoolPrefix = 24;
    pool.tRoutes = Address("10.1.0.1");
    ASSERT_EQ(0, VimbraDhcpsStart(g_eth1, 2, &pool));
    const Json before = Shown("dhcp_servers").at(0);
    daemon.KillAndBegin();
    Json after = Shown("dhcp_servers").at(0);
    EXPECT_NE(before.at("pid"), after.at("pid"));
    after["pid"] = before.at("pid");
    EXPECT_EQ(before, after);
}

TEST_F(VimbradRestart, WebServerListensOnTheSamePort) {
    Lives daemon({"--web-root=/tmp"});
    ASSERT_EQ(0, Ask(kWebStart, Pack().S32(8080)));
    daemon.KillAndBegin();
    EXPECT_TRUE(daemon.WaitLog("web server on port 8080")) << daemon.Log();
    EXPECT_EQ(8080, Shown("web_server").at("port"));
}

TEST_F(VimbradRestart, NtpClientAsksOn) {
    Lives daemon;
    const Listener listener("ipc_ntp");
    ASSERT_EQ(0, Ask(kNtpStart, Pack().U16(2).Address(2, "198.51.100.1").U32(60)));
    ASSERT_EQ(1u, listener.Wait(1).size());
    daemon.KillAndBegin();
    EXPECT_EQ(2u, listener.Wait(2).size());
    EXPECT_EQ("198.51.100.1", Shown("ntp_clients").at(0).at("server"));
}

TEST_F(VimbradRestart, PppoeLinkIsToldLostAndDialledAgain) {
    const Pppd pppd("ip_up 10.0.0.2 10.0.0.1; hold");
    Lives daemon;
    const Listener listener("ipc_pppoe");
    ASSERT_EQ(0, Ask(kPppoeStart, Pppoe(1)));
    ASSERT_EQ(1u, listener.Wait(1).at(0).type);
    daemon.KillAndBegin();
    EXPECT_TRUE(WaitFor([] { return !Pppd::Runs(1); }));
    const std::vector<Told> told = listener.Wait(3);
    EXPECT_EQ(2u, told.at(1).type);
    EXPECT_EQ(1u, told.at(2).type);
    EXPECT_EQ(2, Pppd::Dials());
    EXPECT_EQ("up", Shown("pppoe_links").at(0).at("state"));
    EXPECT_THAT(Shown("pppoe_links").dump(), Not(HasSubstr("secret")));
    daemon.End();
    EXPECT_EQ(2u, listener.Wait(4).at(3).type);
    EXPECT_EQ(5u, listener.Wait(5).at(4).type);
}

TEST_F(VimbradRestart, PppdThatHangsUpSlowlyIsWaitedFor) {
    const Pppd pppd(
        "trap 'sleep 1; exit 5' TERM; ip_up 10.0.0.2 10.0.0.1; while :; do sleep 0.1; done");
    Lives daemon;
    const Listener listener("ipc_pppoe");
    ASSERT_EQ(0, Ask(kPppoeStart, Pppoe(1)));
    ASSERT_EQ(1u, listener.Wait(1).at(0).type);
    daemon.KillAndBegin();
    EXPECT_TRUE(Pppd::WaitDial(2));
    EXPECT_FALSE(Pppd::Runs(1));
}

TEST_F(VimbradRestart, WatchesAreKept) {
    Lives daemon;
    ASSERT_EQ(0, Ask(kConflictStart, Pack().U16(10)));
    daemon.KillAndBegin();
    EXPECT_THAT(Shown("watches"), ElementsAre(Json{{"kind", "conflict"}, {"family", "ipv6"}}));
}

TEST_F(VimbradRestart, StateIsForNobodyElse) {
    Lives daemon;
    ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    EXPECT_EQ("600\n", Shell(std::string("stat -c %a ") + kState));
}

TEST_F(VimbradRestart, StateThatCannotBeReadIsForgotten) {
    Lives daemon;
    ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    const std::string whole = ReadFile(kState);
    std::string otherBoot = whole;
    otherBoot.replace(otherBoot.find("\"boot\": \"") + 9, 4, "0000");
    std::string strange = whole;
    strange.replace(strange.find("\"tables\""), 8, "\"tubles\"");
    for (const std::string& text :
         {std::string("{"), std::string("[]"), std::string("\0\xff", 2), whole.substr(0, 40),
          otherBoot, strange, std::string("{\"format\": 1, \"boot\": 7}")}) {
        daemon.Kill();
        WriteFile(kState, text);
        daemon.Begin();
        EXPECT_EQ(0, Ask(kTableAdd, Pack().U32(100))) << text;
    }
}

// What stands in its place is left alone, and changes are not kept meanwhile.
TEST_F(VimbradRestart, StateThatIsADirectoryIsForgotten) {
    Lives daemon;
    ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    daemon.Kill();
    Shell(std::string("rm ") + kState + " && mkdir " + kState);
    daemon.Begin();
    EXPECT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    daemon.KillAndBegin();
    EXPECT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    Shell(std::string("rmdir ") + kState);
    daemon.KillAndBegin();
    ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    daemon.KillAndBegin();
    EXPECT_EQ(EEXIST, Ask(kTableAdd, Pack().U32(100)));
}

// However soon after a reply it dies, what was told as done is known to the next one.
TEST_F(VimbradRestart, WhatWasAnsweredIsNotForgotten) {
    Lives daemon;
    for (u32 table = 1; table <= 20; ++table) {
        ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(table)));
        daemon.KillAndBegin();
        EXPECT_EQ(EEXIST, Ask(kTableAdd, Pack().U32(table)));
    }
}

}  // namespace
}  // namespace vimbra::tests
