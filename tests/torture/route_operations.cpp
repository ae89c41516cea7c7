// Routes, tables, rules, gateways and priorities, of both generations.
#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

TVimbraIpRouteParam Route() {
    TVimbraIpRouteParam route = {};
    strcpy(route.achIfaceName, "eth0");
    route.tDestIpNet = Address("198.51.100.0");
    route.tDestGateWay = Address("192.0.2.1");
    route.dwPrefix = 24;
    return route;
}

TNetIpRouteParam LegacyRoute() {
    TNetIpRouteParam route = {};
    route.dwDesIpNet = Word("198.51.100.0");
    route.dwDesIpMask = 24;  // bits, despite its name
    route.dwGwIpAdrs = Word("192.0.2.1");
    return route;
}

TVimbraIpRuleParam Rule() {
    TVimbraIpRuleParam rule = {};
    rule.tFromIpNet = Address("192.0.2.0");
    rule.dwPrefix = 24;
    rule.dwPref = 100;
    rule.dwTableId = 100;
    return rule;
}

TVimbraIpRouteParam g_route = Route();
TNetIpRouteParam g_legacyRoute = LegacyRoute();
TVimbraIpRuleParam g_rule = Rule();
TVimbraAllIpRouteInfo g_routes;
TNetAllIpRouteInfo g_legacyRoutes;
TVimbraNetworkPrioInfo g_priorities;
TVimbraAddr g_gateway;
u32 g_word;

}  // namespace

std::vector<Operation> RouteOperations() {
    return {
        {"VimbraAddOneIpRoute", [] { return VimbraAddOneIpRoute(&g_route); }},
        {"VimbraAddOneIpRouteToTable", [] { return VimbraAddOneIpRouteToTable(&g_route, 100); }},
        {"VimbraDelOneIpRoute", [] { return VimbraDelOneIpRoute(&g_route); }},
        {"VimbraDelOneIpRouteFromTable",
         [] { return VimbraDelOneIpRouteFromTable(&g_route, 100); }},
        {"VimbraModifyIpRouteMetric", [] { return VimbraModifyIpRouteMetric(&g_route); }},
        {"VimbraGetAllIpRoute", [] { return VimbraGetAllIpRoute(2, &g_routes); }},
        {"VimbraSetDefGateway", [] { return VimbraSetDefGateway(g_eth0, Address("192.0.2.1")); }},
        {"VimbraSetDefGatewayToTable",
         [] { return VimbraSetDefGatewayToTable(g_eth0, Address("192.0.2.1"), 100); }},
        {"VimbraGetDefGateway", [] { return VimbraGetDefGateway(g_eth0, 2, &g_gateway); }},
        {"VimbraGetDefGatewayFromTable",
         [] { return VimbraGetDefGatewayFromTable(g_eth0, 2, &g_gateway, 100); }},
        {"VimbraDelDefGateway", [] { return VimbraDelDefGateway(g_eth0, 2); }},
        {"VimbraDelDefGatewayFromTable",
         [] { return VimbraDelDefGatewayFromTable(g_eth0, 2, 100); }},
        {"VimbraAddRouteTable", [] { return VimbraAddRouteTable(100); }},
        {"VimbraDelRouteTable", [] { return VimbraDelRouteTable(100); }},
        {"VimbraAddIpRule", [] { return VimbraAddIpRule(&g_rule); }},
        {"VimbraDelIpRule", [] { return VimbraDelIpRule(&g_rule); }},
        {"VimbraGetAllIpRule", [] { return VimbraGetAllIpRule(); }},
        {"VimbraSetNetworkPriority", [] { return VimbraSetNetworkPriority(&g_priorities); }},
        {"VimbraGetNetworkPriority", [] { return VimbraGetNetworkPriority(&g_priorities); }},
        {"NetSetDefGateway", [] { return NetSetDefGateway(0, Word("192.0.2.1")); }},
        {"NetGetDefGateway", [] { return NetGetDefGateway(0, &g_word); }},
        {"NetDelDefGateway", [] { return NetDelDefGateway(0); }},
        {"NetAddOneIpRoute", [] { return NetAddOneIpRoute(0, &g_legacyRoute); }},
        {"NetDelOneIpRoute", [] { return NetDelOneIpRoute(0, &g_legacyRoute); }},
        {"NetModifyIpRouteMetric", [] { return NetModifyIpRouteMetric(&g_legacyRoute); }},
        {"NetGetAllIpRoute", [] { return NetGetAllIpRoute(&g_legacyRoutes); }},
    };
}

}  // namespace vimbra::tests::torture
