#include <vimbra/net_dhcpc.h>

#include <algorithm>

#include "api/api_1x/legacy.hpp"
#include "lib/base/shared_function.hpp"

using namespace vimbra;

namespace {

// Kept: the renewal's name for all three calls; the test is NetDhcpc.OtherCallsKnowThreeNumbers.
constexpr char kNamingFailed[] = "NetDhcpcRenew interface_name failed";

SharedFunction<NetDhcpcNotifyCallBack> g_NetDhcpcNotifyCallBack;

static_assert(sizeof(TNetDhcpcNotify) == 276);
static_assert(sizeof(TNetDhcpcState) == sizeof(TVimbraDhcpcState));
static_assert(sizeof(TNetDhcpcLeaseBuffer) >= sizeof(TVimbraDhcpcAddrInfo));

// There are no other events than a lease and a failure.
int PrivateDhcpcNotifyCallBack(u32 dwMsgID, VimbraDhcpcAddrInfo* ptInfo) {
    const NetDhcpcNotifyCallBack callback = g_NetDhcpcNotifyCallBack.Get();
    if (callback == nullptr) {
        return 0;
    }
    TNetDhcpcNotify notify = {};  // byEthId stays 0: the application never learnt the interface.
    notify.dwIpAddrs = ptInfo->tIpAddrs.tV4Addr.s_addr;
    notify.dwMask = ptInfo->dwIpPrefix;
    notify.dwGateWay = ptInfo->tGateWay.tV4Addr.s_addr;
    notify.dwDnsNum = std::min<u32>(u32{ptInfo->dwDnsNum}, VIMBRA_DHCPC_DNS_MAX);
    for (u32 i = 0; i < notify.dwDnsNum; i++) {
        notify.dwDnsServer[i] = ptInfo->atDnsServer[i].tV4Addr.s_addr;
    }
    callback(dwMsgID, &notify);
    return 0;
}

}  // namespace

s32 NetDhcpcStart(u32 byEthId, NetDhcpcNotifyCallBack ptDhcpcCallBack, vimbra_bool) {
    g_NetDhcpcNotifyCallBack.Set(ptDhcpcCallBack);
    return VimbraDhcpcStart(EthName(byEthId).text, VIMBRA_FAMILY_IPV4, PrivateDhcpcNotifyCallBack);
}

s32 NetDhcpcStop(u32 byEthId) {
    return VimbraDhcpcStop(EthName(byEthId).text, VIMBRA_FAMILY_IPV4);
}

s32 NetDhcpcRenew(u32 byEthId) {
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed,
                       [](char* name) { return VimbraDhcpcRenew(name, VIMBRA_FAMILY_IPV4); });
}

s32 NetDhcpcGetLeaseInfo(u32 byEthId, TNetDhcpcLeaseInfo* ptNetDhcpcLeaseInfo) {
    // Not converted: applications find the current record in their memory.
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed, [=](char* name) {
        return VimbraDhcpcGetLeaseInfo(
            name, VIMBRA_FAMILY_IPV4, reinterpret_cast<TVimbraDhcpcAddrInfo*>(ptNetDhcpcLeaseInfo));
    });
}

s32 NetDhcpcGetIfstate(u32 byEthId, TNetDhcpcState* ptNetdhcpcIfState) {
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed, [=](char* name) {
        return VimbraDhcpcGetIfstate(name, VIMBRA_FAMILY_IPV4,
                                     reinterpret_cast<TVimbraDhcpcState*>(ptNetdhcpcIfState));
    });
}
