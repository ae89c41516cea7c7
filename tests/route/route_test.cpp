// Routes, tables, rules, gateways and the network priority.
#include <gtest/gtest.h>
#include <vimbra/log.h>
#include <vimbra/route.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kName16[] = "abcdefghijklmnop";
constexpr char kName17[] = "abcdefghijklmnopq";

TVimbraIpRouteParam Route() {
    TVimbraIpRouteParam route = {};
    strcpy(route.achIfaceName, "eth0");
    route.tDestIpNet = Address("10.1.0.0");
    route.tDestGateWay = Address("192.168.1.1");
    route.dwPrefix = 16;
    route.dwRoutePri = 100;
    return route;
}

TVimbraIpRouteParam Route6() {
    TVimbraIpRouteParam route = {};
    strcpy(route.achIfaceName, "eth1");
    route.tDestIpNet = Address("2001:db8::");
    route.tDestGateWay = Address("fe80::1");
    route.dwPrefix = 64;
    route.dwRoutePri = 7;
    return route;
}

Bytes RouteBytes() {
    return Pack()
        .Text("eth0", 16)
        .Address(2, "10.1.0.0")
        .Address(2, "192.168.1.1")
        .U32(16)
        .U32(100);
}

Bytes RouteBytes6() {
    return Pack().Text("eth1", 16).Address(10, "2001:db8::").Address(10, "fe80::1").U32(64).U32(7);
}

TVimbraIpRuleParam Rule() {
    TVimbraIpRuleParam rule = {};
    rule.tFromIpNet = Address("172.16.0.0");
    rule.dwPrefix = 12;
    rule.dwPref = 500;
    rule.dwTableId = 100;
    rule.dwFwmark = 0xfeed0001;
    return rule;
}

Bytes RuleBytes() {
    return Pack().Address(2, "172.16.0.0").U32(12).U32(500).U32(100).U32(0xfeed0001);
}

// A name in a buffer of the width that the gateway get reads.
struct Name {
    explicit Name(const char* text) { strncpy(bytes, text, sizeof(bytes)); }
    char bytes[32] = {};
};

class RouteTest : public AtDaemon {
 protected:
    void ExpectNothingSent() { EXPECT_EQ(0u, daemon_.Connections()); }

    // Exactly these errors, in this order.
    struct Error {
        const char* function;
        std::string text;
    };
    void ExpectErrors(const std::vector<Error>& errors) {
        std::vector<LogLine> found;
        for (const LogLine& line : log_.Syslog()) {
            if (line.kind == Kind::kError || line.kind == Kind::kPerror) {
                found.push_back(line);
            }
        }
        ASSERT_EQ(errors.size(), found.size()) << log_.Describe();
        for (size_t i = 0; i < errors.size(); i++) {
            EXPECT_EQ(Kind::kError, found[i].kind);
            EXPECT_EQ(errors[i].function, found[i].function);
            EXPECT_EQ(errors[i].text, found[i].text);
            EXPECT_TRUE(log_.Has(Kind::kError, errors[i].function, errors[i].text));
        }
        log_.Clear();
    }
};

// ---- What every call has in common -------------------------------------------------------------

// One exported call with arguments that pass its checks.
struct Call {
    const char* name;
    u32 type;
    const char* request;  // the request's function
    const char* told;     // whose failure the call's log line tells
    std::function<s32()> run;
};

void PrintTo(const Call& call, std::ostream* out) {
    *out << call.name;
}

