// The kernel's routes as the services see them.
#ifndef VIMBRA_TOOLS_VIMBRAD_KERNEL_ROUTE_HPP
#define VIMBRA_TOOLS_VIMBRAD_KERNEL_ROUTE_HPP

#include <netlink/route/nexthop.h>
#include <netlink/route/route.h>

#include <vector>

#include "netlink.hpp"

namespace vimbrad {

using Route = std::unique_ptr<rtnl_route, FreeWith<rtnl_route_put>>;

// What the kernel makes of metric 0 in an IPv6 route: it has none of that metric.
inline constexpr u32 kIpv6DefaultMetric = 1024;

// A unicast route. Interface and gateway may be missing (0, all zero): then the kernel finds the
// interface, or the destination is on the link.
struct RouteSpec {
    TVimbraAddr destination{};
    u32 prefix = 0;
    TVimbraAddr gateway{};
    int iface = 0;
    u32 metric = 0;
    u32 table = RT_TABLE_MAIN;
};

// What the kernel holds, in the same terms. Of a route with several next hops it is the first.
RouteSpec SpecOf(rtnl_route* route);

// The number by which the kernel knows a table; requests call the main table 0, too.
inline u32 TableNumber(u32 requested) {
    return requested == RT_TABLE_UNSPEC ? u32{RT_TABLE_MAIN} : requested;
}

// Unicast routes of one family (2 or 10) in all tables, in the kernel's order.
std::vector<Route> ListAllRoutes(u16 family);
// Unicast routes of one family (2 or 10) in a table, in the kernel's order.
std::vector<Route> ListRoutes(u16 family, u32 table);

// Adds a route beside those that are there. Refused with EEXIST where one to the same destination
// has the same metric.
void AddRoute(const RouteSpec& spec);
// Takes the place of the route to the same destination with the same metric.
void ReplaceRoute(const RouteSpec& spec);
// The same route once more, with another metric, beside those that have it already.
void AppendWithMetric(rtnl_route* route, u32 metric);
void DeleteRoute(rtnl_route* route);

// The interface through which the kernel would send to an address.
int IfaceTowards(const TVimbraAddr& address);
// Number of the named interface; 0 where no interface is named.
int IfaceNumber(const std::string& name);

}  // namespace vimbrad

#endif
