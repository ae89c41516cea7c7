// Routes, tables, rules, gateways and priorities: what the library asks for is in the kernel's own
// tables, and packets go by it.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// The gateway calls read 16 bytes whatever a name's length.
char g_eth0[16] = "eth0";
char g_eth1[16] = "eth1";
char g_nowhere[16] = "nowhere0";

TVimbraAddr Addr(const char* text) {
    TVimbraAddr made{};
    const bool v6 = std::strchr(text, ':') != nullptr;
    made.wSinFamily = v6 ? VIMBRA_FAMILY_IPV6 : VIMBRA_FAMILY_IPV4;
    EXPECT_EQ(1, inet_pton(made.wSinFamily, text, &made.tV6Addr)) << text;
    return made;
}

std::string TextOf(const TVimbraAddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.wSinFamily, &address.tV6Addr, text, sizeof(text));
    return text;
}

TVimbraIpRouteParam Route(const char* iface, const char* destination, u32 prefix,
                          const char* gateway, u32 metric = 0) {
    TVimbraIpRouteParam route{};
    std::memcpy(route.achIfaceName, iface, std::strlen(iface));
    route.tDestIpNet = Addr(destination);
    route.tDestGateWay = Addr(gateway);
    route.dwPrefix = prefix;
    route.dwRoutePri = metric;
    return route;
}

s32 Add(TVimbraIpRouteParam route) {
    return VimbraAddOneIpRoute(&route);
}

s32 AddTo(u32 table, TVimbraIpRouteParam route) {
    return VimbraAddOneIpRouteToTable(&route, table);
}

s32 Delete(TVimbraIpRouteParam route) {
    return VimbraDelOneIpRoute(&route);
}

s32 DeleteFrom(u32 table, TVimbraIpRouteParam route) {
    return VimbraDelOneIpRouteFromTable(&route, table);
}

s32 Modify(TVimbraIpRouteParam route) {
    return VimbraModifyIpRouteMetric(&route);
}

TVimbraIpRuleParam Rule(const char* source, u32 prefix, u32 pref, u32 table, u32 mark = 0) {
    return {Addr(source), prefix, pref, table, mark};
}

s32 AddRule(TVimbraIpRuleParam rule) {
    return VimbraAddIpRule(&rule);
}

s32 DeleteRule(TVimbraIpRuleParam rule) {
    return VimbraDelIpRule(&rule);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return lines;
}

// As `ip` shows them: those that were configured, not the kernel's own.
std::vector<std::string> KernelRoutes(int family, const std::string& table = "main") {
    return Lines(Shell("ip -" + std::string(family == 2 ? "4" : "6") + " route show table " +
                       table + " proto static 2>/dev/null || true"));
}

std::vector<std::string> KernelRules() {
    return Lines(Shell("ip rule show"));
}

std::string TextOf(const TVimbraIpRouteParam& route) {
    std::string text = TextOf(route.tDestIpNet) + "/" + std::to_string(route.dwPrefix);
    if (TextOf(route.tDestGateWay) != "0.0.0.0" && TextOf(route.tDestGateWay) != "::") {
        text += " via " + TextOf(route.tDestGateWay);
    }
    text += " dev " + std::string(route.achIfaceName, strnlen(route.achIfaceName, 16));
    return text + " metric " + std::to_string(route.dwRoutePri);
}

// As the library tells them, in order.
std::vector<std::string> Told(u16 family) {
    TVimbraAllIpRouteInfo list{};
    EXPECT_EQ(0, VimbraGetAllIpRoute(family, &list));
    std::vector<std::string> told;
    for (u32 i = 0; i < list.dwIpRouteNum; ++i) {
        told.push_back(TextOf(list.tNetIpRouteParam[i]));
    }
    return told;
}

std::string Gateway(char* iface, u16 family) {
    TVimbraAddr gateway{};
    return VimbraGetDefGateway(iface, family, &gateway) == 0 ? TextOf(gateway) : "none";
}

std::string Gateway(char* iface, u16 family, u32 table) {
    TVimbraAddr gateway{};
    return VimbraGetDefGatewayFromTable(iface, family, &gateway, table) == 0 ? TextOf(gateway)
                                                                             : "none";
}