std::vector<Call> PassingOn() {
    static TVimbraAllIpRouteInfo all;
    static TVimbraIpRouteParam route = Route();
    static TVimbraIpRuleParam rule = Rule();
    return {
        {"VimbraAddOneIpRoute", 267, "ApicOneRouteAdd", "ApicOneRouteAdd",
         [] { return VimbraAddOneIpRoute(&route); }},
        {"VimbraAddOneIpRouteToTable", 267, "ApicOneRouteAddToTable", "ApicOneRouteAdd",
         [] { return VimbraAddOneIpRouteToTable(&route, 5); }},
        {"VimbraDelOneIpRoute", 269, "ApicOneRouteDel", "ApicOneRouteDel",
         [] { return VimbraDelOneIpRoute(&route); }},
        {"VimbraDelOneIpRouteFromTable", 269, "ApicOneRouteDelFromTable", "ApicOneRouteAdd",
         [] { return VimbraDelOneIpRouteFromTable(&route, 5); }},
        {"VimbraModifyIpRouteMetric", 276, "ApicOneRouteMeticModify", "ApicOneRouteMeticModify",
         [] { return VimbraModifyIpRouteMetric(&route); }},
        {"VimbraAddRouteTable", 288, "ApicRouteTableAdd", "ApicOneRouteAdd",
         [] { return VimbraAddRouteTable(7); }},
        {"VimbraDelRouteTable", 289, "ApicRouteTableDel", "ApicOneRouteAdd",
         [] { return VimbraDelRouteTable(7); }},
        {"VimbraAddIpRule", 291, "ApicIpRuleAdd", "ApicIpRuleAdd",
         [] { return VimbraAddIpRule(&rule); }},
        {"VimbraDelIpRule", 292, "ApicIpRuleDel", "ApicIpRuleDel",
         [] { return VimbraDelIpRule(&rule); }},
        {"VimbraGetAllIpRoute", 275, "ApicAllRouteGet", "ApicAllRouteGet",
         [] { return VimbraGetAllIpRoute(2, &all); }},
    };
}

std::vector<Call> MinusOne() {
    static TVimbraAddr gateway = Address("10.0.0.1");
    static Name name("eth0");
    static TVimbraNetworkPrioInfo priorities;
    return {
        {"VimbraSetDefGateway", 271, "ApicGateWaySet", "ApicGateWaySet",
         [] { return VimbraSetDefGateway(name.bytes, Address("10.0.0.1")); }},
        {"VimbraSetDefGatewayToTable", 271, "ApicGateWaySetToTable", "ApicGateWaySet",
         [] { return VimbraSetDefGatewayToTable(name.bytes, Address("10.0.0.1"), 9); }},
        {"VimbraGetDefGateway", 272, "ApicGateWayGet", "ApicGateWayGet",
         [] { return VimbraGetDefGateway(name.bytes, 2, &gateway); }},
        {"VimbraGetDefGatewayFromTable", 272, "ApicGateWayGetFromTable", "ApicGateWayGet",
         [] { return VimbraGetDefGatewayFromTable(name.bytes, 2, &gateway, 9); }},
        {"VimbraDelDefGateway", 278, "ApicGateWayDel", "ApicGateWayDel",
         [] { return VimbraDelDefGateway(name.bytes, 2); }},
        {"VimbraDelDefGatewayFromTable", 278, "ApicGateWayDelFromTable", "ApicGateWayDel",
         [] { return VimbraDelDefGatewayFromTable(name.bytes, 2, 9); }},
        {"VimbraSetNetworkPriority", 284, "ApicPrioritySet", "ApicGateWaySet",
         [] { return VimbraSetNetworkPriority(&priorities); }},
    };
}

// The reply of the type, with a result code before what it carries.
Bytes ReplyOf(u32 type, s32 code) {
    const size_t size = type == 275 ? 648 : type == 272 ? 24 : 4;
    return Pack().S32(code).FillTo(size);
}

std::string Failed(const Call& call, int value) {
    return std::string(call.told) + " error : " + std::to_string(value) + "!";
}

bool IsListing(const Call& call) {
    return call.type == 275;
}

class PassOn : public RouteTest, public testing::WithParamInterface<Call> {};
class Flat : public RouteTest, public testing::WithParamInterface<Call> {};

std::string NameOf(const testing::TestParamInfo<Call>& info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Calls, PassOn, testing::ValuesIn(PassingOn()), NameOf);
INSTANTIATE_TEST_SUITE_P(Calls, Flat, testing::ValuesIn(MinusOne()), NameOf);

TEST_P(PassOn, TheDaemonsNumberIsTheResult) {
    const Call& call = GetParam();
    daemon_.On(call.type, Answer::Body(ReplyOf(call.type, 7)));
    EXPECT_EQ(7, call.run());
    ExpectErrors({{call.request, IsListing(call) ? "send and recv msg error, nErrid : 7!"
                                                 : "send and recv msg error num : 7!"},
                  {call.name, Failed(call, 7)}});
    daemon_.On(call.type, Answer::Body(ReplyOf(call.type, -22)));
    EXPECT_EQ(-22, call.run());
}

