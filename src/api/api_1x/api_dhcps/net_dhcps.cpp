#include <vimbra/net_dhcps.h>
#include <vimbra/thread.h>

#include "api/api_1x/api_dhcps/inotify_utils.hpp"
#include "api/api_1x/api_dhcps/leases.hpp"
#include "api/api_1x/legacy.hpp"
#include "api/api_dhcps/api_dhcps.hpp"
#include "lib/failure.hpp"

using namespace vimbra;

namespace {

TVimbraDhcpsInfo Pool(const TDhcpServerEthInfo& eth, const TDhcpServerDnsInfo& dns) {
    TVimbraDhcpsInfo pool = {};
    pool.tIpPoolStart = Ipv4(eth.dwIpPoolStart);
    pool.tIpPoolEnd = Ipv4(eth.dwIpPoolEnd);
    pool.dwIpPoolPrefix = eth.dwNetMask;
    pool.tRoutes = Ipv4(eth.dwRoutes);
    pool.tIfaceIp = Ipv4(eth.dwEthIp);
    pool.dwIfacePrefix = eth.dwSubNetMask;
    if (dns.IsAssignDns != 0) {
        pool.tDnsServerInfo.dwDnsNum = 1;
        pool.tDnsServerInfo.tDnsIp[0] = Ipv4(dns.dwDnsIp);
    }
    return pool;
}

// Kept: without a thread the start goes on without a watcher; the test is
// Memory.LegacyDhcpServerStartsWithoutAWatcher.
void SpawnWatcher() {
    constexpr int kStackSize = 0x200000;
    constexpr int kPriority = 5;
    static char name[] = "VimbraDhcpsCBThread";
    ThreadSpawn(name, VimbraDhcpsCBThread, nullptr, kStackSize, 0, kPriority);
}

}  // namespace

s32 NetDhcpsStart(TDhcpServerConfInfo* ptDhcpServerConfInfo, NetDhcpsNotifyCallBack pfCallBack) {
    if (ptDhcpServerConfInfo == nullptr) {
        VLOG_ERROR("ptDhcpServerConfInfo is NULL");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const TDhcpServerEthInfo& eth = ptDhcpServerConfInfo->achTDhcpServerEthInfo[0];
    EthName name(eth.dwEthId);
    TVimbraDhcpsInfo pool = Pool(eth, ptDhcpServerConfInfo->tTDhcpServerDnsInfo);
    if (pfCallBack != nullptr) {
        StoreDhcpsCallBack(pfCallBack);
    }
    SpawnWatcher();
    return VimbraDhcpsStart(name.text, VIMBRA_FAMILY_IPV4, &pool);
}

s32 NetDhcpsStopOneEth(u32 dwEthId) {
    EthName name(dwEthId);
    return VimbraDhcpsStop(name.text, VIMBRA_FAMILY_IPV4);
}

s32 NetDhcpsGetState(u32 dwEthId, TNetDhcpsState* ptNetdhcpsState) {
    return OnInterface(VIMBRA_HERE, dwEthId, "interface_name failed", [=](char* name) {
        TVimbraDhcpsState state = {};
        const s32 result = VimbraDhcpsGetState(name, VIMBRA_FAMILY_IPV4,
                                               ptNetdhcpsState != nullptr ? &state : nullptr);
        if (result == VIMBRA_OK) {
            ptNetdhcpsState->dwDhcpsIsRun = state.dwDhcpsIsRun;
        }
        return result;
    });
}

s32 NetDhcpsStop() {
    if (ApicDhcpsStopAll() != VIMBRA_OK) {
        VLOG_ERROR("DHCPS client stop all eth error!¥n");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}