using Priorities = std::vector<std::pair<const char*, int>>;

s32 SetPriority(const Priorities& wanted) {
    TVimbraNetworkPrioInfo info{};
    for (const auto& [name, priority] : wanted) {
        TVimbraNetworkPriority& entry = info.tNetPrioParam[info.dwNetNum++];
        std::memcpy(entry.achIfaceName, name, std::strlen(name));
        entry.ePrio = static_cast<EVimbraNetworkPrio>(priority);
    }
    return VimbraSetNetworkPriority(&info);
}

class VimbradRoute : public testing::Test {
 protected:
    void SetUp() override {
        for (const char* name : {"eth0", "eth1"}) {
            MakeIface(name);
            Shell(std::string("ip link set ") + name + " addrgenmode none");
            Shell(std::string("ip -6 address flush dev ") + name);
            Shell(std::string("ip -6 address flush dev peer-") + name);
        }
        Shell("ip address add 10.0.0.1/24 dev eth0 && ip address add 10.1.0.1/24 dev eth1");
        Shell(
            "ip address add fd00::1/64 dev eth0 nodad && ip address add fd01::1/64 dev eth1 nodad");
    }

    Daemon daemon_;
};

TEST_F(VimbradRoute, AddedRouteIsInTheKernel) {
    EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(0, Add(Route("eth1", "172.32.0.0", 16, "10.1.0.2", 255)));
    EXPECT_EQ(0, Add(Route("eth0", "192.0.2.7", 32, "0.0.0.0", 3)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0",
                                             "172.32.0.0/16 via 10.1.0.2 dev eth1 metric 255",
                                             "192.0.2.7 dev eth0 scope link metric 3"));
    EXPECT_EQ(0, Add(Route("eth0", "fd10::", 48, "fd00::2")));
    EXPECT_EQ(0, Add(Route("eth1", "fd11::1", 128, "::", 9)));
    EXPECT_THAT(KernelRoutes(10),
                ElementsAre("fd10::/48 via fd00::2 dev eth0 metric 1024 pref medium",
                            "fd11::1 dev eth1 metric 9 pref medium"));
}

