// What the tests of the daemon's routes share: the calls, and the kernel's own tables.
#ifndef VIMBRA_TESTS_E2E_ROUTES_HPP
#define VIMBRA_TESTS_E2E_ROUTES_HPP

#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cstring>

#include "../ground/address.hpp"
#include "e2e.hpp"

namespace vimbra::tests {

// The gateway calls read 16 bytes whatever a name's length.
inline char g_eth0[16] = "eth0";
inline char g_eth1[16] = "eth1";
inline char g_nowhere[16] = "nowhere0";

inline TVimbraIpRouteParam Route(const char* iface, const char* destination, u32 prefix,
                                 const char* gateway, u32 metric = 0) {
    TVimbraIpRouteParam route{};
    std::memcpy(route.achIfaceName, iface, std::strlen(iface));
    route.tDestIpNet = Address(destination);
    route.tDestGateWay = Address(gateway);
    route.dwPrefix = prefix;
    route.dwRoutePri = metric;
    return route;
}

inline s32 Add(TVimbraIpRouteParam route) {
    return VimbraAddOneIpRoute(&route);
}

inline s32 AddTo(u32 table, TVimbraIpRouteParam route) {
    return VimbraAddOneIpRouteToTable(&route, table);
}

inline s32 Delete(TVimbraIpRouteParam route) {
    return VimbraDelOneIpRoute(&route);
}

inline s32 DeleteFrom(u32 table, TVimbraIpRouteParam route) {
    return VimbraDelOneIpRouteFromTable(&route, table);
}

inline s32 Modify(TVimbraIpRouteParam route) {
    return VimbraModifyIpRouteMetric(&route);
}

inline TVimbraIpRuleParam Rule(const char* source, u32 prefix, u32 pref, u32 table, u32 mark = 0) {
    return {Address(source), prefix, pref, table, mark};
}

inline s32 AddRule(TVimbraIpRuleParam rule) {
    return VimbraAddIpRule(&rule);
}

inline s32 DeleteRule(TVimbraIpRuleParam rule) {
    return VimbraDelIpRule(&rule);
}

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return lines;
}

// As `ip` shows them: those that were configured, not the kernel's own.
inline std::vector<std::string> KernelRoutes(int family, const std::string& table = "main") {
    return Lines(Shell("ip -" + std::string(family == 2 ? "4" : "6") + " route show table " +
                       table + " proto static 2>/dev/null || true"));
}

inline std::vector<std::string> KernelRules() {
    return Lines(Shell("ip rule show"));
}

inline std::string TextOf(const TVimbraIpRouteParam& route) {
    std::string text = TextOf(route.tDestIpNet) + "/" + std::to_string(route.dwPrefix);
    if (TextOf(route.tDestGateWay) != "0.0.0.0" && TextOf(route.tDestGateWay) != "::") {
        text += " via " + TextOf(route.tDestGateWay);
    }
    text += " dev " + std::string(route.achIfaceName, strnlen(route.achIfaceName, 16));
    return text + " metric " + std::to_string(route.dwRoutePri);
}

// As the library tells them, in order.
inline std::vector<std::string> Told(u16 family) {
    TVimbraAllIpRouteInfo list{};
    EXPECT_EQ(0, VimbraGetAllIpRoute(family, &list));
    std::vector<std::string> told;
    for (u32 i = 0; i < list.dwIpRouteNum; ++i) {
        told.push_back(TextOf(list.tNetIpRouteParam[i]));
    }
    return told;
}

inline std::string Gateway(char* iface, u16 family) {
    TVimbraAddr gateway{};
    return VimbraGetDefGateway(iface, family, &gateway) == 0 ? TextOf(gateway) : "none";
}

inline std::string Gateway(char* iface, u16 family, u32 table) {
    TVimbraAddr gateway{};
    return VimbraGetDefGatewayFromTable(iface, family, &gateway, table) == 0 ? TextOf(gateway)
                                                                             : "none";
}

using Priorities = std::vector<std::pair<const char*, int>>;

inline s32 SetPriority(const Priorities& wanted) {
    TVimbraNetworkPrioInfo info{};
    for (const auto& [name, priority] : wanted) {
        TVimbraNetworkPriority& entry = info.tNetPrioParam[info.dwNetNum++];
        std::memcpy(entry.achIfaceName, name, std::strlen(name));
        entry.ePrio = static_cast<EVimbraNetworkPrio>(priority);
    }
    return VimbraSetNetworkPriority(&info);
}

class VimbradRoute : public testing::Test {
 protected:
    void SetUp() override {
        for (const char* name : {"eth0", "eth1"}) {
            MakeIface(name);
            Shell(std::string("ip link set ") + name + " addrgenmode none");
            Shell(std::string("ip -6 address flush dev ") + name);
            Shell(std::string("ip -6 address flush dev peer-") + name);
        }
        Shell("ip address add 10.0.0.1/24 dev eth0 && ip address add 10.1.0.1/24 dev eth1");
        Shell(
            "ip address add fd00::1/64 dev eth0 nodad && ip address add fd01::1/64 dev eth1 nodad");
    }

    Daemon daemon_;
};

}  // namespace vimbra::tests

#endif
