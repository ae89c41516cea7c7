#include <vimbra/dns.h>
#include <vimbra/net_dns.h>

#include <algorithm>

#include "api/api_1x/legacy.hpp"
#include "lib/failure.hpp"

using namespace vimbra;

s32 NetDNSSetEx(u32 byEthId, u32* adwDns, s32 dwNum) {
    constexpr s32 kServerMax = 128;
    if (dwNum < 0) {
        VLOG_ERROR("DNS number is invalid");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (dwNum > kServerMax) {
        VLOG_WARN("DNS number too large");
        dwNum = kServerMax;
    }
    TVimbraAddr servers[kServerMax];
    if (adwDns != nullptr) {
        std::transform(adwDns, adwDns + dwNum, servers, Ipv4);
    }
    return OnInterface(VIMBRA_HERE, byEthId, "interface_name failed", [&](char* name) {
        return VimbraDNSSet(name, VIMBRA_FAMILY_IPV4, adwDns != nullptr ? servers : nullptr,
                            static_cast<u32>(dwNum));
    });
}