TEST_F(VimbradRoute, DefaultRouteIsARouteToo) {
    EXPECT_EQ(0, Add(Route("eth0", "0.0.0.0", 0, "10.0.0.2", 5)));
    EXPECT_EQ(0, Add(Route("eth0", "::", 0, "fd00::2", 5)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.2 dev eth0 metric 5"));
    EXPECT_THAT(KernelRoutes(10), ElementsAre("default via fd00::2 dev eth0 metric 5 pref medium"));
    EXPECT_EQ("10.0.0.2", Gateway(g_eth0, 2));
    EXPECT_EQ(0, Delete(Route("eth0", "0.0.0.0", 0, "10.0.0.2", 5)));
    EXPECT_EQ(0, Delete(Route("eth0", "::", 0, "::")));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
    EXPECT_THAT(KernelRoutes(10), IsEmpty());
}

TEST_F(VimbradRoute, InterfaceIsFoundByTheGateway) {
    EXPECT_EQ(0, Add(Route("", "172.16.0.0", 12, "10.1.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.1.0.2 dev eth1"));
}

TEST_F(VimbradRoute, RefusalIsTheKernelsNumber) {
    EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(EEXIST, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(EEXIST, Add(Route("eth1", "172.16.0.0", 12, "10.1.0.2")));
    EXPECT_EQ(ENETUNREACH, Add(Route("eth0", "172.32.0.0", 16, "10.9.0.2")));
    EXPECT_EQ(EINVAL, Add(Route("eth0", "172.32.0.1", 16, "10.0.0.2")));
    EXPECT_EQ(ENODEV, Add(Route("nowhere0", "172.32.0.0", 16, "10.0.0.2")));
    EXPECT_EQ(ENODEV, Add(Route("abcdefghijklmnop", "172.32.0.0", 16, "10.0.0.2")));
    EXPECT_EQ(ESRCH, Delete(Route("eth0", "172.32.0.0", 16, "10.0.0.2")));
    EXPECT_EQ(ESRCH, Delete(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 7)));
    EXPECT_EQ(ESRCH, Delete(Route("eth1", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(ESRCH, Modify(Route("eth0", "172.32.0.0", 16, "10.0.0.2", 7)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0"));
}

TEST_F(VimbradRoute, DeletedRouteIsGone) {
    for (const u32 metric : {0, 7, 8}) {
        EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2", metric)));
    }
    EXPECT_EQ(0, Delete(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 7)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0",
                                             "172.16.0.0/12 via 10.0.0.2 dev eth0 metric 8"));
    EXPECT_EQ(0, Delete(Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0 metric 8"));
    // No route has metric 0 any more: any will do, and so does any interface and any gateway.
    EXPECT_EQ(0, Delete(Route("", "172.16.0.0", 12, "0.0.0.0")));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
}

TEST_F(VimbradRoute, DeleteFindsTheRouteByItsGateway) {
    Shell("ip route append 172.16.0.0/12 via 10.0.0.2 proto static");
    Shell("ip route append 172.16.0.0/12 via 10.1.0.2 proto static");
    EXPECT_EQ(0, Delete(Route("", "172.16.0.0", 12, "10.1.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0"));
}

TEST_F(VimbradRoute, NumberedTablesAreApart) {
    EXPECT_EQ(0, AddTo(100, Route("eth0", "172.16.0.0", 12, "10.0.0.2", 4)));
    EXPECT_EQ(0, AddTo(1000, Route("eth1", "172.16.0.0", 12, "10.1.0.2")));
    EXPECT_EQ(0, AddTo(100, Route("eth0", "fd10::", 48, "fd00::2", 4)));
    // Table 0 is the main one.
    EXPECT_EQ(0, AddTo(0, Route("eth0", "172.32.0.0", 16, "10.0.0.2")));
    EXPECT_THAT(KernelRoutes(2, "100"),
                ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0 metric 4"));
    EXPECT_THAT(KernelRoutes(10, "100"),
                ElementsAre("fd10::/48 via fd00::2 dev eth0 metric 4 pref medium"));
    EXPECT_THAT(KernelRoutes(2, "1000"), ElementsAre("172.16.0.0/12 via 10.1.0.2 dev eth1"));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.32.0.0/16 via 10.0.0.2 dev eth0"));
    EXPECT_EQ(ESRCH, Delete(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 4)));
    EXPECT_EQ(0, DeleteFrom(100, Route("eth0", "172.16.0.0", 12, "10.0.0.2", 4)));
    EXPECT_EQ(0, DeleteFrom(100, Route("eth0", "fd10::", 48, "fd00::2", 4)));
    EXPECT_EQ(0, DeleteFrom(1000, Route("eth1", "172.16.0.0", 12, "10.1.0.2")));
    EXPECT_EQ(0, DeleteFrom(0, Route("eth0", "172.32.0.0", 16, "10.0.0.2")));
    for (const char* table : {"100", "1000", "main"}) {
        EXPECT_THAT(KernelRoutes(2, table), IsEmpty()) << table;
    }
}

TEST_F(VimbradRoute, MetricChanges) {
    EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 5)));
    EXPECT_EQ(0, Modify(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 200)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0 metric 200"));
    EXPECT_EQ(0, Modify(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 200)));
    EXPECT_EQ(0, Modify(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 0)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0"));
    EXPECT_EQ(0, Add(Route("eth0", "fd10::", 48, "fd00::2")));
    EXPECT_EQ(0, Modify(Route("eth0", "fd10::", 48, "fd00::2", 7)));
    EXPECT_THAT(KernelRoutes(10),
                ElementsAre("fd10::/48 via fd00::2 dev eth0 metric 7 pref medium"));
}

// The kernel shows the routes of a link without carrier with a state that it does not take back.
TEST_F(VimbradRoute, MetricAndPriorityChangeWithoutACable) {
    EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 5)));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    Shell("ip link set peer-eth0 down");
    ASSERT_TRUE(WaitFor(
        [] { return Shell("ip route show dev eth0").find("linkdown") != std::string::npos; }));
    EXPECT_EQ(0, Modify(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 6)));
    EXPECT_EQ(0, SetPriority({{"eth1", 1}, {"eth0", 2}}));
    EXPECT_THAT(Shell("ip route show 172.16.0.0/12"), testing::HasSubstr("metric 6"));
    EXPECT_EQ("10.0.0.2", Gateway(nullptr, 2));
}
TEST_F(VimbradRoute, MetricOfAConnectedRouteKeepsItsSourceAddress) {
    EXPECT_EQ(0, Modify(Route("eth0", "10.0.0.0", 24, "0.0.0.0", 9)));
    EXPECT_THAT(Lines(Shell("ip route show 10.0.0.0/24")),
                ElementsAre("10.0.0.0/24 dev eth0 proto kernel scope link src 10.0.0.1 metric 9"));
}

TEST_F(VimbradRoute, MetricOfAnotherRouteIsNotTaken) {
    EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 5)));
    EXPECT_EQ(0, Add(Route("eth1", "172.16.0.0", 12, "10.1.0.2", 6)));
    EXPECT_EQ(EEXIST, Modify(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 6)));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("172.16.0.0/12 via 10.0.0.2 dev eth0 metric 5",
                                             "172.16.0.0/12 via 10.1.0.2 dev eth1 metric 6"));
}