TEST_P(PassOn, TheTransportsResultIsTheResult) {
    const Call& call = GetParam();
    const int size = static_cast<int>(ReplyOf(call.type, 0).size()) + 12;
    daemon_.Default(Answer::Body(ReplyOf(call.type, 0)).Size(3));
    EXPECT_EQ(size, call.run());
    const std::string value = std::to_string(size);
    ExpectErrors({{"IpcApiSendAndRecv", "received message's head is error!"},
                  {call.request, IsListing(call) ? "send and recv msg error, nRet : " + value + "!"
                                                 : "send and recv msg return num : " + value + "!"},
                  {call.name, Failed(call, size)}});
}

TEST_P(PassOn, AnswersWithSuccess) {
    daemon_.Default(Answer::Body(ReplyOf(GetParam().type, 0)));
    EXPECT_EQ(0, GetParam().run());
    EXPECT_EQ(GetParam().type, Only().type);
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_P(PassOn, NoAnswerIsSuccess) {
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, GetParam().run());
    ExpectErrors({{"IpcApiSendAndRecv", "fail to receive message!"}});
}

TEST_P(Flat, TheDaemonsNumberIsOnlyLogged) {
    const Call& call = GetParam();
    daemon_.On(call.type, Answer::Body(ReplyOf(call.type, 7)));
    EXPECT_EQ(-1, call.run());
    ExpectErrors(
        {{call.request, "send and recv msg error num : 7!"}, {call.name, Failed(call, -1)}});
}

TEST_P(Flat, TheTransportsResultIsOnlyLogged) {
    const Call& call = GetParam();
    const int size = static_cast<int>(ReplyOf(call.type, 0).size()) + 12;
    daemon_.Default(Answer::Body(ReplyOf(call.type, 0)).Size(3));
    EXPECT_EQ(-1, call.run());
    ExpectErrors({{"IpcApiSendAndRecv", "received message's head is error!"},
                  {call.request, "send and recv msg return num : " + std::to_string(size) + "!"},
                  {call.name, Failed(call, -1)}});
}

TEST_P(Flat, AnswersWithSuccess) {
    daemon_.Default(Answer::Body(ReplyOf(GetParam().type, 0)));
    EXPECT_EQ(0, GetParam().run());
    EXPECT_EQ(GetParam().type, Only().type);
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_P(Flat, NoAnswerIsSuccess) {
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, GetParam().run());
    ExpectErrors({{"IpcApiSendAndRecv", "fail to receive message!"}});
}

TEST(RouteWithoutDaemon, FailsTheCall) {
    Capture log;
    TVimbraIpRouteParam route = Route();
    EXPECT_EQ(-1, VimbraAddOneIpRoute(&route));
    EXPECT_TRUE(log.Has(Kind::kPerror, "MakeAddrClient", "connect error"));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicOneRouteAdd", "send and recv msg return num : -1!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraAddOneIpRoute", "ApicOneRouteAdd error : -1!"));
    EXPECT_EQ(-1, VimbraDelDefGateway(nullptr, 2));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicGateWayDel", "send and recv msg return num : -1!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDelDefGateway", "ApicGateWayDel error : -1!"));
}

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

// ---- Gateways ----------------------------------------------------------------------------------

TEST_F(RouteTest, GatewaySet) {
    Name name("eth0");
    EXPECT_EQ(0, VimbraSetDefGateway(name.bytes, Address("192.168.1.1")));
    ExpectSent(271, Pack().Text("eth0", 16).Address(2, "192.168.1.1"));
    EXPECT_EQ(0, VimbraSetDefGateway(name.bytes, Address("fe80::1")));
    ExpectSent(271, Pack().Text("eth0", 16).Address(10, "fe80::1"));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraSetDefGateway", "the pchIfaceName is eth0"));
}

TEST_F(RouteTest, GatewaySetWithoutName) {
    EXPECT_EQ(0, VimbraSetDefGateway(nullptr, Address("192.168.1.1")));
    ExpectSent(271, Pack().Zeros(16).Address(2, "192.168.1.1"));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraSetDefGateway", "the pchIfaceName is NULL!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(nullptr, Address("192.168.1.1"), 8));
    ExpectSent(271, Pack().Zeros(16).Address(2, "192.168.1.1").U32(8));
}

