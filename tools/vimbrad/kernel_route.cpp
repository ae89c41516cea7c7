#include "kernel_route.hpp"

#include <linux/rtnetlink.h>
#include <netlink/errno.h>

#include <cstring>

namespace vimbrad {
namespace {

constexpr int kDumpAttempts = 8;

using NextHop = std::unique_ptr<rtnl_nexthop, FreeWith<rtnl_route_nh_free>>;

Route MakeRoute(const RouteSpec& spec) {
    const NlAddr destination = MakeNlAddr(spec.destination, spec.prefix);
    auto route = Allocated<Route>(rtnl_route_alloc());
    rtnl_route_set_family(route.get(), static_cast<u8>(spec.destination.wSinFamily));
    rtnl_route_set_table(route.get(), spec.table);
    rtnl_route_set_type(route.get(), RTN_UNICAST);
    rtnl_route_set_protocol(route.get(), RTPROT_STATIC);
    rtnl_route_set_priority(route.get(), spec.metric);
    rtnl_route_set_dst(route.get(), destination.get());

    auto hop = Allocated<NextHop>(rtnl_route_nh_alloc());
    if (spec.iface != 0) {
        rtnl_route_nh_set_ifindex(hop.get(), spec.iface);
    }
    if (!IsZero(spec.gateway)) {
        const NlAddr gateway = MakeNlAddr(spec.gateway, FullPrefix(spec.gateway.wSinFamily));
        rtnl_route_nh_set_gateway(hop.get(), gateway.get());
    }
    rtnl_route_add_nexthop(route.get(), hop.release());
    return route;
}

// For all routes of a family, or for the way to one destination.
NlMessage MakeQuestion(u16 family, const nl_addr* destination) {
    const bool all = destination == nullptr;
    auto question = Allocated<NlMessage>(nlmsg_alloc_simple(RTM_GETROUTE, all ? NLM_F_DUMP : 0));
    rtmsg head{};
    head.rtm_family = static_cast<u8>(family);
    head.rtm_dst_len = static_cast<u8>(all ? 0 : nl_addr_get_prefixlen(destination));
    if (nlmsg_append(question.get(), &head, sizeof(head), NLMSG_ALIGNTO) < 0 ||
        (!all && nla_put_addr(question.get(), RTA_DST, const_cast<nl_addr*>(destination)) < 0)) {
        throw std::bad_alloc();
    }
    return question;
}

std::vector<Route> RoutesOf(Netlink::Answer answer) {
    std::vector<Route> routes;
    routes.reserve(answer.objects.size());
    for (NlObject& each : answer.objects) {
        routes.emplace_back(reinterpret_cast<rtnl_route*>(each.release()));
    }
    return routes;
}

// Every route of a family.
std::vector<Route> Dump(u16 family) {
    CheckOneFamily(family);
    for (int attempt = 0; attempt < kDumpAttempts; ++attempt) {
        Netlink::Answer answer = Netlink().Ask(MakeQuestion(family, nullptr));
        if (answer.result >= 0) {
            return RoutesOf(std::move(answer));
        }
        // The tables changed while they were read.
        if (answer.result != -NLE_DUMP_INTR) {
            throw Refusal(Netlink::ErrnoOf(answer.result), nl_geterror(answer.result));
        }
    }
    throw Refusal(EAGAIN, "the routes change faster than they can be read");
}

// The kernel tells the state of a link with its routes, and takes no route that claims one: without
// a cable nothing could be changed.
constexpr unsigned kLinkState = ~unsigned{RTNH_F_ONLINK};

void ForgetLinkState(rtnl_route* route) {
    rtnl_route_unset_flags(route, kLinkState);
    const auto forget = [](rtnl_nexthop* hop, void*) {
        rtnl_route_nh_unset_flags(hop, kLinkState);
    };
    rtnl_route_foreach_nexthop(route, forget, nullptr);
}

void Install(rtnl_route* route, int flags) {
    ForgetLinkState(route);
    Netlink().Change(Build<NlMessage>([route, flags](nl_msg** message) {
        return rtnl_route_build_add_request(route, flags, message);
    }));
}

}  // namespace

RouteSpec SpecOf(rtnl_route* route) {
    RouteSpec spec;
    const nl_addr* destination = rtnl_route_get_dst(route);
    spec.destination = MakeAddr(destination);
    spec.destination.wSinFamily = rtnl_route_get_family(route);
    spec.prefix = destination != nullptr ? nl_addr_get_prefixlen(destination) : 0;
    spec.gateway.wSinFamily = spec.destination.wSinFamily;
    if (rtnl_nexthop* hop = rtnl_route_nexthop_n(route, 0)) {
        spec.iface = rtnl_route_nh_get_ifindex(hop);
        if (const nl_addr* gateway = rtnl_route_nh_get_gateway(hop)) {
            spec.gateway = MakeAddr(gateway);
        }
    }
    spec.metric = rtnl_route_get_priority(route);
    // The kernel has no IPv6 route of metric 0: it makes 1024 of it.
    if (spec.destination.wSinFamily == VIMBRA_FAMILY_IPV6 && spec.metric == kIpv6DefaultMetric) {
        spec.metric = 0;
    }
    spec.table = rtnl_route_get_table(route);
    return spec;
}

std::vector<Route> ListAllRoutes(u16 family) {
    std::vector<Route> routes = Dump(family);
    std::erase_if(routes,
                  [](const Route& each) { return rtnl_route_get_type(each.get()) != RTN_UNICAST; });
    return routes;
}

std::vector<Route> ListRoutes(u16 family, u32 table) {
    std::vector<Route> routes = ListAllRoutes(family);
    std::erase_if(routes,
                  [table](const Route& each) { return rtnl_route_get_table(each.get()) != table; });
    return routes;
}

void AddRoute(const RouteSpec& spec) {
    Install(MakeRoute(spec).get(), NLM_F_EXCL);
}

void ReplaceRoute(const RouteSpec& spec) {
    Install(MakeRoute(spec).get(), NLM_F_REPLACE);
}

void AppendWithMetric(rtnl_route* route, u32 metric) {
    const auto copy =
        Allocated<Route>(reinterpret_cast<rtnl_route*>(nl_object_clone(OBJ_CAST(route))));
    rtnl_route_set_priority(copy.get(), metric);
    Install(copy.get(), NLM_F_APPEND);
}

void DeleteRoute(rtnl_route* route) {
    Netlink().Change(Build<NlMessage>(
        [route](nl_msg** message) { return rtnl_route_build_del_request(route, 0, message); }));
}

int IfaceTowards(const TVimbraAddr& address) {
    const NlAddr destination = MakeNlAddr(address, FullPrefix(address.wSinFamily));
    Netlink::Answer answer = Netlink().Ask(MakeQuestion(address.wSinFamily, destination.get()));
    if (answer.result < 0 || answer.objects.empty()) {
        throw Refusal(ENETUNREACH);
    }
    return SpecOf(RoutesOf(std::move(answer)).front().get()).iface;
}

int IfaceNumber(const std::string& name) {
    return name.empty() ? 0 : rtnl_link_get_ifindex(Netlink().FindLink(name).get());
}

}  // namespace vimbrad
