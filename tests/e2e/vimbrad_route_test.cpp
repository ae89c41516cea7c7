// Routes and gateways: what the library asks for is in the kernel's own tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cerrno>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "routes.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

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
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
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
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("fd00::2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.2 dev eth0"));
    EXPECT_THAT(KernelRoutes(10),
                ElementsAre("default via fd00::2 dev eth0 metric 1024 pref medium"));
    EXPECT_EQ("10.0.0.2", Gateway(g_eth0, 2));
    EXPECT_EQ("fd00::2", Gateway(g_eth0, 10));
    EXPECT_EQ("none", Gateway(g_eth1, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.3")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.3")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.3 dev eth0"));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
    EXPECT_EQ("fd00::2", Gateway(g_eth0, 10));
    EXPECT_EQ(-1, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 10));
    EXPECT_THAT(KernelRoutes(10), IsEmpty());
}

TEST_F(VimbradRoute, EachInterfaceHasItsOwnGateway) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("10.1.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("fd00::2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("fd01::2")));
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
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Address("10.1.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.2 dev eth1"));
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Address("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Address("10.1.0.3")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.3 dev eth1",
                                             "default via 10.0.0.2 dev eth0 metric 1"));
    EXPECT_EQ(-1, VimbraSetDefGateway(nullptr, Address("0.0.0.0")));
    EXPECT_EQ(0, VimbraDelDefGateway(nullptr, 2));
    EXPECT_THAT(KernelRoutes(2), IsEmpty());
}

TEST_F(VimbradRoute, InterfaceItselfMayBeTheWayOut) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("0.0.0.0")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default dev eth1 scope link"));
    EXPECT_EQ("0.0.0.0", Gateway(g_eth1, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("10.1.0.2")));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.1.0.2 dev eth1"));
}

TEST_F(VimbradRoute, RefusedGatewayChangesNothing) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
    const Capture log;
    EXPECT_EQ(-1, VimbraSetDefGateway(g_eth0, Address("10.9.0.2")));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicGateWaySet", "send and recv msg error num : 101!"));
    EXPECT_EQ(-1, VimbraSetDefGateway(g_nowhere, Address("10.0.0.2")));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicGateWaySet", "send and recv msg error num : 19!"));
    EXPECT_THAT(KernelRoutes(2), ElementsAre("default via 10.0.0.2 dev eth0"));
}

// The kernel tells of every route that goes: none may go before another has come.
TEST_F(VimbradRoute, GatewayIsReplacedWithoutAGap) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
    Program monitor({"ip", "-o", "monitor", "route"}, "/tmp/monitor");
    ASSERT_TRUE(WaitFor([&monitor] {
        // A route that is there already is not told again.
        ShellStatus("ip route add 198.51.100.1 dev eth0; ip route del 198.51.100.1 dev eth0");
        return monitor.Output().find("198.51.100.1") != std::string::npos;
    }));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.3")));
    EXPECT_TRUE(monitor.WaitOutput("default via 10.0.0.3"));
    Shell("ip route add 198.51.100.2 dev eth0");
    EXPECT_TRUE(monitor.WaitOutput("198.51.100.2"));
    EXPECT_EQ(std::string::npos, monitor.Output().find("Deleted default")) << monitor.Output();
}

TEST_F(VimbradRoute, GatewaysOfNumberedTables) {
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth0, Address("10.0.0.2"), 100));
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth1, Address("fd01::2"), 100));
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth1, Address("10.1.0.2"), 254));
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

}  // namespace
}  // namespace vimbra::tests
