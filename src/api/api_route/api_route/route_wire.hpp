// Requests and replies for routes, tables, rules, gateways and the network priority.
#ifndef VIMBRA_API_ROUTE_WIRE_HPP
#define VIMBRA_API_ROUTE_WIRE_HPP

#include <vimbra/route.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kRouteAdd = 267,
    kRouteDel = 269,
    kGatewaySet = 271,
    kGatewayGet = 272,
    kAllRouteGet = 275,
    kRouteMetricModify = 276,
    kGatewayDel = 278,
    kPrioritySet = 284,
    kPriorityGet = 285,
    kRouteTableAdd = 288,
    kRouteTableDel = 289,
    kIpRuleAdd = 291,
    kIpRuleDel = 292,
};

// kRouteMetricModify sends this record bare
static_assert(sizeof(TVimbraIpRouteParam) == 64);
static_assert(offsetof(TVimbraIpRouteParam, achIfaceName) == 0);
static_assert(offsetof(TVimbraIpRouteParam, tDestIpNet) == 16);
static_assert(offsetof(TVimbraIpRouteParam, tDestGateWay) == 36);
static_assert(offsetof(TVimbraIpRouteParam, dwPrefix) == 56);
static_assert(offsetof(TVimbraIpRouteParam, dwRoutePri) == 60);

static_assert(sizeof(TVimbraAllIpRouteInfo) == 644);
static_assert(offsetof(TVimbraAllIpRouteInfo, dwIpRouteNum) == 0);
static_assert(offsetof(TVimbraAllIpRouteInfo, tNetIpRouteParam) == 4);

// kIpRuleAdd and kIpRuleDel send this record bare; their replies are plain
static_assert(sizeof(TVimbraIpRuleParam) == 36);
static_assert(offsetof(TVimbraIpRuleParam, tFromIpNet) == 0);
static_assert(offsetof(TVimbraIpRuleParam, dwPrefix) == 20);
static_assert(offsetof(TVimbraIpRuleParam, dwPref) == 24);
static_assert(offsetof(TVimbraIpRuleParam, dwTableId) == 28);
static_assert(offsetof(TVimbraIpRuleParam, dwFwmark) == 32);

static_assert(sizeof(EVimbraNetworkPrio) == 4);
static_assert(sizeof(TVimbraNetworkPriority) == 20);
static_assert(offsetof(TVimbraNetworkPriority, achIfaceName) == 0);
static_assert(offsetof(TVimbraNetworkPriority, ePrio) == 16);

// kPrioritySet sends this record bare. It is also the whole reply of kPriorityGet, whose request
// has no body: no result code stands before it.
static_assert(sizeof(TVimbraNetworkPrioInfo) == 204);
static_assert(offsetof(TVimbraNetworkPrioInfo, dwNetNum) == 0);
static_assert(offsetof(TVimbraNetworkPrioInfo, tNetPrioParam) == 4);

// A request that means the main table, or, by the four bytes that follow, a numbered one: type code
// and body are the same, and the length tells which.
template <typename Main>
struct VIMBRA_WIRE InTable {
    Main tMain;
    u32 dwTableId;
};

// kRouteAdd, kRouteDel
struct RouteBody {
    NameField achIfaceName;      // the record's name once more
    TVimbraIpRouteParam tRoute;  // the route
};
static_assert(sizeof(RouteBody) == 80);
static_assert(offsetof(RouteBody, tRoute) == 16);
static_assert(sizeof(InTable<RouteBody>) == 84);
static_assert(offsetof(InTable<RouteBody>, dwTableId) == 80);

// kGatewaySet
struct GatewayBody {
    NameField achIfaceName;  // all zero: the daemon finds the interface
    TVimbraAddr tGateWay;    // the gateway; its family is the one that is meant
};
static_assert(sizeof(GatewayBody) == 36);
static_assert(offsetof(GatewayBody, tGateWay) == 16);
static_assert(sizeof(InTable<GatewayBody>) == 40);
static_assert(offsetof(InTable<GatewayBody>, dwTableId) == 36);

// kGatewayGet, kGatewayDel: FamilyIfaceBody, all zero where no interface is named
static_assert(sizeof(InTable<FamilyIfaceBody>) == 22);
static_assert(offsetof(InTable<FamilyIfaceBody>, dwTableId) == 18);

// kAllRouteGet
struct FamilyBody {
    u16 wSinFamily;  // 2 or 10
};
static_assert(sizeof(FamilyBody) == 2);

// kRouteTableAdd, kRouteTableDel
struct TableBody {
    u32 dwTableId;  // 1 to 252
};
static_assert(sizeof(TableBody) == 4);

// Reply of kGatewayGet
struct TIpcGateWay {
    s32 nErrid;           // 0, or the daemon's number for its refusal
    TVimbraAddr tIpaddr;  // the gateway
};
static_assert(sizeof(TIpcGateWay) == 24);
static_assert(offsetof(TIpcGateWay, tIpaddr) == 4);

// Reply of kAllRouteGet
struct TIpcAllRoute {
    s32 nErrid;                           // 0, or the daemon's number for its refusal
    TVimbraAllIpRouteInfo tAllRouteInfo;  // the routes
};
static_assert(sizeof(TIpcAllRoute) == 648);
static_assert(offsetof(TIpcAllRoute, tAllRouteInfo) == 4);

}  // namespace vimbra::wire

#endif