TEST_F(RouteTest, GatewaySetToTable) {
    Name name("eth0");
    for (u32 table : {1u, 254u}) {
        EXPECT_EQ(0, VimbraSetDefGatewayToTable(name.bytes, Address("192.168.1.1"), table));
        ExpectSent(271, Pack().Text("eth0", 16).Address(2, "192.168.1.1").U32(table));
    }
}

TEST_F(RouteTest, GatewaySetTakesItsNameUpToTheTerminator) {
    Name name("eth0");
    memset(name.bytes + 5, 'x', 11);
    EXPECT_EQ(0, VimbraSetDefGateway(name.bytes, Address("192.168.1.1")));
    ExpectSent(271, Pack().Text("eth0", 16).Address(2, "192.168.1.1"));
}

TEST_F(RouteTest, GatewayGet) {
    Name name("eth0");
    daemon_.Default(Answer::Body(Pack().S32(0).Address(10, "fe80::7")));
    TVimbraAddr gateway;
    memset(&gateway, 0xa5, sizeof(gateway));
    EXPECT_EQ(0, VimbraGetDefGateway(name.bytes, 10, &gateway));
    ExpectSent(272, Pack().U16(10).Text("eth0", 16));
    EXPECT_EQ(Pack().Address(10, "fe80::7"), AsBytes(gateway));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraGetDefGateway", "the pchIfaceName is eth0"));
    EXPECT_TRUE(Said(log_, kInfoPriority, "VimbraGetDefGateway", "wSinFamily is 10!"));
    for (u32 table : {1u, 254u}) {
        EXPECT_EQ(0, VimbraGetDefGatewayFromTable(name.bytes, 2, &gateway, table));
        ExpectSent(272, Pack().U16(2).Text("eth0", 16).U32(table));
    }
    EXPECT_EQ(0, VimbraGetDefGateway(nullptr, 2, &gateway));
    ExpectSent(272, Pack().U16(2).Zeros(16));
}

TEST_F(RouteTest, GatewayGetSendsAll16BytesOfTheBuffer) {
    daemon_.Default(Answer::Body(Pack().S32(0).Zeros(20)));
    Name name("eth0");
    memset(name.bytes + 5, 'x', 11);
    TVimbraAddr gateway;
    EXPECT_EQ(0, VimbraGetDefGateway(name.bytes, 2, &gateway));
    ExpectSent(272, Pack().U16(2).Text("eth0", 5).Text("xxxxxxxxxxx", 11));
}

TEST_F(RouteTest, AFailedGatewayGetLeavesTheRecord) {
    Name name("eth0");
    TVimbraAddr gateway;
    memset(&gateway, 0xa5, sizeof(gateway));
    daemon_.Default(Answer::Body(Pack().S32(7).Address(2, "1.2.3.4")));
    EXPECT_EQ(-1, VimbraGetDefGateway(name.bytes, 2, &gateway));
    EXPECT_EQ(-1, VimbraGetDefGatewayFromTable(name.bytes, 2, &gateway, 1));
    EXPECT_EQ(Bytes(20, 0xa5), AsBytes(gateway));
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, VimbraGetDefGateway(name.bytes, 2, &gateway));
    EXPECT_EQ(Bytes(20, 0), AsBytes(gateway));
}

TEST_F(RouteTest, GatewayDel) {
    Name name("eth0");
    EXPECT_EQ(0, VimbraDelDefGateway(name.bytes, 2));
    ExpectSent(278, Pack().U16(2).Text("eth0", 16));
    EXPECT_TRUE(Said(log_, kDebugPriority, "VimbraDelDefGateway", "the pchIfaceName is eth0"));
    EXPECT_TRUE(Said(log_, kInfoPriority, "VimbraDelDefGateway", "wSinFamily is 2!"));
    for (u32 table : {1u, 254u}) {
        EXPECT_EQ(0, VimbraDelDefGatewayFromTable(name.bytes, 10, table));
        ExpectSent(278, Pack().U16(10).Text("eth0", 16).U32(table));
    }
    EXPECT_EQ(0, VimbraDelDefGateway(nullptr, 10));
    ExpectSent(278, Pack().U16(10).Zeros(16));
    memset(name.bytes + 5, 'x', 11);
    EXPECT_EQ(0, VimbraDelDefGateway(name.bytes, 2));
    ExpectSent(278, Pack().U16(2).Text("eth0", 16));
}

