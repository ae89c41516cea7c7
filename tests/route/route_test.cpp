// Routes and their listing.
#include "route.hpp"

#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- Routes ------------------------------------------------------------------------------------

TEST_F(RouteTest, AddIsARouteWithItsNameBefore) {
    TVimbraIpRouteParam route = Route();
    EXPECT_EQ(0, VimbraAddOneIpRoute(&route));
    ExpectSent(267, Pack().Text("eth0", 16).Add(RouteBytes()));
    route = Route6();
    EXPECT_EQ(0, VimbraAddOneIpRoute(&route));
    ExpectSent(267, Pack().Text("eth1", 16).Add(RouteBytes6()));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(RouteTest, AddToTableHasTheTableBehind) {
    TVimbraIpRouteParam route = Route();
    for (u32 table : {0u, 1u, 255u, 1000u, 0xffffffffu}) {
        EXPECT_EQ(0, VimbraAddOneIpRouteToTable(&route, table));
        ExpectSent(267, Pack().Text("eth0", 16).Add(RouteBytes()).U32(table));
    }
}

TEST_F(RouteTest, DelIsARouteWithItsNameBefore) {
    TVimbraIpRouteParam route = Route();
    EXPECT_EQ(0, VimbraDelOneIpRoute(&route));
    ExpectSent(269, Pack().Text("eth0", 16).Add(RouteBytes()));
}

TEST_F(RouteTest, DelFromTableHasTheTableBehind) {
    TVimbraIpRouteParam route = Route();
    for (u32 table : {0u, 1000u}) {
        EXPECT_EQ(0, VimbraDelOneIpRouteFromTable(&route, table));
        ExpectSent(269, Pack().Text("eth0", 16).Add(RouteBytes()).U32(table));
    }
}

TEST_F(RouteTest, MetricIsABareRoute) {
    TVimbraIpRouteParam route = Route();
    EXPECT_EQ(0, VimbraModifyIpRouteMetric(&route));
    ExpectSent(276, RouteBytes());
}

TEST_F(RouteTest, ANameOf16CharactersFillsBothFields) {
    TVimbraIpRouteParam route = Route();
    memcpy(route.achIfaceName, kName16, 16);
    const Bytes record =
        Pack().Text(kName16, 16).Address(2, "10.1.0.0").Address(2, "192.168.1.1").U32(16).U32(100);
    EXPECT_EQ(0, VimbraAddOneIpRouteToTable(&route, 3));
    ExpectSent(267, Pack().Text(kName16, 16).Add(record).U32(3));
}

TEST_F(RouteTest, WhatFollowsTheNameStaysOutOfTheNameField) {
    TVimbraIpRouteParam route = Route();
    memset(route.achIfaceName, 'x', sizeof(route.achIfaceName));
    strcpy(route.achIfaceName, "eth0");
    EXPECT_EQ(0, VimbraAddOneIpRoute(&route));
    const Request request = Only();
    EXPECT_EQ(Pack().Text("eth0", 16), request.body.Slice(0, 16));
    // The record itself goes over as it is.
    EXPECT_EQ(AsBytes(route), request.body.Slice(16, 64));
}

TEST_F(RouteTest, TheNameIsNotExaminedAndAZeroGatewayIsAllowed) {
    TVimbraIpRouteParam route = Route();
    memset(route.achIfaceName, 0, sizeof(route.achIfaceName));
    route.tDestGateWay = Address("0.0.0.0");
    EXPECT_EQ(0, VimbraAddOneIpRoute(&route));
    EXPECT_EQ(Bytes(16, 0), Only().body.Slice(0, 16));
}

struct RouteCall {
    const char* name;
    s32 (*run)(TVimbraIpRouteParam*);
};

void PrintTo(const RouteCall& call, std::ostream* out) {
    *out << call.name;
}

const RouteCall kRouteCalls[] = {
    {"VimbraAddOneIpRoute", VimbraAddOneIpRoute},
    {"VimbraAddOneIpRouteToTable",
     [](TVimbraIpRouteParam* route) { return VimbraAddOneIpRouteToTable(route, 1); }},
    {"VimbraDelOneIpRoute", VimbraDelOneIpRoute},
    {"VimbraDelOneIpRouteFromTable",
     [](TVimbraIpRouteParam* route) { return VimbraDelOneIpRouteFromTable(route, 1); }},
    {"VimbraModifyIpRouteMetric", VimbraModifyIpRouteMetric},
};

class RouteCheck : public RouteTest, public testing::WithParamInterface<RouteCall> {
 protected:
    void ExpectRefused(TVimbraIpRouteParam route, const std::string& text) {
        EXPECT_EQ(1105, GetParam().run(&route));
        ExpectNothingSent();
        ExpectErrors({{"CheckRouteParam", text}, {GetParam().name, "CheckRouteParam error!"}});
    }

    void ExpectTaken(TVimbraIpRouteParam route) {
        EXPECT_EQ(0, GetParam().run(&route));
        EXPECT_TRUE(log_.IsSilent());
    }
};
INSTANTIATE_TEST_SUITE_P(Calls, RouteCheck, testing::ValuesIn(kRouteCalls),
                         [](const auto& call) { return call.param.name; });

TEST_P(RouteCheck, FamiliesThatDifferComeFirst) {
    TVimbraIpRouteParam route = Route();
    route.tDestGateWay = Address("fe80::1");
    ExpectRefused(route, "tDestIpNet and tDestGateWay sinFamily is differ");
    // Everything else wrong as well.
    route.tDestIpNet.wSinFamily = 99;
    route.dwRoutePri = 256;
    route.dwPrefix = 200;
    ExpectRefused(route, "tDestIpNet and tDestGateWay sinFamily is differ");
}

TEST_P(RouteCheck, OnlyIpv4AndIpv6) {
    for (u16 family : {0, 1, 3, 9, 11, 65535}) {
        TVimbraIpRouteParam route = Route();
        route.tDestIpNet.wSinFamily = family;
        route.tDestGateWay.wSinFamily = family;
        route.dwRoutePri = 256;
        route.dwPrefix = 200;
        ExpectRefused(route, "sinFamily" + std::to_string(family) + " is not support ");
    }
}

TEST_P(RouteCheck, MetricBelow256) {
    TVimbraIpRouteParam route = Route();
    route.dwPrefix = 33;
    route.dwRoutePri = 256;
    ExpectRefused(route, "dwRoutePri256 is not support ");
    route.dwRoutePri = 0xffffffff;
    ExpectRefused(route, "dwRoutePri-1 is not support ");
    route = Route();
    route.dwRoutePri = 255;
    ExpectTaken(route);
    route.dwRoutePri = 0;
    ExpectTaken(route);
}

TEST_P(RouteCheck, PrefixUpToTheAddressWidth) {
    TVimbraIpRouteParam route = Route();
    route.dwPrefix = 33;
    ExpectRefused(route, "ptNetIpRouteParam->dwPrefix 33 is max 32 ");
    route.dwPrefix = 0xffffffff;
    ExpectRefused(route, "ptNetIpRouteParam->dwPrefix -1 is max 32 ");
    TVimbraIpRouteParam route6 = Route6();
    route6.dwPrefix = 129;
    ExpectRefused(route6, "ptNetIpRouteParam->dwPrefix 129 is max 128 ");
    route.dwPrefix = 32;
    ExpectTaken(route);
    route.dwPrefix = 0;
    ExpectTaken(route);
    route6.dwPrefix = 128;
    ExpectTaken(route6);
    route6.dwPrefix = 0;
    ExpectTaken(route6);
}

TEST_P(RouteCheck, ANullRecordIsRefused) {
    EXPECT_EQ(1105, GetParam().run(nullptr));
    ExpectNothingSent();
    if (std::string(GetParam().name) == "VimbraAddOneIpRoute") {
        ExpectErrors({{"VimbraAddOneIpRoute", "Param error!"}});
    } else {
        EXPECT_TRUE(log_.IsSilent());
    }
}

// ---- Listing -----------------------------------------------------------------------------------

TEST_F(RouteTest, ListingIsAskedForByFamily) {
    TVimbraAllIpRouteInfo all;
    daemon_.Default(Answer::Body(Pack().S32(0).FillTo(648)));
    for (u16 family : {2, 10, 11}) {
        EXPECT_EQ(0, VimbraGetAllIpRoute(family, &all));
        ExpectSent(275, Pack().U16(family));
    }
}

TEST_F(RouteTest, TheWholeListingIsCopied) {
    Pack reply;
    reply.S32(0).U32(2).Add(RouteBytes()).Add(RouteBytes6()).FillTo(648);
    daemon_.Default(Answer::Body(reply));
    TVimbraAllIpRouteInfo all;
    memset(&all, 0xa5, sizeof(all));
    EXPECT_EQ(0, VimbraGetAllIpRoute(11, &all));
    EXPECT_EQ(reply.Get().Slice(4, 644), AsBytes(all));
    EXPECT_EQ(2u, all.dwIpRouteNum);
    EXPECT_EQ(AsBytes(Route6()), AsBytes(all.tNetIpRouteParam[1]));
}

TEST_F(RouteTest, TenRoutesAreTheMost) {
    TVimbraAllIpRouteInfo all = {};
    Pack ten;
    for (int i = 0; i < 10; i++) {
        ten.Add(RouteBytes());
    }
    for (u32 count : {10u, 11u, 0xffffffffu}) {
        daemon_.Default(Answer::Body(Pack().S32(0).U32(count).Add(ten)));
        EXPECT_EQ(0, VimbraGetAllIpRoute(2, &all));
        EXPECT_EQ(10u, all.dwIpRouteNum);
        EXPECT_EQ(ten, Bytes(AsBytes(all).Slice(4, 640)));
    }
}

TEST_F(RouteTest, AFailedListingLeavesTheRecord) {
    TVimbraAllIpRouteInfo all;
    memset(&all, 0xa5, sizeof(all));
    daemon_.Default(Answer::Body(Pack().S32(5).FillTo(648)));
    EXPECT_EQ(5, VimbraGetAllIpRoute(2, &all));
    daemon_.Default(Answer::Code(0));
    EXPECT_EQ(16, VimbraGetAllIpRoute(2, &all));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicAllRouteGet", "send and recv msg error, nRet : 16!"));
    EXPECT_EQ(Bytes(644, 0xa5), AsBytes(all));
}

TEST_F(RouteTest, AnUnansweredListingIsEmpty) {
    TVimbraAllIpRouteInfo all;
    memset(&all, 0xa5, sizeof(all));
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, VimbraGetAllIpRoute(2, &all));
    EXPECT_EQ(Bytes(644, 0), AsBytes(all));
}

TEST_F(RouteTest, ListingChecksTheRecordThenTheFamily) {
    EXPECT_EQ(1105, VimbraGetAllIpRoute(3, nullptr));
    ExpectErrors({{"VimbraGetAllIpRoute", "ptNetAllIpRouteInfo is NULL!"}});
    TVimbraAllIpRouteInfo all;
    memset(&all, 0xa5, sizeof(all));
    for (u16 family : {0, 3, 9, 12, 65535}) {
        EXPECT_EQ(1105, VimbraGetAllIpRoute(family, &all));
        ExpectErrors(
            {{"VimbraGetAllIpRoute", "the wSinFamily " + std::to_string(family) + " is invalid!"}});
    }
    EXPECT_EQ(Bytes(644, 0xa5), AsBytes(all));
    ExpectNothingSent();
}

}  // namespace
}  // namespace vimbra::tests