TEST_F(VimbradRoute, ListingIsWhatTheKernelHas) {
    EXPECT_THAT(Told(2),
                ElementsAre("10.0.0.0/24 dev eth0 metric 0", "10.1.0.0/24 dev eth1 metric 0"));
    Shell("ip route add 172.16.0.0/12 via 10.0.0.2 metric 300");
    Shell("ip route add default via 10.1.0.2");
    Shell("ip route add blackhole 198.51.100.0/24");
    Shell("ip route add 203.0.113.0/24 via 10.0.0.2 table 77");
    Shell("ip -6 route add fd10::/48 via fd00::2");
    const std::vector<std::string> configured4 = {"0.0.0.0/0 via 10.1.0.2 dev eth1 metric 0",
                                                  "172.16.0.0/12 via 10.0.0.2 dev eth0 metric 300"};
    EXPECT_THAT(Told(2),
                ElementsAre(configured4[0], configured4[1], "10.0.0.0/24 dev eth0 metric 0",
                            "10.1.0.0/24 dev eth1 metric 0"));
    // An IPv6 route without a metric has the kernel's, which is told as none.
    EXPECT_THAT(Told(10),
                ElementsAre("fd10::/48 via fd00::2 dev eth0 metric 0",
                            "fd00::/64 dev eth0 metric 256", "fd01::/64 dev eth1 metric 256"));
    EXPECT_THAT(
        Told(11),
        ElementsAre(configured4[0], configured4[1], "fd10::/48 via fd00::2 dev eth0 metric 0",
                    "10.0.0.0/24 dev eth0 metric 0", "10.1.0.0/24 dev eth1 metric 0",
                    "fd00::/64 dev eth0 metric 256", "fd01::/64 dev eth1 metric 256"));
}

TEST_F(VimbradRoute, RoutesThatDifferInTheirInterfaceOnlyAreAllListed) {
    Shell("ip route append 172.16.0.0/12 dev eth0 && ip route append 172.16.0.0/12 dev eth1");
    EXPECT_THAT(Told(2),
                ElementsAre("172.16.0.0/12 dev eth0 metric 0", "172.16.0.0/12 dev eth1 metric 0",
                            "10.0.0.0/24 dev eth0 metric 0", "10.1.0.0/24 dev eth1 metric 0"));
}

TEST_F(VimbradRoute, ListingHasTenAndLeavesTheKernelsOwnOut) {
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(
            0, Add(Route("eth0", ("172.16." + std::to_string(i) + ".0").c_str(), 24, "10.0.0.2")));
    }
    EXPECT_EQ(0, Add(Route("eth0", "fd10::", 48, "fd00::2")));
    EXPECT_THAT(Told(2), SizeIs(10));
    const std::vector<std::string> both = Told(11);
    ASSERT_THAT(both, SizeIs(10));
    EXPECT_EQ("fd10::/48 via fd00::2 dev eth0 metric 0", both[9]);
    EXPECT_EQ(0, Add(Route("eth0", "172.17.0.0", 24, "10.0.0.2")));
    EXPECT_EQ(0, Add(Route("eth0", "172.18.0.0", 24, "10.0.0.2")));
    EXPECT_THAT(Told(2), SizeIs(10));
}

