// Addresses, MAC addresses and MTU, of both generations.
#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

TVimbraIfaceIp Entry() {
    TVimbraIfaceIp ip = {};
    ip.tIpAddr = Address("192.0.2.7");
    ip.dwPrefix = 24;
    return ip;
}

TVimbraIfaceAllIp All() {
    TVimbraIfaceAllIp all = {};
    all.dwIpNum = 1;
    all.atNetIfaceIp[0] = Entry();
    return all;
}

TNetEthParam Param() {
    TNetEthParam param = {};
    param.dwIpAdrs = Word("192.0.2.7");
    param.dwIpMask = Word("255.255.255.0");
    return param;
}

TVimbraIfaceIp g_address = Entry();
TVimbraIfaceAllIp g_all = All();
TVimbraIfaceMac g_mac;
TNetEthParam g_param = Param();
TNetEthParamAll g_params;
api_ipaddr_show_info g_report;
u32 g_number;
s32 g_count;

}  // namespace

std::vector<Operation> IfaceOperations() {
    return {
        {"VimbraIfaceAddIp", [] { return VimbraIfaceAddIp(g_eth0, &g_address); }},
        {"VimbraIfaceDelIp", [] { return VimbraIfaceDelIp(g_eth0, &g_address); }},
        {"VimbraIfaceFlushIp", [] { return VimbraIfaceFlushIp(g_eth0, 11); }},
        {"VimbraIfaceSetIp", [] { return VimbraIfaceSetIp(g_eth0, 2, &g_all); }},
        {"VimbraIfaceGetIp",
         [] {
             TVimbraIfaceAllIp all;
             return VimbraIfaceGetIp(g_eth0, 2, &all);
         }},
        {"VimbraIfaceSetMac", [] { return VimbraIfaceSetMac(g_eth0, &g_mac); }},
        {"VimbraIfaceGetMac", [] { return VimbraIfaceGetMac(g_eth0, &g_mac); }},
        {"VimbraIfaceSetMtu", [] { return VimbraIfaceSetMtu(g_eth0, 2, 1500); }},
        {"VimbraIfaceGetMtu", [] { return VimbraIfaceGetMtu(g_eth0, &g_number); }},
        {"apic_ipaddr_show_filter", [] { return apic_ipaddr_show_filter(g_eth0, &g_report); }},
        {"NetGetEthParam", [] { return NetGetEthParam(0, &g_param); }},
        {"NetGetEthParamAll", [] { return NetGetEthParamAll(0, &g_params); }},
        {"NetSetEthParam",
         [] {
             g_param = Param();
             return NetSetEthParam(0, 1, &g_param);
         }},
        {"NetAddEthParamIPAndMask",
         [] {
             g_param = Param();
             return NetAddEthParamIPAndMask(0, &g_param);
         }},
        {"NetDelEthParamIPAndMask",
         [] {
             g_param = Param();
             return NetDelEthParamIPAndMask(0, &g_param);
         }},
        {"NetDelEthParam", [] { return NetDelEthParam(0); }},
        {"NetSetMtu", [] { return NetSetMtu(0, 1500); }},
        {"NetGetMtu", [] { return NetGetMtu(0, &g_number); }},
        {"NetGetEthNum", [] { return NetGetEthNum(&g_count); }},
    };
}

}  // namespace vimbra::tests::torture
