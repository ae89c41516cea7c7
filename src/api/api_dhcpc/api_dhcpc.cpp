#include <vimbra/dhcpc.h>
#include <vimbra/process.h>
#include <vimbra/thread.h>

#include <csignal>
#include <cstdio>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "api/forget.hpp"
#include "lib/argument.hpp"
#include "lib/base/lock.hpp"
#include "lib/base/memory.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/ipc/record.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

template <>
inline constexpr auto vimbra::kFamilyField<TDhcpcInfo> = &TDhcpcInfo::wSinfamily;
template <>
inline constexpr auto vimbra::kStartedField<TDhcpcInfo> = &TDhcpcInfo::bDhcpcStarted;

TDhcpcInfo* g_ptApiDhcpCInfo = nullptr;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kMinusOne,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kPlain,
};

// A client with what only the library knows of it. Every record of the list is the beginning of
// one.
struct Client {
    TDhcpcInfo info;
    ListenerSlot listener;
    char socketName[sizeof(kDhcpcSocketIpv6) + VIMBRA_IFACE_NAME_LEN + 1];
    u32 lastReported;  // the listener's
    Client* known;     // next in g_ptClients

    // Guarded by g_tRecordMutex. The memory is given back when neither holds it any more.
    bool isKept;    // by the list; also after it fell out of it, see Remove()
    bool isServed;  // by its listener
    bool isLost;    // fell out of the list
    bool isHead;    // one of the two records that no lookup finds
};
static_assert(offsetof(Client, info) == 0);

// Serialises start, stop, state and the callback. The calls that may be made from the callback do
// without it.
pthread_mutex_t g_tDhcpcMutex = PTHREAD_MUTEX_INITIALIZER;

// Guards the list, the records' contents and their lives; never held while anything is waited for.
// Taken after g_tDhcpcMutex where both are.
pthread_mutex_t g_tRecordMutex = PTHREAD_MUTEX_INITIALIZER;

// All clients that are not freed, those that fell out of the list too.
Client* g_ptClients = nullptr;

Client* ClientOf(TDhcpcInfo* info) {
    return reinterpret_cast<Client*>(info);
}

// ---- Records -----------------------------------------------------------------------------------
// With g_tRecordMutex held, where nothing else is said.

Client* NewClient(const CallSite& site) {
    auto* client = NewZeroed<Client>();
    if (client == nullptr) {
        LogErrnoAt(site, "XMALLOC error");
        return nullptr;
    }
    client->isKept = true;
    client->known = g_ptClients;
    g_ptClients = client;
    return client;
}

void FreeIfUnused(Client* client) {
    if (client->isKept || client->isServed) {
        return;
    }
    Client** link = &g_ptClients;
    while (*link != client) {
        link = &(*link)->known;
    }
    *link = client->known;
    free(client);
}

void Append(Client& client) {
    TDhcpcInfo** link = &g_ptApiDhcpCInfo;
    while (*link != nullptr) {
        link = &(*link)->ptNext;
    }
    *link = &client.info;
}

// Kept: the search moves the head itself, so that afterwards the list begins with the predecessor
// of the record that was removed, and is empty if that was the first; the test is
// Dhcpc.StoppingMovesTheHead.
void Remove(Client& client) {
    TDhcpcInfo*& head = g_ptApiDhcpCInfo;
    if (head == &client.info) {
        head = head->ptNext;
    }
    while (head != nullptr && head->ptNext != &client.info) {
        ClientOf(head)->isLost = true;
        head = head->ptNext;
    }
    if (head != nullptr) {
        head->ptNext = client.info.ptNext;
    }
}

Client* Find(u16 family, const char* name) {
    constexpr char kFunction[] = "FamilyMapDhcpcInfoExt";
    if (g_ptApiDhcpCInfo == nullptr) {
        VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "no exist dhcp info!");
        return nullptr;
    }
    for (TDhcpcInfo* info = g_ptApiDhcpCInfo; info != nullptr; info = info->ptNext) {
        const char* own = info->tDhcpcAddr.achDevName;
        VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "interface = %.16s, family = %d", own,
                      info->wSinfamily);
        if (info->wSinfamily == family && strncmp(own, name, VIMBRA_IFACE_NAME_LEN) == 0 &&
            !ClientOf(info)->isHead) {
            return ClientOf(info);
        }
    }
    VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "the family %d,iface is %s , not found!", family,
                  name);
    return nullptr;
}

