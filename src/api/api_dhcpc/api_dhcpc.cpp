#include <vimbra/dhcpc.h>
#include <vimbra/process.h>

#include <csignal>

#include "api/api_dhcpc/dhcpc_listener.hpp"
#include "lib/argument.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::dhcpc;
using namespace vimbra::wire;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kMinusOne,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kPlain,
};

s32 Send(CallSite site, u32 type, const char* name, u16 family) {
    return SendRequest<FamilyIfaceBody>(site, kRule, type, [&](auto& body) {
        body.wSinFamily = family;
        CopyField(body.achIfaceName, name);
    });
}

// The pid, 0 for none, negative on failure.
s32 ClientProcess(u16 family, const char* name) {
    char path[] = "/proc/";
    char ipv4[] = "udhcpc";
    char ipv6[] = "udhcpc6";
    return GetServicePidFromCmdline(path, family == VIMBRA_FAMILY_IPV4 ? ipv4 : ipv6,
                                    const_cast<char*>(name));
}

}  // namespace

s32 CheckFamily(u16 wSinFamily) {
    switch (wSinFamily) {
        case VIMBRA_FAMILY_IPV4:
            VLOG_PRINT("the family type is ipv4!");
            return VIMBRA_OK;
        case VIMBRA_FAMILY_IPV6:
            VLOG_PRINT("the family type is ipv6!");
            return VIMBRA_OK;
        default:
            VLOG_ERROR("the family type is not ipv4 and ipv6!");
            return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
}

s32 ApicDhcpcStart(const TDhcpcInfo* ptDhcpcInfo) {
    if (ptDhcpcInfo == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    return Send(VIMBRA_HERE, kDhcpcStart, ptDhcpcInfo->tDhcpcAddr.achDevName,
                ptDhcpcInfo->wSinfamily);
}

s32 ApicDhcpcStop(const char* pchIfaceName, u16 wSinFamily) {
    if (pchIfaceName == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    return Send(VIMBRA_HERE, kDhcpcStop, pchIfaceName, wSinFamily);
}

s32 AndoridDhcpcRenew(const char* pchIfaceName, u16 wSinFamily) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return VIMBRA_ERR_GENERAL;
    }
    return Send(VIMBRA_HERE, kDhcpcRenew, pchIfaceName, wSinFamily);
}

s32 LinuxNetDhcpcRenew(const char* pchIfaceName, u16 wSinFamily) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return VIMBRA_ERR_GENERAL;
    }
    {
        const Lock lock(g_tRecordMutex);
        const Client* const client = Find(wSinFamily, pchIfaceName);
        if (client == nullptr) {
            VLOG_ERROR("FamilyMapDhcpcInfo error!");
            return VIMBRA_ERR_GENERAL;
        }
        if (!IsStarted(client->info)) {
            VLOG_ERROR("dhcpc %d is not started!", wSinFamily);
            return VIMBRA_ERR_GENERAL;
        }
    }
    const s32 pid = ClientProcess(wSinFamily, pchIfaceName);
    if (pid == 0) {
        return VIMBRA_ERR_NO_PROCESS;
    }
    if (pid < 0) {
        VLOG_ERROR("GetPidByName error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (kill(pid, SIGUSR1) != 0) {
        VLOG_ERRNO("kill dhcp error");
        VLOG_ERROR("the dhcp pid is %d", pid);
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 LinuxNetDhcpcGetState(const char* pchIfaceName, u16 wSinFamily,
                          TVimbraDhcpcState* ptNetdhcpcIfState) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptNetdhcpcIfState == nullptr) {
        VLOG_ERROR("ptNetdhcpcIfState is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    VLOG_PRINT("the pchIfaceName : %s, the wSinFamily : %d", pchIfaceName, wSinFamily);
    const Lock service(g_tDhcpcMutex);
    const Client* const client = Lookup(wSinFamily, pchIfaceName);
    if (client == nullptr) {
        VLOG_PRINT("not find %s  family %d dhcp info!", pchIfaceName, wSinFamily);
    }
    ptNetdhcpcIfState->dwDhcpcIsRun = client != nullptr && IsStarted(client->info) ? 1 : 0;
    return VIMBRA_OK;
}

s32 VimbraDhcpcStart(const char* pchIfaceName, u16 wSinFamily,
                     VimbraDhcpcNotifyCallBack ptDhcpcCallBack) {
    VLOG_PRINT("entering......");
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptDhcpcCallBack == nullptr) {
        VLOG_ERROR("the ptDhcpcCallBack is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    Lock service(g_tDhcpcMutex);
    VLOG_PRINT("the IfaceName : %s, Family : %d", pchIfaceName, wSinFamily);
    if (Lookup(wSinFamily, pchIfaceName) != nullptr) {
        VLOG_PRINT("interface %s, family %d dhcp has been started", pchIfaceName, wSinFamily);
        LinuxNetDhcpcRenew(pchIfaceName, wSinFamily);
        return VIMBRA_OK;
    }
    VLOG_PRINT("FamilyMapDhcpcInfo fail, malloc new!");
    Client* const client = Register(VIMBRA_HERE, pchIfaceName, wSinFamily, ptDhcpcCallBack);
    if (client == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    if (!Serve(*client)) {
        VLOG_ERROR("create dhcp callback thread failed!");
        Unregister(client, service);
        return VIMBRA_ERR_GENERAL;
    }
    if (ApicDhcpcStart(&client->info) != VIMBRA_OK) {
        VLOG_ERROR("ApicDhcpcStart error!");
        Unregister(client, service);
        return VIMBRA_ERR_REFUSED;
    }
    service.Unlock();
    VLOG_PRINT("leaving......");
    return VIMBRA_OK;
}

s32 VimbraDhcpcStop(const char* pchIfaceName, u16 wSinFamily) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!IsOneFamily(wSinFamily)) {
        VLOG_ERROR("wSinFamily %d is invalid!", wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    VLOG_PRINT("the pchIfaceName : %s, the wSinFamily : %d", pchIfaceName, wSinFamily);
    Lock service(g_tDhcpcMutex);
    Client* const client = Lookup(wSinFamily, pchIfaceName);
    if (client == nullptr) {
        VLOG_ERROR("FamilyMapDhcpcInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (!IsStarted(client->info)) {
        VLOG_PRINT("find a ptDhcpcInfo object, but thread maybe not run, so remove it!");
    } else if (ApicDhcpcStop(pchIfaceName, wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ApicDhcpcStop error!");
        return VIMBRA_ERR_GENERAL;
    }
    Unregister(client, service);
    VLOG_PRINT("leaving......");
    return VIMBRA_OK;
}

s32 VimbraDhcpcRenew(const char* pchIfaceName, u16 wSinFamily) {
    return LinuxNetDhcpcRenew(pchIfaceName, wSinFamily);
}

s32 VimbraDhcpcGetIfstate(const char* pchIfaceName, u16 wSinFamily,
                          TVimbraDhcpcState* ptNetdhcpcIfState) {
    return LinuxNetDhcpcGetState(pchIfaceName, wSinFamily, ptNetdhcpcIfState);
}

s32 VimbraDhcpcGetLeaseInfo(const char* pchIfaceName, u16 wSinFamily,
                            TVimbraDhcpcAddrInfo* ptNetDhcpcLeaseInfo) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return VIMBRA_ERR_GENERAL;
    }
    if (ptNetDhcpcLeaseInfo == nullptr) {
        VLOG_ERRNO("ptNetDhcpcLeaseInfo is NULL.");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const Lock lock(g_tRecordMutex);
    const Client* const client = Find(wSinFamily, pchIfaceName);
    if (client == nullptr) {
        VLOG_ERROR("FamilyMapDhcpcInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (!IsStarted(client->info)) {
        VLOG_ERROR("dhcpc %d , interface %s ,is not started!", wSinFamily, pchIfaceName);
        return VIMBRA_ERR_GENERAL;
    }
    *ptNetDhcpcLeaseInfo = client->info.tDhcpcAddr;
    return VIMBRA_OK;
}
