// Legacy routes and gateways.
#include <gtest/gtest.h>
#include <vimbra/net_route.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TNetIpRouteParam Route() {
    TNetIpRouteParam route = {};
    route.byEthId = 2;
    route.dwDesIpNet = Word("10.1.0.0");
    route.dwDesIpMask = 16;
    route.dwGwIpAdrs = Word("192.168.1.1");
    route.dwRoutePri = 99;
    return route;
}

Bytes RouteBytes(const char* name) {
    return Pack().Text(name, 16).Address(2, "10.1.0.0").Address(2, "192.168.1.1").U32(16).U32(99);
}

using NetRoute = AtDaemon;

TEST_F(NetRoute, GatewaySet) {
    for (u32 number : {0u, 1u, 2u}) {
        EXPECT_EQ(0, NetSetDefGateway(number, Word("192.168.1.1")));
        const std::string name = "eth" + std::to_string(number);
        ExpectSent(271, Pack().Text(name, 16).Address(2, "192.168.1.1"));
    }
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(NetRoute, GatewayGet) {
    daemon_.Default(Answer::Body(Pack().S32(0).Address(2, "192.168.1.9")));
    u32 gateway = 0;
    EXPECT_EQ(0, NetGetDefGateway(1, &gateway));
    ExpectSent(272, Pack().U16(2).Text("eth1", 16));
    EXPECT_EQ(Word("192.168.1.9"), gateway);
}

TEST_F(NetRoute, AFailedGatewayGetLeavesTheWord) {
    daemon_.Default(Answer::Body(Pack().S32(7).Address(2, "192.168.1.9")));
    u32 gateway = 4711;
    EXPECT_EQ(-1, NetGetDefGateway(1, &gateway));
    EXPECT_EQ(4711u, gateway);
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraGetDefGateway", "ApicGateWayGet error : -1!"));
}

TEST_F(NetRoute, GatewayDel) {
    EXPECT_EQ(0, NetDelDefGateway(0));
    ExpectSent(278, Pack().U16(2).Text("eth0", 16));
    daemon_.Default(Answer::Code(3));
    EXPECT_EQ(-1, NetDelDefGateway(0));
}

TEST_F(NetRoute, RoutesGoByTheArgumentsNumber) {
    TNetIpRouteParam route = Route();
    EXPECT_EQ(0, NetAddOneIpRoute(1, &route));
    ExpectSent(267, Pack().Text("eth1", 16).Add(RouteBytes("eth1")));
    EXPECT_EQ(0, NetDelOneIpRoute(0, &route));
    ExpectSent(269, Pack().Text("eth0", 16).Add(RouteBytes("eth0")));
    route.byEthId = 77;  // Not looked at.
    EXPECT_EQ(0, NetAddOneIpRoute(1, &route));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(NetRoute, MetricGoesByTheRecordsNumber) {
    TNetIpRouteParam route = Route();
    EXPECT_EQ(0, NetModifyIpRouteMetric(&route));
    ExpectSent(276, RouteBytes("eth2"));
}

TEST_F(NetRoute, TheMaskIsAPrefixLength) {
    TNetIpRouteParam route = Route();
    route.dwDesIpMask = Word("255.255.0.0");
    EXPECT_EQ(1105, NetAddOneIpRoute(0, &route));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraAddOneIpRoute", "CheckRouteParam error!"));
    route.dwDesIpMask = 32;
    EXPECT_EQ(0, NetAddOneIpRoute(0, &route));
}

TEST_F(NetRoute, TheDaemonsNumberIsPassedOn) {
    TNetIpRouteParam route = Route();
    daemon_.Default(Answer::Code(7));
    EXPECT_EQ(7, NetAddOneIpRoute(0, &route));
    EXPECT_EQ(7, NetDelOneIpRoute(0, &route));
    EXPECT_EQ(7, NetModifyIpRouteMetric(&route));
    EXPECT_EQ(-1, NetSetDefGateway(0, 0));
}

TEST_F(NetRoute, NumbersThatAreNoInterface) {
    TNetIpRouteParam route = Route();
    route.byEthId = 3;
    u32 word = 4711;
    EXPECT_EQ(1201, NetSetDefGateway(3, 0));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "interface_name", "Eth:3 does not exist and max interface NO:2"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "NetSetDefGateway", "NetSetDefGateway interface_name failed"));
    EXPECT_EQ(1201, NetGetDefGateway(3, &word));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "NetGetDefGateway", "NetGetDefGateway interface_name failed"));
    EXPECT_EQ(1201, NetDelDefGateway(0xffffffff));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "NetDelDefGateway", "NetDelDefGateway interface_name failed"));
    EXPECT_EQ(1201, NetAddOneIpRoute(3, &route));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetAddOneIpRoute", "interface_name failed"));
    EXPECT_EQ(1201, NetDelOneIpRoute(3, &route));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetDelOneIpRoute", "interface_name failed"));
    EXPECT_EQ(1201, NetModifyIpRouteMetric(&route));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetModifyIpRouteMetric", "interface_name failed"));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(4711u, word);
}

