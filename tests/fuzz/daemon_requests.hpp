// Every request that vimbrad serves, with the size of its body.
#ifndef VIMBRA_TESTS_FUZZ_DAEMON_REQUESTS_HPP
#define VIMBRA_TESTS_FUZZ_DAEMON_REQUESTS_HPP

#include "api/api_1x/api_ip/net_ip_wire.hpp"
#include "api/api_bond/bond_wire.hpp"
#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "api/api_dhcps/dhcps_wire.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_network_common/ip_conflict_wire.hpp"
#include "api/api_network_common/netcommon_wire.hpp"
#include "api/api_network_common/stat_wire.hpp"
#include "api/api_ntpc/ntpc_wire.hpp"
#include "api/api_ping/ping_wire.hpp"
#include "api/api_pppoe/pppoe_wire.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "api/api_route/api_route/router_notify_wire.hpp"
#include "api/api_traceroute/traceroute_wire.hpp"
#include "api/api_webs/webs_wire.hpp"

namespace vimbra::tests {

struct RequestKind {
    u32 type;
    size_t size;
};

// New ones at the end: inputs name them by their place.
inline constexpr RequestKind kRequestKinds[] = {
    {wire::kIpaddrAdd, sizeof(wire::IfaceIpBody)},
    {wire::kIpaddrDel, sizeof(wire::IfaceIpBody)},
    {wire::kIpaddrFlush, sizeof(wire::FamilyIfaceBody)},
    {wire::kIpaddrSet, sizeof(wire::IfaceAllIpBody)},
    {wire::kIpaddrGet, sizeof(wire::FamilyIfaceBody)},
    {wire::kBondStart, 64},
    {wire::kBondStop, 0},
    {wire::kConflictStart, sizeof(wire::ConflictBody)},
    {wire::kConflictStop, sizeof(wire::ConflictBody)},
    {wire::kDhcpcStart, sizeof(wire::FamilyIfaceBody)},
    {wire::kDhcpcStop, sizeof(wire::FamilyIfaceBody)},
    {wire::kDhcpcRenew, sizeof(wire::FamilyIfaceBody)},
    {wire::kDhcpsStart, sizeof(wire::DhcpsStartBody)},
    {wire::kDhcpsStop, sizeof(wire::DhcpsIfaceBody)},
    {wire::kDhcpsStopAll, 0},
    {wire::kDhcpsState, sizeof(wire::DhcpsIfaceBody)},
    {wire::kGatewaySet, sizeof(wire::GatewayBody)},
    {wire::kGatewaySet, sizeof(wire::InTable<wire::GatewayBody>)},
    {wire::kGatewayGet, sizeof(wire::FamilyIfaceBody)},
    {wire::kGatewayGet, sizeof(wire::InTable<wire::FamilyIfaceBody>)},
    {wire::kGatewayDel, sizeof(wire::FamilyIfaceBody)},
    {wire::kGatewayDel, sizeof(wire::InTable<wire::FamilyIfaceBody>)},
    {wire::kPrioritySet, sizeof(TVimbraNetworkPrioInfo)},
    {wire::kPriorityGet, 0},
    {wire::kMacSet, sizeof(wire::IfaceMacBody)},
    {wire::kMacGet, sizeof(wire::IfaceBody)},
    {wire::kMtuSet, sizeof(wire::IfaceMtuBody)},
    {wire::kMtuGet, sizeof(wire::IfaceBody)},
    {wire::kLogSwitch, sizeof(wire::LogSwitchBody)},
    {wire::kNtpcStart, sizeof(wire::NtpcStartBody)},
    {wire::kNtpcStop, sizeof(wire::NtpcStopBody)},
    {wire::kNtpcCheck, sizeof(TVimbraAddr)},
    {wire::kPingStart, sizeof(wire::PingStartBody)},
    {wire::kPingStop, sizeof(wire::PingStopBody)},
    {wire::kPppoeStart, sizeof(wire::PppoeStartBody)},
    {wire::kPppoeStop, sizeof(wire::PppoeStopBody)},
    {wire::kIpaddrShowFilter, sizeof(wire::IfaceBody)},
    {wire::kRouteMetricModify, sizeof(TVimbraIpRouteParam)},
    {wire::kAllRouteGet, sizeof(wire::FamilyBody)},
    {wire::kRouteTableAdd, sizeof(wire::TableBody)},
    {wire::kRouteTableDel, sizeof(wire::TableBody)},
    {wire::kRouteAdd, sizeof(wire::RouteBody)},
    {wire::kRouteAdd, sizeof(wire::InTable<wire::RouteBody>)},
    {wire::kRouteDel, sizeof(wire::RouteBody)},
    {wire::kRouteDel, sizeof(wire::InTable<wire::RouteBody>)},
    {wire::kRouterAdvertiseStart, sizeof(wire::RouterAdvertiseStartBody)},
    {wire::kRouterAdvertiseStop, sizeof(wire::IfaceBody)},
    {wire::kIpRuleAdd, sizeof(TVimbraIpRuleParam)},
    {wire::kIpRuleDel, sizeof(TVimbraIpRuleParam)},
    {wire::kStatStart, sizeof(wire::StatStartBody)},
    {wire::kStatStop, 0},
    {wire::kTracerouteStart, sizeof(wire::TracerouteStartBody)},
    {wire::kTracerouteStop, sizeof(wire::TracerouteStopBody)},
    {wire::kWebEnable, sizeof(wire::WebEnableBody)},
    {wire::kWebDisable, 0},
};

}  // namespace vimbra::tests

#endif
