#include <arpa/inet.h>
#include <net/if.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>
#include <vimbra/net_common.h>

#include "api/api_network_common/netcommon_wire.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet = %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrId = %d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kTransport,
};

// Changes an interface's flags; the name has been checked.
s32 ChangeFlags(CallSite site, char* name, u32 clear, u32 set) {
    if (name == nullptr) {
        VLOG_ERROR_AT(site, "the pchIfaceName is NULL!");
        return RefuseArgument(site.function, VIMBRA_ERR_PARAM);
    }
    VLOG_PRINT_AT(site, "pchIfaceName : %s", name);
    u32 flags = 0;
    if (IfethGetFlags(name, &flags) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "get flag error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (IfethSetFlags(name, (flags & ~clear) | set) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "set flag error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

// Ones from the top; bits is 1 to 32.
u32 LeadingOnes(u32 bits) {
    return ~0U << (32 - bits);
}

s32 CheckIpv4(CallSite site, const in_addr& address, u32 prefix, const in_addr& gateway) {
    if (prefix > 32) {
        VLOG_ERROR_AT(site, "the dwPrefix is %d more than 128!", static_cast<int>(prefix));
        return VIMBRA_ERR_GENERAL;
    }
    if (gateway.s_addr == INADDR_ANY) {
        return VIMBRA_OK;
    }
    if ((ntohl(address.s_addr ^ gateway.s_addr) & LeadingOnes(prefix)) != 0) {
        VLOG_ERROR_AT(site, "the two ipv4 address is not the same net!");
        return RefuseArgument(site.function, VIMBRA_ERR_NOT_SAME_NET);
    }
    VLOG_PRINT_AT(site, "the two ipv4 address is the same net!");
    return VIMBRA_OK;
}

bool IsSameNetIpv6(const in6_addr& address, u32 prefix, const in6_addr& gateway) {
    const u32 words = prefix / 32;
    for (u32 i = 0; i < words; i++) {
        if (address.s6_addr32[i] != gateway.s6_addr32[i]) {
            return false;
        }
    }
    const u32 rest = prefix % 32;
    if (rest == 0) {
        return true;  // At prefix 128 there is no next word.
    }
    return (ntohl(address.s6_addr32[words] ^ gateway.s6_addr32[words]) & LeadingOnes(rest)) == 0;
}

s32 CheckIpv6(CallSite site, const in6_addr& address, u32 prefix, const in6_addr& gateway) {
    if (prefix > 128) {
        VLOG_ERROR_AT(site, "the dwPrefix is %d more than 128!", static_cast<int>(prefix));
        return VIMBRA_ERR_GENERAL;
    }
    if (!IsSameNetIpv6(address, prefix, gateway)) {
        VLOG_ERROR_AT(site, "the two ipv6 address is not the same net!");
        return RefuseArgument(site.function, VIMBRA_ERR_NOT_SAME_NET);
    }
    VLOG_PRINT_AT(site, "the two ipv6 address is the same net!");
    return VIMBRA_OK;
}

}  // namespace

s32 VimbraQueryVersion(char* pchVer, u32 dwBufLen) {
    return NetQueryVersion(pchVer, dwBufLen);
}

s32 VimbraLogSwitch(u32 dwSwitch) {
    if (dwSwitch > VIMBRA_LEVEL_DEBUG) {
        VLOG_ERROR("dwSwitch is more than VIMBRA_LEVEL_DEBUG");
        return VIMBRA_ERR_GENERAL;
    }
    if (VimbraDebugLevelSet(dwSwitch) != VIMBRA_OK) {
        VLOG_ERROR("Business process VimbraDebugLevelSet ERROR");
        return VIMBRA_ERR_GENERAL;
    }
    return SendRequest<LogSwitchBody>(VIMBRA_HERE, kRule, kLogSwitch,
                                      [&](auto& body) { body.dwSwitch = dwSwitch; });
}

s32 VimbraIfaceShutdown(char* pchIfaceName) {
    return ChangeFlags(VIMBRA_HERE, pchIfaceName, IFF_UP, 0);
}

s32 VimbraIfaceNoShutdown(char* pchIfaceName) {
    return ChangeFlags(VIMBRA_HERE, pchIfaceName, 0, IFF_UP | IFF_RUNNING);
}

s32 VimbraGetIfaceState(char* pchIfaceName, u32* pdwFlag) {
    if (pchIfaceName == nullptr || pdwFlag == nullptr) {
        VLOG_ERROR("the pchIfaceName or pdwFlag is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    VLOG_PRINT("pchIfaceName : %s", pchIfaceName);
    u32 flags = 0;
    if (IfethGetFlags(pchIfaceName, &flags) != VIMBRA_OK) {
        VLOG_ERROR("get flag error!");
        return VIMBRA_ERR_GENERAL;
    }
    *pdwFlag = (flags & IFF_UP) != 0 ? VIMBRA_IFACE_UP : VIMBRA_IFACE_DOWN;
    return VIMBRA_OK;
}

s32 VimbraCheckIsSameNet(TVimbraAddr tIpAddr, u32 dwPrefix, TVimbraAddr tGateway) {
    if (tIpAddr.wSinFamily != tGateway.wSinFamily) {
        VLOG_ERROR("the tIpAddr and the tGateway's wSinFamily is different!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (dwPrefix == 0) {
        VLOG_ERROR("the param dwPrefix is Zero!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    switch (tIpAddr.wSinFamily) {
        case VIMBRA_FAMILY_IPV4:
            return CheckIpv4(VIMBRA_HERE, tIpAddr.tV4Addr, dwPrefix, tGateway.tV4Addr);
        case VIMBRA_FAMILY_IPV6:
            return CheckIpv6(VIMBRA_HERE, tIpAddr.tV6Addr, dwPrefix, tGateway.tV6Addr);
        default:
            VLOG_ERROR("the wSinFamily %d is invalid!", tIpAddr.wSinFamily);
            return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
}
