#include "describe.hpp"

#include <algorithm>
#include <cstdio>

#include "address_text.hpp"
#include "family.hpp"
#include "netlink.hpp"

namespace vimbrad {
namespace {

// Of what a client sent, which may be no family.
std::string FamilyOf(u16 family) {
    const bool known = family == VIMBRA_FAMILY_IPV4 || family == VIMBRA_FAMILY_IPV6 ||
                       family == VIMBRA_FAMILY_BOTH;
    return known ? FamilyTitle(family) : "family " + std::to_string(family);
}

std::string With(const char* name, u32 value) {
    return std::string(" ") + name + " " + std::to_string(value);
}

}  // namespace

std::string Describe(const NoBody&) {
    return "";
}

std::string Describe(const TVimbraIpRouteParam& route) {
    std::string text = TextOf(route.tDestIpNet, route.dwPrefix);
    if (const std::string gateway = TextOf(route.tDestGateWay); !gateway.empty()) {
        text += " via " + gateway;
    }
    if (const std::string iface = NameOf(route.achIfaceName); !iface.empty()) {
        text += " on " + iface;
    }
    return text + With("metric", route.dwRoutePri);
}

std::string Describe(const TVimbraIpRuleParam& rule) {
    return "from " + TextOf(rule.tFromIpNet, rule.dwPrefix) + With("priority", rule.dwPref) +
           With("table", rule.dwTableId) + With("mark", rule.dwFwmark);
}

std::string Describe(const TVimbraNetworkPrioInfo& list) {
    std::string text;
    for (u32 i = 0; i < std::min<u32>(list.dwNetNum, VIMBRA_NETWORK_PRIORITY_MAX); ++i) {
        const TVimbraNetworkPriority& each = list.tNetPrioParam[i];
        text += (text.empty() ? "" : " ") + NameOf(each.achIfaceName) + ":" +
                std::to_string(static_cast<unsigned>(each.ePrio));
    }
    return text.empty() ? "first come, first served" : text;
}

std::string Describe(const wire::ConflictBody& body) {
    return FamilyOf(body.wSinFamily);
}

std::string Describe(const wire::DhcpsIfaceBody& body) {
    return NameOf(body.achIfaceName) + " " + FamilyOf(body.wSinFamily);
}

std::string Describe(const wire::DhcpsStartBody& body) {
    const TVimbraDhcpsInfo pool = body.tDhcpsInfo;
    return NameOf(body.achIfaceName) + " " + FamilyOf(body.wSinFamily) + " " +
           TextOf(pool.tIpPoolStart) + " to " + TextOf(pool.tIpPoolEnd, pool.dwIpPoolPrefix);
}

std::string Describe(const wire::FamilyIfaceBody& body) {
    return NameOf(body.achIfaceName) + " " + FamilyOf(body.wSinFamily);
}

std::string Describe(const wire::GatewayBody& body) {
    return NameOf(body.achIfaceName) + " " + TextOf(body.tGateWay);
}

std::string Describe(const wire::IfaceAllIpBody& body) {
    std::string text = NameOf(body.achIfaceName) + " " + FamilyOf(body.wSinFamily);
    const TVimbraIfaceAllIp list = body.tIfaceAllIp;
    for (u32 i = 0; i < std::min<u32>(list.dwIpNum, VIMBRA_IFACE_IP_MAX); ++i) {
        text += " " + TextOf(list.atNetIfaceIp[i].tIpAddr, list.atNetIfaceIp[i].dwPrefix);
    }
    return text;
}

std::string Describe(const wire::IfaceBody& body) {
    return NameOf(body.achIfaceName);
}

std::string Describe(const wire::IfaceIpBody& body) {
    const TVimbraIfaceIp address = body.tIfaceIp;
    return NameOf(body.achIfaceName) + " " + TextOf(address.tIpAddr, address.dwPrefix);
}

std::string Describe(const wire::IfaceMacBody& body) {
    const u8* mac = body.tIfaceMac.abyMacAddr;
    char text[18];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return NameOf(body.achIfaceName) + " " + text;
}

std::string Describe(const wire::IfaceMtuBody& body) {
    return NameOf(body.achIfaceName) + With("mtu", body.dwMtu);
}

std::string Describe(const wire::LogSwitchBody& body) {
    return std::to_string(body.dwSwitch);
}

std::string Describe(const wire::NtpcStartBody& body) {
    const TVimbraAddr server = body.tServerIp;
    return TextOf(server) + With("interval", body.dwSyncTimeInterval);
}

std::string Describe(const wire::NtpcStopBody& body) {
    return FamilyOf(body.wSinFamily);
}

std::string Describe(const wire::PppoeStartBody& body) {
    const char* user = body.tConfig.username;
    return NameOf(body.tConfig.devname) + " " + FamilyOf(body.wSinFamily) + " user " +
           std::string(user, strnlen(user, sizeof(body.tConfig.username)));
}

std::string Describe(const wire::PppoeStopBody& body) {
    return FamilyOf(body.wSinFamily);
}

std::string Describe(const wire::RouteBody& body) {
    return Describe(body.tRoute);
}

std::string Describe(const wire::RouterAdvertiseStartBody& body) {
    return NameOf(body.achIfaceName);
}

std::string Describe(const wire::StatStartBody& body) {
    return "every " + std::to_string(body.nInterval) + " s";
}

std::string Describe(const wire::TableBody& body) {
    return std::to_string(body.dwTableId);
}

std::string Describe(const wire::WebEnableBody& body) {
    return "port " + std::to_string(body.port);
}

}  // namespace vimbrad