struct GatewayCall {
    const char* name;
    enum { kSet, kGet, kDel } act;
    bool inTable;
    // A null gateway is the record where there is one.
    s32 (*run)(char* iface, u16 family, TVimbraAddr* gateway, u32 table);
};

void PrintTo(const GatewayCall& call, std::ostream* out) {
    *out << call.name;
}

TVimbraAddr WithFamily(u16 family) {
    TVimbraAddr addr = Address("10.0.0.1");
    addr.wSinFamily = family;
    return addr;
}

const GatewayCall kGatewayCalls[] = {
    {"VimbraSetDefGateway", GatewayCall::kSet, false,
     [](char* iface, u16 family, TVimbraAddr*, u32) {
         return VimbraSetDefGateway(iface, WithFamily(family));
     }},
    {"VimbraSetDefGatewayToTable", GatewayCall::kSet, true,
     [](char* iface, u16 family, TVimbraAddr*, u32 table) {
         return VimbraSetDefGatewayToTable(iface, WithFamily(family), table);
     }},
    {"VimbraGetDefGateway", GatewayCall::kGet, false,
     [](char* iface, u16 family, TVimbraAddr* gateway, u32) {
         return VimbraGetDefGateway(iface, family, gateway);
     }},
    {"VimbraGetDefGatewayFromTable", GatewayCall::kGet, true,
     [](char* iface, u16 family, TVimbraAddr* gateway, u32 table) {
         return VimbraGetDefGatewayFromTable(iface, family, gateway, table);
     }},
    {"VimbraDelDefGateway", GatewayCall::kDel, false,
     [](char* iface, u16 family, TVimbraAddr*, u32) { return VimbraDelDefGateway(iface, family); }},
    {"VimbraDelDefGatewayFromTable", GatewayCall::kDel, true,
     [](char* iface, u16 family, TVimbraAddr*, u32 table) {
         return VimbraDelDefGatewayFromTable(iface, family, table);
     }},
};

class GatewayCheck : public RouteTest, public testing::WithParamInterface<GatewayCall> {
 protected:
    void SetUp() override {
        if (GetParam().act == GatewayCall::kGet) {
            daemon_.Default(Answer::Body(Pack().S32(0).Zeros(20)));
        }
    }

    s32 Run(const char* iface, u16 family, u32 table) {
        Name name(iface);
        return GetParam().run(name.bytes, family, &gateway_, table);
    }

    void ExpectRefused(const std::string& text) {
        ExpectNothingSent();
        ExpectErrors({{GetParam().name, text}});
    }

    TVimbraAddr gateway_ = {};
};
INSTANTIATE_TEST_SUITE_P(Calls, GatewayCheck, testing::ValuesIn(kGatewayCalls),
                         [](const auto& call) { return call.param.name; });

TEST_P(GatewayCheck, TheNameComesFirst) {
    Name name(kName17);
    EXPECT_EQ(1105, GetParam().run(name.bytes, 99, nullptr, 0));
    ExpectRefused("pchIfaceName is more than VIMBRA_IFACE_NAME_LEN!");
    EXPECT_EQ(0, Run(kName16, 2, 1));
    const size_t at = GetParam().act == GatewayCall::kSet ? 0 : 2;
    EXPECT_EQ(Pack().Text(kName16, 16), Only().body.Slice(at, 16));
    EXPECT_TRUE(
        Said(log_, kDebugPriority, GetParam().name, std::string("the pchIfaceName is ") + kName16));
}

TEST_P(GatewayCheck, AnEmptyNameIsAName) {
    EXPECT_EQ(0, Run("", 2, 1));
    EXPECT_TRUE(Said(log_, kDebugPriority, GetParam().name, "the pchIfaceName is "));
}

TEST_P(GatewayCheck, ThenTheRecord) {
    if (GetParam().act != GatewayCall::kGet) {
        return;  // The others have none.
    }
    EXPECT_EQ(1105, GetParam().run(nullptr, 99, nullptr, 0));
    ExpectRefused("ptGateWay is NULL!");
}

TEST_P(GatewayCheck, ThenTheFamily) {
    for (u16 family : {0, 3, 11, 65535}) {
        EXPECT_EQ(1105, Run("eth0", family, 0));
        const std::string text = "wSinFamily " + std::to_string(family) + " is invalid!";
        ExpectRefused(GetParam().act == GatewayCall::kSet ? "tGateWay." + text : text);
    }
}