TEST_F(NetRoute, NullArguments) {
    EXPECT_EQ(1105, NetAddOneIpRoute(0, nullptr));
    EXPECT_EQ(1105, NetDelOneIpRoute(0, nullptr));
    EXPECT_EQ(1105, NetModifyIpRouteMetric(nullptr));
    EXPECT_TRUE(log_.IsSilent());
    EXPECT_EQ(1105, NetGetDefGateway(9, nullptr));  // Before the number.
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetDefGateway", "pdwGateway is null"));
    EXPECT_EQ(1105, NetGetAllIpRoute(nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetGetAllIpRoute", "ptNetAllIpRouteInfo is null"));
    EXPECT_EQ(2, log_.Count(Kind::kError));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetRoute, ListingIsConvertedBack) {
    daemon_.Default(Answer::Body(Pack()
                                     .S32(0)
                                     .U32(2)
                                     .Add(RouteBytes("eth0"))
                                     .Text("eth1", 16)
                                     .Address(2, "172.16.0.0")
                                     .Address(2, "0.0.0.0")
                                     .U32(12)
                                     .U32(3)
                                     .FillTo(648)));
    TNetAllIpRouteInfo all;
    memset(&all, 0xa5, sizeof(all));
    EXPECT_EQ(0, NetGetAllIpRoute(&all));
    ExpectSent(275, Pack().U16(2));
    EXPECT_EQ(Pack()
                  .U32(2)
                  .U32(0xa5a5a5a5)
                  .In4("10.1.0.0")
                  .U32(16)
                  .In4("192.168.1.1")
                  .U32(99)
                  .U32(0xa5a5a5a5)
                  .In4("172.16.0.0")
                  .U32(12)
                  .U32(0)
                  .U32(3)
                  .Add(Bytes(8 * 20, 0xa5)),
              AsBytes(all));
}

TEST_F(NetRoute, TenRoutesAreTheMost) {
    for (u32 count : {10u, 11u, 0xffffffffu}) {
        Pack reply;
        reply.S32(0).U32(count);
        for (int i = 0; i < 10; i++) {
            reply.Add(RouteBytes("eth0"));
        }
        daemon_.Default(Answer::Body(reply));
        TNetAllIpRouteInfo all = {};
        EXPECT_EQ(0, NetGetAllIpRoute(&all));
        EXPECT_EQ(10u, all.dwIpRouteNum);
        EXPECT_EQ(99u, all.tNetIpRouteParam[9].dwRoutePri);
    }
}

TEST_F(NetRoute, AFailedListingLeavesTheRecord) {
    TNetAllIpRouteInfo all;
    memset(&all, 0xa5, sizeof(all));
    daemon_.Default(Answer::Body(Pack().S32(5).FillTo(648)));
    EXPECT_EQ(5, NetGetAllIpRoute(&all));
    EXPECT_EQ(Bytes(sizeof(all), 0xa5), AsBytes(all));
}

}  // namespace
}  // namespace vimbra::tests
