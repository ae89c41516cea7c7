#include "api/api_ip/api_ipaddr/api_ipaddr.hpp"

#include <arpa/inet.h>
#include <vimbra/iface_check.h>

#include <algorithm>

#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "lib/argument.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kMinusOne,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kPlain,
};

bool IsFamilyOrBoth(u16 family) {
    return IsOneFamily(family) || family == VIMBRA_FAMILY_BOTH;
}

// Adding and deleting take no link scope; replacing the set does.
bool IsSingleScope(EVimbraScopeType scope) {
    return scope == VIMBRA_SCOPE_TYPE_DEF || scope == VIMBRA_SCOPE_TYPE_GLOBAL;
}

// The checks that adding and deleting one address share.
bool CheckOneIp(CallSite site, const char* name, const TVimbraIfaceIp* ip) {
    if (!CheckName(site, name)) {
        return false;
    }
    if (ip == nullptr) {
        VLOG_ERROR_AT(site, "ptNetIfaceIp is NULL!");
        return false;
    }
    if (!IsOneFamily(ip->tIpAddr.wSinFamily)) {
        VLOG_ERROR_AT(site, "the ptNetIfaceIp wSinFamily %d is invalid!", ip->tIpAddr.wSinFamily);
        return false;
    }
    if (!IsSingleScope(ip->eScopeType)) {
        VLOG_ERROR_AT(site, "ptNetIfaceIp.eScopeType %d is invalid!",
                      static_cast<int>(ip->eScopeType));
        return false;
    }
    return true;
}

// The checks that reading and replacing all addresses share.
bool CheckAllIp(CallSite site, const char* name, u16 family, const TVimbraIfaceAllIp* all) {
    if (!CheckName(site, name)) {
        return false;
    }
    if (all == nullptr) {
        VLOG_ERROR_AT(site, "ptNetIfaceIp is NULL!");
        return false;
    }
    if (!IsFamilyOrBoth(family)) {
        VLOG_ERROR_AT(site, "wSinFamily %d is invalid!", family);
        return false;
    }
    return true;
}

s32 SendOneIp(CallSite site, u32 type, const char* name, const TVimbraIfaceIp& ip) {
    return SendRequest<IfaceIpBody>(site, kRule, type, [&](auto& body) {
        CopyField(body.achIfaceName, name);
        body.tIfaceIp = ip;
    });
}

u32 ClassfulMask(s32 addressClass) {
    const char* dotted = addressClass == VIMBRA_IP_CLASS_A   ? "255.0.0.0"
                         : addressClass == VIMBRA_IP_CLASS_B ? "255.255.0.0"
                                                             : "255.255.255.0";
    in_addr mask = {};
    inet_aton(dotted, &mask);
    return mask.s_addr;
}

s32 CheckHostIpv4(CallSite site, u32 ip) {
    const s32 addressClass = check_ip(ip);
    switch (addressClass) {
        case VIMBRA_IP_CLASS_A:
        case VIMBRA_IP_CLASS_B:
        case VIMBRA_IP_CLASS_C:
            if (check_intranet_ip(ip, ClassfulMask(addressClass)) == VIMBRA_ERR_GENERAL) {
                VLOG_ERROR_AT(site, "invalid ip!");
                return RefuseArgument(site.function, VIMBRA_ERR_GENERAL);
            }
            return VIMBRA_OK;
        case VIMBRA_IP_CLASS_D:
        case VIMBRA_IP_CLASS_OTHER:
            VLOG_ERROR_AT(site, "special ip!");
            return VIMBRA_ERR_GENERAL;
        default:
            VLOG_ERROR_AT(site, "invalid ip!");
            return RefuseArgument(site.function, VIMBRA_ERR_GENERAL);
    }
}

