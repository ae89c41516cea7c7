// What a request asks for, in words for the log. Passwords are never among them.
#ifndef VIMBRA_TOOLS_VIMBRAD_DESCRIBE_HPP
#define VIMBRA_TOOLS_VIMBRAD_DESCRIBE_HPP

#include <string>

#include "api/api_dhcps/dhcps_wire.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_network_common/ip_conflict_wire.hpp"
#include "api/api_network_common/netcommon_wire.hpp"
#include "api/api_network_common/stat_wire.hpp"
#include "api/api_ntpc/ntpc_wire.hpp"
#include "api/api_pppoe/pppoe_wire.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "api/api_route/api_route/router_notify_wire.hpp"
#include "api/api_webs/webs_wire.hpp"

namespace vimbrad {

namespace wire = vimbra::wire;

// Body of a request that has none.
struct NoBody {};

std::string Describe(const NoBody&);
std::string Describe(const TVimbraIpRouteParam& route);
std::string Describe(const TVimbraIpRuleParam& rule);
std::string Describe(const TVimbraNetworkPrioInfo& list);
std::string Describe(const wire::ConflictBody& body);
std::string Describe(const wire::DhcpsIfaceBody& body);
std::string Describe(const wire::DhcpsStartBody& body);
std::string Describe(const wire::FamilyIfaceBody& body);
std::string Describe(const wire::GatewayBody& body);
std::string Describe(const wire::IfaceAllIpBody& body);
std::string Describe(const wire::IfaceBody& body);
std::string Describe(const wire::IfaceIpBody& body);
std::string Describe(const wire::IfaceMacBody& body);
std::string Describe(const wire::IfaceMtuBody& body);
std::string Describe(const wire::LogSwitchBody& body);
std::string Describe(const wire::NtpcStartBody& body);
std::string Describe(const wire::NtpcStopBody& body);
std::string Describe(const wire::PppoeStartBody& body);
std::string Describe(const wire::PppoeStopBody& body);
std::string Describe(const wire::RouteBody& body);
std::string Describe(const wire::RouterAdvertiseStartBody& body);
std::string Describe(const wire::StatStartBody& body);
std::string Describe(const wire::TableBody& body);
std::string Describe(const wire::WebEnableBody& body);

template <class Main>
std::string Describe(const wire::InTable<Main>& body) {
    return Describe(Main(body.tMain)) + " table " + std::to_string(u32{body.dwTableId});
}

}  // namespace vimbrad

#endif