// Without the lock. With g_tDhcpcMutex held the client stays: only its holder removes one.
Client* Lookup(u16 family, const char* name) {
    const Lock lock(g_tRecordMutex);
    return Find(family, name);
}

// Without the lock. The client is not the caller's any more.
void Release(Client* client, bool Client::*holder) {
    const Lock lock(g_tRecordMutex);
    client->*holder = false;
    FreeIfUnused(client);
}

// A client that fell out of the list cannot be stopped. Once another has taken over its socket
// nobody reaches it either: its thread ends at its next time-out.
void EndSuperseded(const Client& by) {
    Client* next = g_ptClients;
    while (next != nullptr) {
        Client* const client = next;
        next = client->known;
        if (client->isLost && !client->isHead && strcmp(client->socketName, by.socketName) == 0) {
            client->isKept = false;
            SetStarted(client->info, false);
            FreeIfUnused(client);
        }
    }
}

Client* NewRegistered(const CallSite& site, const char* name, u16 family,
                      VimbraDhcpcNotifyCallBack callback) {
    const Lock lock(g_tRecordMutex);
    Client* const client = NewClient(site);
    if (client == nullptr) {
        return nullptr;
    }
    CopyField(client->info.tDhcpcAddr.achDevName, name);
    client->info.pfNetDhcpcNotifyCallBack = callback;
    client->info.wSinfamily = family;
    snprintf(client->socketName, sizeof(client->socketName), "%s_%s",
             IsIpv4(client->info) ? kDhcpcSocketIpv4 : kDhcpcSocketIpv6, name);
    Append(*client);
    return client;
}

// Without the lock. What follows on a start that failed and on a stop: the listener, if there still
// is one, ends at its next time-out.
void Unregister(Client* client, Lock& service) {
    {
        const Lock lock(g_tRecordMutex);
        Remove(*client);
    }
    service.Unlock();
    SetStarted(client->info, false);
    Release(client, &Client::isKept);
}

// ---- The listening thread ----------------------------------------------------------------------

Client& ServedBy(const Listener& listener) {
    return *static_cast<Client*>(listener.Argument());
}

Next Begin(Listener& listener) {
    ThreadDetach(pthread_self());
    const Client& client = ServedBy(listener);
    if (!IsIpv4(client.info)) {
        VLOG_PRINT_AT(listener.At(__LINE__), "server_path %s", client.socketName);
    }
    return Next::kGoOn;
}

void BoundTo(Listener& listener, Bound bound) {
    if (bound != Bound::kListening) {
        return;
    }
    Client& client = ServedBy(listener);
    SetStarted(client.info, true);
    const Lock lock(g_tRecordMutex);
    EndSuperseded(client);
}

void Call(Client& client, u32 event) {
    client.info.pfNetDhcpcNotifyCallBack(event, &client.info.tDhcpcAddr);
}

Next TakeReport(Listener& listener, Message& message) {
    Client& client = ServedBy(listener);
    const Lock service(g_tDhcpcMutex);
    {
        // All of it, the name too: the client is known by the name of its last report.
        const Lock lock(g_tRecordMutex);
        client.info.tDhcpcAddr = message.As<TVimbraDhcpcAddrInfo>();
    }
    switch (message.head.type) {
        case kDhcpcLease:
            client.lastReported = kDhcpcLease;
            Call(client, VIMBRA_DHCPC_EVENT_LEASE);
            break;
        case kDhcpcFail:
            if (client.lastReported == kDhcpcFail) {
                VLOG_PRINT_AT(listener.At(__LINE__), "dhcp fail,do not report up layer again");
                break;
            }
            client.lastReported = kDhcpcFail;
            Call(client, VIMBRA_DHCPC_EVENT_FAIL);
            break;
        default:
            VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", message.head.type);
            break;
    }
    return Next::kGoOn;
}

Next LookIfStopped(Listener& listener) {
    const Client& client = ServedBy(listener);
    if (!IsIpv4(client.info)) {
        VLOG_PRINT_AT(listener.At(__LINE__), "wait time out!");
    }
    if (IsStarted(client.info)) {
        return Next::kGoOn;
    }
    const Lock lock(g_tRecordMutex);
    VLOG_PRINT_AT(listener.At(__LINE__), "thread will exit, interface %.16s, family %d",
                  client.info.tDhcpcAddr.achDevName, client.info.wSinfamily);
    return Next::kEnd;
}

