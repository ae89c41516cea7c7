// From inside: no memory for a request, and what the requests themselves refuse.
#include <gtest/gtest.h>
#include <vimbra/net_ip.h>
#include <vimbra/net_route.h>
#include <vimbra/process.h>
#include <vimbra/route.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/memory.hpp"
#include "api/api_route/api_route/api_route.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TVimbraAddr Gateway() {
    TVimbraAddr addr = {};
    addr.wSinFamily = 2;
    return addr;
}

TVimbraIpRouteParam g_route = [] {
    TVimbraIpRouteParam route = {};
    route.tDestIpNet = Gateway();
    route.tDestGateWay = Gateway();
    return route;
}();
TVimbraIpRuleParam g_rule = [] {
    TVimbraIpRuleParam rule = {};
    rule.tFromIpNet = Gateway();
    return rule;
}();
TVimbraAllIpRouteInfo g_all;
TVimbraAddr g_gateway;
TVimbraNetworkPrioInfo g_priorities;
TNetEthParam g_param;
TNetEthParamAll g_params;
api_ipaddr_show_info g_report;
char g_name[16] = "eth0";

struct Operation {
    const char* name;
    const char* function;  // which tells it
    const char* step;
    int given;  // blocks before the one that is refused
    std::function<s32()> run;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

constexpr char kBody[] = "XMALLOC error";

const Operation kOperations[] = {
    {"RouteAdd", "ApicOneRouteAdd", kBody, 0, [] { return VimbraAddOneIpRoute(&g_route); }},
    {"RouteAddToTable", "ApicOneRouteAddToTable", kBody, 0,
     [] { return VimbraAddOneIpRouteToTable(&g_route, 1); }},
    {"RouteDel", "ApicOneRouteDel", kBody, 0, [] { return VimbraDelOneIpRoute(&g_route); }},
    {"RouteDelFromTable", "ApicOneRouteDelFromTable", kBody, 0,
     [] { return VimbraDelOneIpRouteFromTable(&g_route, 1); }},
    {"Metric", "ApicOneRouteMeticModify", kBody, 0,
     [] { return VimbraModifyIpRouteMetric(&g_route); }},
    {"Listing", "ApicAllRouteGet", kBody, 0, [] { return VimbraGetAllIpRoute(2, &g_all); }},
    {"TableAdd", "ApicRouteTableAdd", kBody, 0, [] { return VimbraAddRouteTable(1); }},
    {"TableDel", "ApicRouteTableDel", kBody, 0, [] { return VimbraDelRouteTable(1); }},
    {"RuleAdd", "ApicIpRuleAdd", kBody, 0, [] { return VimbraAddIpRule(&g_rule); }},
    {"RuleDel", "ApicIpRuleDel", kBody, 0, [] { return VimbraDelIpRule(&g_rule); }},
    {"GatewaySet", "ApicGateWaySet", kBody, 0,
     [] { return VimbraSetDefGateway(g_name, Gateway()); }},
    {"GatewaySetToTable", "ApicGateWaySetToTable", kBody, 0,
     [] { return VimbraSetDefGatewayToTable(g_name, Gateway(), 1); }},
    {"GatewayGet", "ApicGateWayGet", kBody, 0,
     [] { return VimbraGetDefGateway(g_name, 2, &g_gateway); }},
    {"GatewayGetFromTable", "ApicGateWayGetFromTable", kBody, 0,
     [] { return VimbraGetDefGatewayFromTable(g_name, 2, &g_gateway, 1); }},
    {"GatewayDel", "ApicGateWayDel", kBody, 0, [] { return VimbraDelDefGateway(g_name, 2); }},
    {"GatewayDelFromTable", "ApicGateWayDelFromTable", kBody, 0,
     [] { return VimbraDelDefGatewayFromTable(g_name, 2, 1); }},
    {"PrioritySet", "ApicPrioritySet", kBody, 0,
     [] { return VimbraSetNetworkPriority(&g_priorities); }},
    {"PriorityGet", "IpcApiSendAndRecv", kBody, 0,
     [] { return VimbraGetNetworkPriority(&g_priorities); }},
    {"Report", "apic_ipaddr_show_filter", kBody, 0,
     [] { return apic_ipaddr_show_filter(g_name, &g_report); }},
    {"EthParam", "NetGetEthParam", "malloc error:", 0, [] { return NetGetEthParam(0, &g_param); }},
    {"EthParamAll", "NetGetEthParamAll", "malloc error:", 0,
     [] { return NetGetEthParamAll(0, &g_params); }},
    {"EthParamReport", "apic_ipaddr_show_filter", kBody, 1,
     [] { return NetGetEthParam(0, &g_param); }},
    {"Command", "ExecCmd", "malloc error!", 0,
     [] {
         char command[] = "true";
         return ExecCmd(command, sizeof(command), 0);
     }},
};

class NoMemory : public testing::TestWithParam<Operation> {};
INSTANTIATE_TEST_SUITE_P(Operations, NoMemory, testing::ValuesIn(kOperations),
                         [](const auto& operation) { return operation.param.name; });

TEST_P(NoMemory, FailsTheCallBeforeAnythingIsSent) {
    Capture log;
    ScriptedDaemon daemon;
    t_failAt = GetParam().given + 1;
    const s32 result = GetParam().run();
    const int left = t_failAt;
    t_failAt = 0;
    EXPECT_EQ(0, left);  // The refusal came to pass.
    EXPECT_EQ(-1, result);
    EXPECT_TRUE(log.Has(Kind::kPerror, GetParam().function, GetParam().step));
    EXPECT_EQ(1, log.Count(Kind::kPerror));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(RouteRequests, RefuseNull) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(-1, ApicIpRuleAdd(nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicIpRuleAdd", "ptRule is NULL"));
    EXPECT_EQ(-1, ApicIpRuleDel(nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicIpRuleDel", "ptRule is NULL"));
    EXPECT_EQ(-1, ApicPrioritySet(nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicPrioritySet", "ptConfig is NULL"));
    EXPECT_EQ(3, log.Count(Kind::kError));
    EXPECT_EQ(0u, daemon.Connections());
}

}  // namespace
}  // namespace vimbra::tests