TEST_P(GatewayCheck, ThenTheTable) {
    if (!GetParam().inTable) {
        EXPECT_EQ(0, Run("eth0", 2, 0));
        return;
    }
    EXPECT_EQ(1105, Run("eth0", 2, 0));
    ExpectRefused("table id 0 is invalid");
    EXPECT_EQ(1105, Run("eth0", 2, 255));
    ExpectRefused("table id 255 is invalid");
    EXPECT_EQ(1105, Run("eth0", 2, 0xffffffff));
    if (GetParam().act != GatewayCall::kSet) {
        EXPECT_TRUE(Said(log_, kInfoPriority, GetParam().name, "wSinFamily is 2!"));
    }
    ExpectRefused("table id -1 is invalid");
    EXPECT_EQ(0, Run("eth0", 2, 1));
    EXPECT_EQ(0, Run("eth0", 2, 254));
}

// ---- Tables, rules, priority -------------------------------------------------------------------

TEST_F(RouteTest, TableNumbers) {
    for (u32 table : {1u, 252u}) {
        EXPECT_EQ(0, VimbraAddRouteTable(table));
        ExpectSent(288, Pack().U32(table));
        EXPECT_EQ(0, VimbraDelRouteTable(table));
        ExpectSent(289, Pack().U32(table));
    }
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(RouteTest, RefusedTableNumbers) {
    for (u32 table : {0u, 253u, 255u, 0xffffffffu}) {
        EXPECT_EQ(1105, VimbraAddRouteTable(table));
        ExpectErrors({{"VimbraAddRouteTable", "CheckRouteParam error!dwTable = " +
                                                  std::to_string(static_cast<int>(table))}});
        EXPECT_EQ(1105, VimbraDelRouteTable(table));
        ExpectErrors({{"VimbraDelRouteTable", "CheckRouteParam error!"}});
    }
    ExpectNothingSent();
}

TEST_F(RouteTest, RulesAreSentBare) {
    TVimbraIpRuleParam rule = Rule();
    EXPECT_EQ(0, VimbraAddIpRule(&rule));
    ExpectSent(291, RuleBytes());
    EXPECT_EQ(0, VimbraDelIpRule(&rule));
    ExpectSent(292, RuleBytes());
    EXPECT_TRUE(log_.IsSilent());
}

struct RuleCall {
    const char* name;
    s32 (*run)(TVimbraIpRuleParam*);
};

void PrintTo(const RuleCall& call, std::ostream* out) {
    *out << call.name;
}
const RuleCall kRuleCalls[] = {{"VimbraAddIpRule", VimbraAddIpRule},
                               {"VimbraDelIpRule", VimbraDelIpRule}};

class RuleCheck : public RouteTest, public testing::WithParamInterface<RuleCall> {
 protected:
    void ExpectRefused(TVimbraIpRuleParam rule, const std::string& text) {
        EXPECT_EQ(1105, GetParam().run(&rule));
        ExpectNothingSent();
        ExpectErrors({{"CheckIpRuleParam", text}, {GetParam().name, "CheckIpRuleParam error!"}});
    }
};
INSTANTIATE_TEST_SUITE_P(Calls, RuleCheck, testing::ValuesIn(kRuleCalls),
                         [](const auto& call) { return call.param.name; });

TEST_P(RuleCheck, TableThenFamilyThenPriority) {
    TVimbraIpRuleParam rule = Rule();
    rule.tFromIpNet = Address("2001:db8::");
    rule.dwPref = 32766;
    rule.dwTableId = 256;
    ExpectRefused(rule, "tDestIpNet and tDestGateWay sinFamily is differ");
    rule.dwTableId = 0xffffffff;
    ExpectRefused(rule, "tDestIpNet and tDestGateWay sinFamily is differ");
    rule.dwTableId = 255;
    ExpectRefused(rule, "sinFamily10 is not support ");
    rule.tFromIpNet.wSinFamily = 11;
    ExpectRefused(rule, "sinFamily11 is not support ");
    rule.tFromIpNet = Address("10.0.0.0");
    ExpectRefused(rule, "pref 32766 is not support ");
    rule.dwPref = 0x80000000;
    ExpectRefused(rule, "pref -2147483648 is not support ");
}

TEST_P(RuleCheck, TheBoundsThemselvesPass) {
    TVimbraIpRuleParam rule = Rule();
    rule.dwPref = 32765;
    rule.dwTableId = 255;
    rule.dwPrefix = 4711;  // Not looked at.
    EXPECT_EQ(0, GetParam().run(&rule));
    rule.dwPref = 0;
    rule.dwTableId = 0;
    EXPECT_EQ(0, GetParam().run(&rule));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_P(RuleCheck, ANullRuleIsRefusedWithoutAWord) {
    EXPECT_EQ(1105, GetParam().run(nullptr));
    ExpectNothingSent();
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(RouteTest, RulesAreNotListed) {
    EXPECT_EQ(0, VimbraGetAllIpRule());
    ExpectNothingSent();
    EXPECT_TRUE(log_.IsSilent());
}

Bytes PriorityBytes() {
    return Pack().U32(2).Text("eth1", 16).U32(1).Text("wlan0", 16).U32(5).FillTo(204);
}

TEST_F(RouteTest, PriorityIsSentAsItIs) {
    TVimbraNetworkPrioInfo list = {};
    list.dwNetNum = 2;
    strcpy(list.tNetPrioParam[0].achIfaceName, "eth1");
    list.tNetPrioParam[0].ePrio = VIMBRA_NETWORK_PRIORITY_1;
    strcpy(list.tNetPrioParam[1].achIfaceName, "wlan0");
    list.tNetPrioParam[1].ePrio = VIMBRA_NETWORK_PRIORITY_5;
    EXPECT_EQ(0, VimbraSetNetworkPriority(&list));
    ExpectSent(284, PriorityBytes());
    // Neither count nor values are checked.
    memset(&list, 0xff, sizeof(list));
    EXPECT_EQ(0, VimbraSetNetworkPriority(&list));
    ExpectSent(284, Bytes(204, 0xff));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(RouteTest, PriorityIsReadWithoutResultCode) {
    TVimbraNetworkPrioInfo list = {};
    daemon_.Default(Answer::Body(PriorityBytes()));
    EXPECT_EQ(0, VimbraGetNetworkPriority(&list));
    ExpectSent(285, {});
    EXPECT_EQ(PriorityBytes(), AsBytes(list));
    // The first word is the count and no refusal, whatever it is.
    daemon_.Default(Answer::Body(Bytes(204, 0xff)));
    EXPECT_EQ(0, VimbraGetNetworkPriority(&list));
    EXPECT_EQ(Bytes(204, 0xff), AsBytes(list));
    EXPECT_TRUE(log_.IsSilent());
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, VimbraGetNetworkPriority(&list));
    EXPECT_EQ(Bytes(204, 0), AsBytes(list));
}

TEST_F(RouteTest, AnswersOfTheWrongSizeFailThePriority) {
    TVimbraNetworkPrioInfo list;
    memset(&list, 0xa5, sizeof(list));
    EXPECT_EQ(-1, VimbraGetNetworkPriority(&list));  // Four bytes of success.
    ExpectErrors({{"IpcApiSendAndRecv", "fail to receive message!"},
                  {"ApicPriorityGet", "send and recv msg return num : 16!"},
                  {"VimbraGetNetworkPriority", "ApicGateWaySet error : -1!"}});
    EXPECT_EQ(Bytes(204, 0xa5), AsBytes(list));
}

TEST_F(RouteTest, PriorityRefusesNull) {
    EXPECT_EQ(1105, VimbraSetNetworkPriority(nullptr));
    ExpectErrors({{"VimbraSetNetworkPriority", "params is invalid!"}});
    EXPECT_EQ(1105, VimbraGetNetworkPriority(nullptr));
    ExpectErrors({{"VimbraGetNetworkPriority", "params is invalid!"}});
    ExpectNothingSent();
}

// Print lines of the information level stay, debugging goes.
TEST_F(RouteTest, LevelsOfTheGatewaysLines) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_INFO);
    EXPECT_EQ(0, VimbraDelDefGateway(nullptr, 2));
    EXPECT_EQ(1, log_.Count(Kind::kPrint));
    EXPECT_TRUE(Said(log_, kInfoPriority, "VimbraDelDefGateway", "wSinFamily is 2!"));
}

}  // namespace
}  // namespace vimbra::tests
