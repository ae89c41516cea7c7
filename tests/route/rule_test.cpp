// Tables, rules and the network priority.
#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "route.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