s32 CheckHostIpv6(CallSite site, const in6_addr& ip) {
    if (IN6_IS_ADDR_UNSPECIFIED(&ip)) {
        VLOG_ERROR_AT(site, "Unspecified address!");
        return VIMBRA_ERR_GENERAL;
    }
    if (IN6_IS_ADDR_LOOPBACK(&ip)) {
        VLOG_ERROR_AT(site, "Loopback ip!");
        return VIMBRA_ERR_GENERAL;
    }
    if (IN6_IS_ADDR_MULTICAST(&ip)) {
        VLOG_ERROR_AT(site, "Multicast ip!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

}  // namespace

s32 CheckeScopeType(EVimbraScopeType eScopeType) {
    return IsSingleScope(eScopeType) || eScopeType == VIMBRA_SCOPE_TYPE_LINK ? VIMBRA_OK
                                                                             : VIMBRA_ERR_GENERAL;
}

s32 ApicCheckIp(const TVimbraIfaceIp* ptNetIfaceIp) {
    const TVimbraAddr& addr = ptNetIfaceIp->tIpAddr;
    switch (addr.wSinFamily) {
        case VIMBRA_FAMILY_IPV4:
            return CheckHostIpv4(VIMBRA_HERE, addr.tV4Addr.s_addr);
        case VIMBRA_FAMILY_IPV6:
            return CheckHostIpv6(VIMBRA_HERE, addr.tV6Addr);
        default:
            return VIMBRA_ERR_GENERAL;
    }
}

s32 ApicIpaddrAdd(const char* pchIfaceName, const TVimbraIfaceIp* ptNetIfaceIp) {
    return SendOneIp(VIMBRA_HERE, kIpaddrAdd, pchIfaceName, *ptNetIfaceIp);
}

s32 ApicIpaddrDel(const char* pchIfaceName, const TVimbraIfaceIp* ptNetIfaceIp) {
    return SendOneIp(VIMBRA_HERE, kIpaddrDel, pchIfaceName, *ptNetIfaceIp);
}

s32 ApicIpaddrFlush(const char* pchIfaceName, u16 wSinFamily) {
    return SendRequest<FamilyIfaceBody>(VIMBRA_HERE, kRule, kIpaddrFlush, [&](auto& body) {
        body.wSinFamily = wSinFamily;
        CopyField(body.achIfaceName, pchIfaceName);
    });
}

s32 ApicIpaddrSet(const char* pchIfaceName, u16 wSinFamily, const TVimbraIfaceAllIp* ptNetIfaceIp) {
    return SendRequest<IfaceAllIpBody>(VIMBRA_HERE, kRule, kIpaddrSet, [&](auto& body) {
        body.wSinFamily = wSinFamily;
        CopyField(body.achIfaceName, pchIfaceName);
        // Read once: the copy stays in bounds whatever another thread writes into the caller's
        // record.
        const u32 count = std::min<u32>(u32{ptNetIfaceIp->dwIpNum}, VIMBRA_IFACE_IP_MAX);
        body.tIfaceAllIp.dwIpNum = count;
        // What lies past the count may be anything; it stays here and goes out as zero.
        memcpy(&body.tIfaceAllIp.atNetIfaceIp, ptNetIfaceIp->atNetIfaceIp,
               count * sizeof(TVimbraIfaceIp));
    });
}

s32 ApicIpaddrGet(const char* pchIfaceName, u16 wSinFamily, TVimbraIfaceAllIp* ptNetIfaceIp) {
    TIpcAllIp reply = {};
    const s32 result =
        SendRequest<FamilyIfaceBody>(VIMBRA_HERE, kRule, kIpaddrGet, reply, [&](auto& body) {
            body.wSinFamily = wSinFamily;
            CopyField(body.achIfaceName, pchIfaceName);
        });
    if (result == VIMBRA_OK) {
        u32& count = reply.tIpcAllIp.dwIpNum;
        count = std::min<u32>(count, VIMBRA_IFACE_IP_MAX);
        *ptNetIfaceIp = reply.tIpcAllIp;
    }
    return result;
}

s32 ApicMacSet(const char* pchIfaceName, const TVimbraIfaceMac* ptNetIfaceMac) {
    return SendRequest<IfaceMacBody>(VIMBRA_HERE, kRule, kMacSet, [&](auto& body) {
        CopyField(body.achIfaceName, pchIfaceName);
        body.tIfaceMac = *ptNetIfaceMac;
    });
}

s32 ApicMacGet(const char* pchIfaceName, TVimbraIfaceMac* ptNetIfaceMac) {
    TIpcMac reply = {};
    const s32 result = SendRequest<IfaceBody>(VIMBRA_HERE, kRule, kMacGet, reply, [&](auto& body) {
        CopyField(body.achIfaceName, pchIfaceName);
    });
    if (result == VIMBRA_OK) {
        *ptNetIfaceMac = reply.tIpcIfaceMac;
    }
    return result;
}

s32 ApicMtuSet(const char* pchIfaceName, u32 dwMtu) {
    return SendRequest<IfaceMtuBody>(VIMBRA_HERE, kRule, kMtuSet, [&](auto& body) {
        CopyField(body.achIfaceName, pchIfaceName);
        body.dwMtu = dwMtu;
    });
}

s32 ApicMtuGet(const char* pchIfaceName, u32* pdwMtu) {
    TIpcMtu reply = {};
    const s32 result = SendRequest<IfaceBody>(VIMBRA_HERE, kRule, kMtuGet, reply, [&](auto& body) {
        CopyField(body.achIfaceName, pchIfaceName);
    });
    if (result == VIMBRA_OK) {
        *pdwMtu = reply.dwMtu;
    }
    return result;
}

s32 VimbraIfaceGetIp(char* pchIfaceName, u16 wSinFamily, TVimbraIfaceAllIp* ptNetIfaceIp) {
    if (!CheckAllIp(VIMBRA_HERE, pchIfaceName, wSinFamily, ptNetIfaceIp)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const s32 result = ApicIpaddrGet(pchIfaceName, wSinFamily, ptNetIfaceIp);
    if (result != VIMBRA_OK) {
        // Kept: the set's name; the test is Iface.RefusalOfTheDaemonIsMinusOne.
        VLOG_ERROR("ApicIpaddrSet error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceSetIp(char* pchIfaceName, u16 wSinFamily, TVimbraIfaceAllIp* ptNetIfaceIp) {
    if (!CheckAllIp(VIMBRA_HERE, pchIfaceName, wSinFamily, ptNetIfaceIp)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptNetIfaceIp->dwIpNum > VIMBRA_IFACE_IP_MAX) {
        VLOG_ERROR("the dwIpNum %d is invalid!", static_cast<int>(ptNetIfaceIp->dwIpNum));
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    for (u32 i = 0; i < ptNetIfaceIp->dwIpNum; i++) {
        const EVimbraScopeType scope = ptNetIfaceIp->atNetIfaceIp[i].eScopeType;
        if (CheckeScopeType(scope) != VIMBRA_OK) {
            VLOG_ERROR("the eScopeType %d is invalid!", static_cast<int>(scope));
            return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
        }
    }
    const s32 result = ApicIpaddrSet(pchIfaceName, wSinFamily, ptNetIfaceIp);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicIpaddrSet error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceAddIp(char* pchIfaceName, TVimbraIfaceIp* ptNetIfaceIp) {
    if (!CheckOneIp(VIMBRA_HERE, pchIfaceName, ptNetIfaceIp)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ApicCheckIp(ptNetIfaceIp) != VIMBRA_OK) {
        VLOG_ERROR("Ip addr is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const s32 result = ApicIpaddrAdd(pchIfaceName, ptNetIfaceIp);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicIpaddrAdd error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceDelIp(char* pchIfaceName, TVimbraIfaceIp* ptNetIfaceIp) {
    if (!CheckOneIp(VIMBRA_HERE, pchIfaceName, ptNetIfaceIp)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const s32 result = ApicIpaddrDel(pchIfaceName, ptNetIfaceIp);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicIpaddrDel error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceFlushIp(char* pchIfaceName, u16 wSinFamily) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!IsFamilyOrBoth(wSinFamily)) {
        VLOG_ERROR("the wSinFamily %d is invalid!", wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const s32 result = ApicIpaddrFlush(pchIfaceName, wSinFamily);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicIpaddrFlush error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceSetMac(char* pchIfaceName, TVimbraIfaceMac* ptNetIfaceMac) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptNetIfaceMac == nullptr) {
        VLOG_ERROR("ptNetIfaceMac is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const u8* mac = ptNetIfaceMac->abyMacAddr;
    VLOG_DEBUG("pchIfaceName : %s", pchIfaceName);
    VLOG_DEBUG("mac to set : %x:%x:%x:%x:%x:%x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    const s32 result = ApicMacSet(pchIfaceName, ptNetIfaceMac);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicMacSet error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceGetMac(char* pchIfaceName, TVimbraIfaceMac* ptNetIfaceMac) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptNetIfaceMac == nullptr) {
        // Kept: the address call's words; the test is IfaceGetMac.ChecksItsArgumentsInOrder.
        VLOG_ERROR("ptNetIfaceIp is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const s32 result = ApicMacGet(pchIfaceName, ptNetIfaceMac);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicMacGet error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceSetMtu(char* pchIfaceName, u16 wSinFamily, u32 dwMtu) {
    constexpr u32 kLeastIpv4 = 500;
    constexpr u32 kLeastIpv6 = 1280;
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!IsOneFamily(wSinFamily)) {
        VLOG_ERROR("the wSinFamily %d is invalid!", wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (dwMtu < (wSinFamily == VIMBRA_FAMILY_IPV6 ? kLeastIpv6 : kLeastIpv4)) {
        VLOG_ERROR("dwMtu %d is invalid", static_cast<int>(dwMtu));
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    VLOG_DEBUG("VimbraIfaceSetMtu interface : %s, mtu : %d", pchIfaceName, static_cast<int>(dwMtu));
    const s32 result = ApicMtuSet(pchIfaceName, dwMtu);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicMtuSet error : %d!", result);
    }
    return result;
}

s32 VimbraIfaceGetMtu(char* pchIfaceName, u32* pdwMtu) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (pdwMtu == nullptr) {
        VLOG_ERROR("pdwMtu is invalid!");
        // Kept: not 1105, unlike the other calls; the test is IfaceGetMtu.MissingOutputIsMinusOne.
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const s32 result = ApicMtuGet(pchIfaceName, pdwMtu);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicMtuGet error : %d!", result);
    }
    return result;
}
