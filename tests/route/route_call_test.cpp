// What all calls for routes, gateways and rules have in common: how a failure comes back.
#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <functional>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "route.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
