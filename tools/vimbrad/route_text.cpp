#include "route_text.hpp"

#include <linux/rtnetlink.h>
#include <net/if.h>

#include <nlohmann/json.hpp>

#include "address_text.hpp"

namespace vimbrad {
namespace {

std::string ProtocolOf(rtnl_route* route) {
    switch (rtnl_route_get_protocol(route)) {
        case RTPROT_KERNEL:
            return "kernel";
        case RTPROT_BOOT:
            return "boot";
        case RTPROT_STATIC:
            return "static";
        case RTPROT_RA:
            return "ra";
        default:
            return std::to_string(rtnl_route_get_protocol(route));
    }
}

}  // namespace

Json ShownRoute(rtnl_route* route) {
    const RouteSpec spec = SpecOf(route);
    Json shown{{"destination", TextOf(spec.destination, spec.prefix)},
               {"metric", spec.metric},
               {"protocol", ProtocolOf(route)}};
    if (!IsZero(spec.gateway)) {
        shown["gateway"] = TextOf(spec.gateway);
    }
    char name[IF_NAMESIZE] = "";
    if (if_indextoname(static_cast<unsigned>(spec.iface), name) != nullptr) {
        shown["interface"] = name;
    }
    return shown;
}

}  // namespace vimbrad
