#include <vimbra/iface_check.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <array>

#include "lib/base/shared_function.hpp"
#include "lib/base/text.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

static_assert(sizeof(TConnNotify) == 16);

SharedFunction<TPppoeCallBack> g_tNetPppoeNotifyCallBack;

// By the number that the event has now; the service tells of no others.
constexpr u32 kEvents[] = {0,
                           NET_PPPOE_EVENT_CONNECTED,
                           NET_PPPOE_EVENT_2,
                           NET_PPPOE_EVENT_3,
                           NET_PPPOE_EVENT_4,
                           NET_PPPOE_EVENT_STOPPED};
static_assert(std::size(kEvents) == VIMBRA_PPPOE_EVENT_STOPPED + 1);

TConnNotify ToNotify(const TVimbraPppoeAddr& addr) {
    return {addr.tOurIpaddr.tV4Addr.s_addr, addr.tPeerIpAddr.tV4Addr.s_addr,
            addr.tDnsServer1.tV4Addr.s_addr, addr.tDnsServer2.tV4Addr.s_addr};
}

void PrivatePppoeCallBack(u32 dwMsgID, void* msg, u32) {
    const TPppoeCallBack callback = g_tNetPppoeNotifyCallBack.Get();
    if (callback == nullptr) {
        return;
    }
    if (dwMsgID == VIMBRA_PPPOE_EVENT_CONNECTED) {
        TConnNotify notify = ToNotify(*static_cast<const TVimbraPppoeAddr*>(msg));
        callback(NET_PPPOE_EVENT_CONNECTED, &notify, sizeof(notify));
    } else {
        callback(kEvents[dwMsgID], nullptr, 0);
    }
}

TVimbraPppoeParam ToParam(const TPppoeInitParam& init) {
    TVimbraPppoeParam param = {};
    CopyText(param.achUserName, sizeof(param.achUserName), init.abyUserName);
    CopyText(param.achPassword, sizeof(param.achPassword), init.abyPassword);
    CopyText(param.achServerName, sizeof(param.achServerName), init.abyServerName);
    param.bAutoDialEnable = init.bAutoDialEnable;
    param.bDefaultRouteEnable = init.bDefaultRouteEnable;
    param.bDebug = init.bDebug;
    param.dwAutoDialInterval = init.dwAutoDialInterval;
    param.wDialRetryTimes = init.wDialRetryTimes;
    param.wLcpEchoSendInterval = init.wLcpEchoSendInterval;
    param.wLcpEchoRetryTimes = init.wLcpEchoRetryTimes;
    // Without such an interface the name stays empty, which the start refuses.
    interface_name(init.dwEthID, param.achDevName, sizeof(param.achDevName));
    return param;
}

}  // namespace

s32 NetPppoeStart(TPppoeInitParam* ptPppoeInitParam, TPppoeCallBack ptNotifyCallBack) {
    TVimbraPppoeParam param = {};
    if (ptPppoeInitParam != nullptr) {
        param = ToParam(*ptPppoeInitParam);
    }
    g_tNetPppoeNotifyCallBack.Set(ptNotifyCallBack);
    if (VimbraPppoeStart(ptPppoeInitParam != nullptr ? &param : nullptr, VIMBRA_FAMILY_IPV4,
                         PrivatePppoeCallBack) != VIMBRA_OK) {
        VLOG_ERROR("VimbraPppoeStart error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 NetPppoeStop() {
    // First: an application gets no event for its own stop.
    g_tNetPppoeNotifyCallBack.Set(nullptr);
    return VimbraPppoeStop("", VIMBRA_FAMILY_IPV4);
}

s32 NetPppoeVer(TVersion* ptVersion) {
    TVimbraVersion version = {};
    const s32 result = VimbraPppoeVer(ptVersion != nullptr ? &version : nullptr);
    if (result == VIMBRA_OK) {
        CopyText(ptVersion->abyVersion, sizeof(ptVersion->abyVersion), version.achVersion);
    }
    return result;
}