void HasEnded(Listener& listener, Ended) {
    Client* const client = static_cast<Client*>(listener.Argument());
    listener.Release();  // Its slot goes with the record.
    SetStarted(client->info, false);
    Release(client, &Client::isServed);
}

constexpr int kTimeOut = 10;

constexpr ListenerService Service(const char* function, const char* threadName, Next onShortRead,
                                  const char* wrongSize) {
    return {
        .function = function,
        .threadName = threadName,
        .detached = false,  // It detaches itself as its first step.
        .bodySize = sizeof(TVimbraDhcpcAddrInfo),
        .tickSeconds = kTimeOut,
        .waitText = "select error",
        .outOfMemory = {"XMALLOC error", FailureRule::kErrno, Next::kEnd},
        .shortRead = {"read message error", FailureRule::kErrno, onShortRead},
        .wrongSize = {wrongSize, FailureRule::kPlain, Next::kGoOn},
        .begin = Begin,
        .bound = BoundTo,
        .message = TakeReport,
        .tick = LookIfStopped,
        .ended = HasEnded,
    };
}

constexpr ListenerService kIpv4 =
    Service("DhcpcCBThreadV4", "VimbraDhcpcCBThreadV4", Next::kEnd, "the read data is too long!");
constexpr ListenerService kIpv6 = Service("DhcpcCBThreadV6", "VimbraDhcpcCBThreadV6", Next::kGoOn,
                                          "the sended data is too long!");

// True when the client's listener was started, even if it has ended since.
bool Serve(Client& client) {
    client.isServed = true;
    if (StartListener(IsIpv4(client.info) ? kIpv4 : kIpv6, client.listener,
                      {.argument = &client,
                       .socketName = client.socketName,
                       .handle = &client.info.DhcpcThreadID})) {
        return true;
    }
    client.isServed = false;
    return false;
}

// ---- Requests ----------------------------------------------------------------------------------

s32 Send(const CallSite& site, u32 type, const char* name, u16 family) {
    Request<FamilyIfaceBody> request(site, kRule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->wSinFamily = family;
    CopyField(request->achIfaceName, name);
    return request.Send(type);
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

void DhcpcInit() {
    const Lock lock(g_tRecordMutex);
    Client* const first = NewClient(VIMBRA_HERE);
    if (first == nullptr) {
        return;
    }
    first->isHead = true;
    first->info.ptNext = g_ptApiDhcpCInfo;
    g_ptApiDhcpCInfo = &first->info;
    Client* const second = NewClient(VIMBRA_HERE);
    if (second == nullptr) {
        return;
    }
    second->isHead = true;
    second->info.ptNext = first->info.ptNext;
    first->info.ptNext = &second->info;
}

// The heads of the list stay. A callback that has forked returns to its listener, which still looks
// at its client.
void vimbra::ForgetDhcpClients() {
    g_tDhcpcMutex = PTHREAD_MUTEX_INITIALIZER;
    g_tRecordMutex = PTHREAD_MUTEX_INITIALIZER;
    Client* next = g_ptClients;
    g_ptClients = nullptr;
    g_ptApiDhcpCInfo = nullptr;
    while (next != nullptr) {
        Client* const client = next;
        next = client->known;
        if (!client->isHead && !(client->isServed && OnListenerThread())) {
            free(client);
            continue;
        }
        client->known = g_ptClients;
        g_ptClients = client;
        client->isKept = client->isHead;
        client->isLost = false;
        SetStarted(client->info, false);
        if (client->isHead) {
            client->info.ptNext = g_ptApiDhcpCInfo;
            g_ptApiDhcpCInfo = &client->info;
        }
    }
}

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

TDhcpcInfo* FamilyMapDhcpcInfoExt(u16 wSinFamily, const char* pchIfaceName) {
    if (pchIfaceName == nullptr) {
        return nullptr;
    }
    Client* const client = Lookup(wSinFamily, pchIfaceName);
    return client != nullptr ? &client->info : nullptr;
}

TDhcpcInfo* FamilyMapDhcpcInfo(u16 wSinFamily) {
    const Lock lock(g_tRecordMutex);
    TDhcpcInfo* info = g_ptApiDhcpCInfo;
    for (int i = 0; i < 2 && info != nullptr; i++, info = info->ptNext) {
        if (info->wSinfamily == wSinFamily) {
            return info;
        }
    }
    return nullptr;
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
    Client* const client = NewRegistered(VIMBRA_HERE, pchIfaceName, wSinFamily, ptDhcpcCallBack);
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