TEST_F(VimbradRoute, WhatWasToldCanBeDeleted) {
    EXPECT_EQ(0, Add(Route("eth0", "172.16.0.0", 12, "10.0.0.2", 5)));
    EXPECT_EQ(0, Add(Route("eth0", "fd10::", 48, "fd00::2")));
    TVimbraAllIpRouteInfo list{};
    EXPECT_EQ(0, VimbraGetAllIpRoute(11, &list));
    EXPECT_EQ(0, VimbraDelOneIpRoute(&list.tNetIpRouteParam[0]));
    EXPECT_EQ(0, VimbraDelOneIpRoute(&list.tNetIpRouteParam[1]));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
    EXPECT_THAT(KernelRoutes(10), IsEmpty());
}

TEST_F(VimbradRoute, GatewayOfAnInterface) {
    EXPECT_EQ("none", Gateway(g_eth0, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("fd00::2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.2 dev eth0"));
    EXPECT_THAT(KernelRoutes(10),
                ElementsAre("default via fd00::2 dev eth0 metric 1024 pref medium"));
    EXPECT_EQ("10.0.0.2", Gateway(g_eth0, 2));
    EXPECT_EQ("fd00::2", Gateway(g_eth0, 10));
    EXPECT_EQ("none", Gateway(g_eth1, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.3")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.3")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.3 dev eth0"));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
    EXPECT_EQ("fd00::2", Gateway(g_eth0, 10));
    EXPECT_EQ(-1, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 10));
    EXPECT_THAT(KernelRoutes(10), IsEmpty());
}

TEST_F(VimbradRoute, EachInterfaceHasItsOwnGateway) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("10.1.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("fd00::2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("fd01::2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.2 dev eth0",
                                             "default via 10.1.0.2 dev eth1 metric 1"));
    EXPECT_THAT(KernelRoutes(10),
                ElementsAre("default via fd00::2 dev eth0 metric 1024 pref medium",
                            "default via fd01::2 dev eth1 metric 1025 pref medium"));
    EXPECT_EQ("10.0.0.2", Gateway(g_eth0, 2));
    EXPECT_EQ("10.1.0.2", Gateway(g_eth1, 2));
    EXPECT_EQ("10.0.0.2", Gateway(nullptr, 2));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ("10.1.0.2", Gateway(nullptr, 2));
    EXPECT_EQ("10.1.0.2", Gateway(g_eth1, 2));
}

TEST_F(VimbradRoute, GatewayWithoutAnInterfaceFindsItsOwn) {
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Addr("10.1.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.2 dev eth1"));
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Addr("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Addr("10.1.0.3")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.3 dev eth1",
                                             "default via 10.0.0.2 dev eth0 metric 1"));
    EXPECT_EQ(-1, VimbraSetDefGateway(nullptr, Addr("0.0.0.0")));
    EXPECT_EQ(0, VimbraDelDefGateway(nullptr, 2));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
}

TEST_F(VimbradRoute, InterfaceItselfMayBeTheWayOut) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("0.0.0.0")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default dev eth1 scope link"));
    EXPECT_EQ("0.0.0.0", Gateway(g_eth1, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("10.1.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.2 dev eth1"));
}

TEST_F(VimbradRoute, RefusedGatewayChangesNothing) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    const Capture log;
    EXPECT_EQ(-1, VimbraSetDefGateway(g_eth0, Addr("10.9.0.2")));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicGateWaySet", "send and recv msg error num : 101!"));
    EXPECT_EQ(-1, VimbraSetDefGateway(g_nowhere, Addr("10.0.0.2")));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicGateWaySet", "send and recv msg error num : 19!"));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.2 dev eth0"));
}

// The kernel tells of every route that goes: none may go before another has come.
TEST_F(VimbradRoute, GatewayIsReplacedWithoutAGap) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    Program monitor({"ip", "-o", "monitor", "route"}, "/tmp/monitor");
    ASSERT_TRUE(WaitFor([&monitor] {
        // A route that is there already is not told again.
        ShellStatus("ip route add 198.51.100.1 dev eth0; ip route del 198.51.100.1 dev eth0");
        return monitor.Output().find("198.51.100.1") != std::string::npos;
    }));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.3")));
    EXPECT_TRUE(monitor.WaitOutput("default via 10.0.0.3"));
    Shell("ip route add 198.51.100.2 dev eth0");
    EXPECT_TRUE(monitor.WaitOutput("198.51.100.2"));
    EXPECT_EQ(std::string::npos, monitor.Output().find("Deleted default")) << monitor.Output();
}

TEST_F(VimbradRoute, GatewaysOfNumberedTables) {
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth0, Addr("10.0.0.2"), 100));
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth1, Addr("fd01::2"), 100));
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth1, Addr("10.1.0.2"), 254));
    EXPECT_THAT(KernelRoutes(2, "100"), ElementsAre("default via 10.0.0.2 dev eth0"));
    EXPECT_THAT(KernelRoutes(10, "100"),
                ElementsAre("default via fd01::2 dev eth1 metric 1024 pref medium"));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.2 dev eth1"));
    EXPECT_EQ("10.0.0.2", Gateway(g_eth0, 2, 100));
    EXPECT_EQ("none", Gateway(g_eth1, 2, 100));
    EXPECT_EQ("fd01::2", Gateway(nullptr, 10, 100));
    EXPECT_EQ("none", Gateway(g_eth0, 2, 101));
    EXPECT_EQ(0, VimbraDelDefGatewayFromTable(g_eth0, 2, 100));
    EXPECT_EQ(-1, VimbraDelDefGatewayFromTable(g_eth0, 2, 100));
    EXPECT_EQ("none", Gateway(g_eth0, 2, 100));
    EXPECT_EQ("fd01::2", Gateway(g_eth1, 10, 100));
}

TEST_F(VimbradRoute, TablesAreCreatedAndRemoved) {
    EXPECT_EQ(0, VimbraAddRouteTable(1));
    EXPECT_EQ(0, VimbraAddRouteTable(252));
    EXPECT_EQ(EEXIST, VimbraAddRouteTable(252));
    EXPECT_EQ(ENOENT, VimbraDelRouteTable(100));
    EXPECT_EQ(0, AddTo(252, Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(0, AddTo(252, Route("eth0", "fd10::", 48, "fd00::2")));
    EXPECT_EQ(0, AddTo(251, Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(0, VimbraDelRouteTable(252));
    EXPECT_THAT(KernelRoutes(2, "252"), IsEmpty());
    EXPECT_THAT(KernelRoutes(10, "252"), IsEmpty());
    EXPECT_THAT(KernelRoutes(2, "251"), SizeIs(1));
    EXPECT_EQ(ENOENT, VimbraDelRouteTable(252));
    EXPECT_EQ(0, VimbraAddRouteTable(252));
    // One that nobody created by request, but that is there.
    EXPECT_EQ(0, VimbraDelRouteTable(251));
    EXPECT_THAT(KernelRoutes(2, "251"), IsEmpty());
}

TEST_F(VimbradRoute, RulesAreInTheKernel) {
    EXPECT_EQ(0, AddRule(Rule("10.0.0.0", 24, 100, 100)));
    EXPECT_EQ(0, AddRule(Rule("0.0.0.0", 0, 200, 200, 0x1234)));
    EXPECT_EQ(0, AddRule(Rule("10.0.0.7", 32, 32765, 255, 7)));
    EXPECT_EQ(0, AddRule(Rule("10.0.0.8", 32, 300, 0)));
    EXPECT_THAT(
        KernelRules(),
        ElementsAre("0:\tfrom all lookup local", "100:\tfrom 10.0.0.0/24 lookup 100",
                    "200:\tfrom all fwmark 0x1234 lookup 200", "300:\tfrom 10.0.0.8 lookup main",
                    "32765:\tfrom 10.0.0.7 fwmark 0x7 lookup local", "32766:\tfrom all lookup main",
                    "32767:\tfrom all lookup default"));
    EXPECT_EQ(EEXIST, AddRule(Rule("10.0.0.0", 24, 100, 100)));
    EXPECT_EQ(EINVAL, AddRule(Rule("10.0.0.0", 33, 101, 100)));
    EXPECT_EQ(ENOENT, DeleteRule(Rule("10.0.0.0", 24, 100, 101)));
    EXPECT_EQ(0, DeleteRule(Rule("10.0.0.0", 24, 100, 100)));
    EXPECT_EQ(0, DeleteRule(Rule("0.0.0.0", 0, 200, 200, 0x1234)));
    EXPECT_EQ(0, DeleteRule(Rule("10.0.0.7", 32, 32765, 255, 7)));
    EXPECT_EQ(0, DeleteRule(Rule("10.0.0.8", 32, 300, 0)));
    EXPECT_EQ(ENOENT, DeleteRule(Rule("10.0.0.8", 32, 300, 0)));
    EXPECT_THAT(KernelRules(), SizeIs(3));
}

TEST_F(VimbradRoute, PriorityIsReadBackAsSet) {
    TVimbraNetworkPrioInfo told{};
    told.dwNetNum = 99;
    EXPECT_EQ(0, VimbraGetNetworkPriority(&told));
    EXPECT_EQ(0u, told.dwNetNum);
    EXPECT_EQ(0, SetPriority({{"eth1", 1}, {"abcdefghijklmnop", 5}, {"eth0", 0}}));
    EXPECT_EQ(0, VimbraGetNetworkPriority(&told));
    EXPECT_EQ(AsBytes(told), Pack()
                                 .U32(3)
                                 .Text("eth1", 16)
                                 .U32(1)
                                 .Text("abcdefghijklmnop", 16)
                                 .U32(5)
                                 .Text("eth0", 16)
                                 .U32(0)
                                 .FillTo(204)
                                 .Get());
}

TEST_F(VimbradRoute, PriorityOrdersTheDefaultRoutes) {
    MakeIface("eth2");
    Shell("ip address add 10.2.0.1/24 dev eth2");
    char eth2[16] = "eth2";
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("10.1.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(eth2, Addr("10.2.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("fd00::2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("fd01::2")));
    const auto order = [] {
        std::vector<std::string> names;
        for (const int family : {4, 6}) {
            std::vector<std::pair<int, std::string>> found;
            for (const Json& each : Ip("-" + std::to_string(family) + " route show default")) {
                found.emplace_back(each.value("metric", 0), each.at("dev").get<std::string>());
            }
            std::sort(found.begin(), found.end());
            for (const auto& [metric, name] : found) {
                names.push_back(name);
            }
        }
        return names;
    };
    EXPECT_THAT(order(), ElementsAre("eth0", "eth1", "eth2", "eth0", "eth1"));
    EXPECT_EQ(0, SetPriority({{"eth0", 3}, {"eth1", 1}, {"eth2", 2}}));
    EXPECT_THAT(order(), ElementsAre("eth1", "eth2", "eth0", "eth1", "eth0"));
    EXPECT_EQ("10.1.0.2", Gateway(nullptr, 2));
    // Two change places.
    EXPECT_EQ(0, SetPriority({{"eth0", 3}, {"eth1", 2}, {"eth2", 1}}));
    EXPECT_THAT(order(), ElementsAre("eth2", "eth1", "eth0", "eth1", "eth0"));
    // The default comes after the five, the unnamed after it; equals follow the list.
    EXPECT_EQ(0, SetPriority({{"eth2", 0}, {"eth1", 5}}));
    EXPECT_THAT(order(), ElementsAre("eth1", "eth2", "eth0", "eth1", "eth0"));
    EXPECT_EQ(0, SetPriority({{"eth2", 4}, {"eth0", 4}, {"eth1", 4}}));
    EXPECT_THAT(order(), ElementsAre("eth2", "eth0", "eth1", "eth0", "eth1"));
    // A gateway that is set later takes its interface's place.
    EXPECT_EQ(0, VimbraSetDefGateway(eth2, Addr("10.2.0.3")));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.3")));
    EXPECT_THAT(order(), ElementsAre("eth2", "eth0", "eth1", "eth0", "eth1"));
    EXPECT_EQ("10.2.0.3", Gateway(nullptr, 2));
    // First come, first served: eth0 got its gateway of IPv4 last.
    EXPECT_EQ(0, SetPriority({}));
    EXPECT_THAT(order(), ElementsAre("eth1", "eth2", "eth0", "eth0", "eth1"));
    EXPECT_THAT(KernelRoutes(2), testing::Contains("default via 10.1.0.2 dev eth1"));
}

TEST_F(VimbradRoute, ImpossiblePrioritiesAreRefused) {
    EXPECT_EQ(0, SetPriority({{"eth1", 1}}));
    EXPECT_EQ(-1, SetPriority({{"eth1", 6}}));
    EXPECT_EQ(-1, SetPriority({{"", 1}}));
    EXPECT_EQ(-1, SetPriority({{"eth1", 1}, {"eth1", 2}}));
    TVimbraNetworkPrioInfo info{};
    info.dwNetNum = 11;
    EXPECT_EQ(-1, VimbraSetNetworkPriority(&info));
    EXPECT_EQ(0, VimbraGetNetworkPriority(&info));
    EXPECT_EQ(1u, info.dwNetNum);
}

// Two hosts lead to one address, each on a link of its own; which of them a ping goes to shows in
// their own counters.
class VimbradRoutePacket : public testing::Test {
 protected:
    void SetUp() override {
        for (const auto& [name, host, net] :
             {std::tuple{"eth0", &first_, "10.0.0."}, std::tuple{"eth1", &second_, "10.1.0."}}) {
            Connect(name, *host);
            Shell(std::string("ip address add ") + net + "1/24 dev " + name);
            host->Shell(std::string("ip address add ") + net + "2/24 dev eth0");
            host->Shell("ip address add 203.0.113.1/32 dev lo && ip route add default via " +
                        std::string(net) + "1");
        }
        // An address of neither link, so that both hosts answer it.
        Shell("ip address add 192.0.2.1/32 dev lo");
    }

    static int Echoes(const Host& host) {
        return std::stoi(host.Shell("awk \"/^Icmp: [0-9]/ {print \\$10}\" /proc/net/snmp"));
    }

    // Which host was reached; 0 for none.
    int Reached(const std::string& options) {
        const int first = Echoes(first_);
        const int second = Echoes(second_);
        if (ShellStatus("ping -c 1 -W 5 " + options + " 203.0.113.1") != 0) {
            return 0;
        }
        return Echoes(first_) > first ? 1 : Echoes(second_) > second ? 2 : -1;
    }

    Host first_;
    Host second_;
    Daemon daemon_;
};

TEST_F(VimbradRoutePacket, TakesTheRouteOfTheTableThatARuleSelects) {
    EXPECT_EQ(0, Add(Route("eth0", "203.0.113.0", 24, "10.0.0.2")));
    EXPECT_EQ(0, VimbraAddRouteTable(100));
    EXPECT_EQ(0, AddTo(100, Route("eth1", "203.0.113.0", 24, "10.1.0.2")));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, AddRule(Rule("192.0.2.1", 32, 1000, 100)));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
    EXPECT_EQ(1, Reached(""));
    EXPECT_EQ(0, DeleteRule(Rule("192.0.2.1", 32, 1000, 100)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, AddRule(Rule("0.0.0.0", 0, 1000, 100, 42)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(2, Reached("-I 192.0.2.1 -m 42"));
    EXPECT_EQ(0, VimbraDelRouteTable(100));
    EXPECT_EQ(1, Reached("-I 192.0.2.1 -m 42"));
}

TEST_F(VimbradRoutePacket, TakesTheGatewayOfTheTableThatARuleSelects) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("10.1.0.2")));
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth0, Addr("10.0.0.2"), 50));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, AddRule(Rule("192.0.2.0", 24, 10, 50)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, VimbraDelDefGatewayFromTable(g_eth0, 2, 50));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
}

TEST_F(VimbradRoutePacket, GoesByTheMetric) {
    EXPECT_EQ(0, Add(Route("eth0", "203.0.113.0", 24, "10.0.0.2", 10)));
    EXPECT_EQ(0, Add(Route("eth1", "203.0.113.0", 24, "10.1.0.2", 20)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, Modify(Route("eth0", "203.0.113.0", 24, "10.0.0.2", 30)));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
}

TEST_F(VimbradRoutePacket, GoesByTheNetworkPriority) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Addr("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Addr("10.1.0.2")));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, SetPriority({{"eth1", 1}, {"eth0", 2}}));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, SetPriority({{"eth1", 2}, {"eth0", 1}}));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
}

}  // namespace
}  // namespace vimbra::tests
