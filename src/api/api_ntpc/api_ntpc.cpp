#include "api/api_ntpc/api_ntpc.hpp"

#include <sys/sem.h>
#include <vimbra/iface_check.h>
#include <vimbra/ntpc.h>
#include <vimbra/semaphore.h>

#include "api/api_ntpc/ntpc_wire.hpp"
#include "api/forget.hpp"
#include "lib/argument.hpp"
#include "lib/base/lock.hpp"
#include "lib/ipc/families.hpp"
#include "lib/ipc/request.hpp"
#include "lib/ipc/semaphore.hpp"

using namespace vimbra;
using namespace vimbra::wire;

template <>
inline constexpr auto vimbra::kFamilyField<TNtpcInfo> = &TNtpcInfo::wSinFamiy;
template <>
inline constexpr auto vimbra::kStartedField<TNtpcInfo> = &TNtpcInfo::bNtpcStarted;

TNtpcInfo* g_ptApiNtpCInfo = nullptr;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid : %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

constexpr RequestRule kStopRule = {
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

using Client = FamilyRecord<TNtpcInfo>;
FamilyTable<TNtpcInfo, 2>* g_ptClients = nullptr;

// Held by start and stop all the time, but for the wait for a listener's end: its callback may be
// in a call that wants it.
pthread_mutex_t g_tNtpcMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_tEnded = PTHREAD_COND_INITIALIZER;

constexpr key_t kSemaphoreKey = 7783;
int ntpc_sem_id = -1;
StartSemaphore g_tSemaphore(ntpc_sem_id);

// With the lock held.
Client* FamilyMapNtpcInfo(u16 wSinFamily) {
    static constexpr LookupWords kWords = {
        "the vimbra is not init!",
        VIMBRA_TAG_ERR "the sinfamily %d is invalid!",
    };
    return FindFamily(VIMBRA_HERE, kWords, g_ptClients, wSinFamily);
}

// With the lock held: the client of a family when no stop of it is under way any more. A callback
// cannot wait for that, since it may be what the stop waits for.
Client* AwaitClient(u16 family) {
    Client* const client = FamilyMapNtpcInfo(family);
    while (client != nullptr && client->isStopping && !OnListenerThread()) {
        pthread_cond_wait(&g_tEnded, &g_tNtpcMutex);
    }
    return client;
}

// ---- The listening thread ----------------------------------------------------------------------

// From here the starter may go on.
void BoundTo(Listener&, Bound) {
    g_tSemaphore.Give();
}

Next TakeReport(Listener& listener, Message& message) {
    const u32 type = message.head.type;
    if (type != kNtpcReport1 && type != kNtpcReport2) {
        VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", type);
        return Next::kGoOn;
    }
    // The application does not learn the size: a shorter report than it expects is followed by
    // room.
    alignas(8) u8 report[VIMBRA_NTPC_REPORT_MAX] = {};
    memcpy(report, message.body, message.bodySize);
    const auto& info = static_cast<Client*>(listener.Argument())->info;
    const VimBraNtpcSyncTimeCallBack callback =
        __atomic_load_n(&info.pfNtpcNotifyCallBack, __ATOMIC_ACQUIRE);
    callback(type == kNtpcReport1 ? VIMBRA_NTPC_EVENT_1 : VIMBRA_NTPC_EVENT_2, report);
    return Next::kGoOn;
}

constexpr ListenerService Service(const char* function, const char* threadName,
                                  const char* socketName, const char* outOfMemory) {
    return {
        .function = function,
        .threadName = threadName,
        .socketName = socketName,
        .detached = false,
        .bodySize = VIMBRA_NTPC_REPORT_MAX,
        .reading = Reading::kHeadThenBody,
        .acceptFailure = AcceptFailure::kMayBePassing,
        .outOfMemory = {outOfMemory, FailureRule::kErrno, Next::kEnd},
        .shortRead = {"read ntpc message head error", FailureRule::kPlain, Next::kEnd},
        .shortBody = {"read ntpc message body error", FailureRule::kPlain, Next::kEnd},
        .bodyTooLong = {"the ntpc message body is too long!", FailureRule::kPlain, Next::kGoOn},
        .bound = BoundTo,
        .message = TakeReport,
    };
}

constexpr ListenerService kIpv4 =
    Service("NtpcCBThread", "VimbraNtpcCBThread", kNtpcSocketIpv4, "XMALLOC MTYPE_API_NTPC");
// Says nothing when memory is out.
constexpr ListenerService kIpv6 =
    Service("NtpcCBThreadV6", "VimbraNtpcCBThreadV6", kNtpcSocketIpv6, nullptr);

// Ends the client's listener; the lock is given up while it is waited for.
void EndListener(CallSite site, Client& client) {
    const ListenerStop stop = KillListener(client.listener);
    if (stop.result != 0) {
        VLOG_ERROR_AT(site, "ntpc ThreadKill error!");
    }
    client.isStopping = true;
    pthread_mutex_unlock(&g_tNtpcMutex);
    WaitListener(stop);
    pthread_mutex_lock(&g_tNtpcMutex);
    client.isStopping = false;
    pthread_cond_broadcast(&g_tEnded);
}

// ---- Requests ----------------------------------------------------------------------------------

s32 ApicNtpcStart(const TVimbraAddr& server, u32 interval) {
    return SendRequest<NtpcStartBody>(VIMBRA_HERE, kRule, kNtpcStart, [&](auto& body) {
        body.wSinFamily = server.wSinFamily;
        body.tServerIp = server;
        body.dwSyncTimeInterval = interval;
    });
}

s32 ApicNtpcStop(u16 family) {
    return SendRequest<NtpcStopBody>(VIMBRA_HERE, kStopRule, kNtpcStop,
                                     [&](auto& body) { body.wSinFamily = family; });
}

s32 ApicNtpcSerCheck(const TVimbraAddr& server) {
    return SendRequest<TVimbraAddr>(VIMBRA_HERE, kRule, kNtpcCheck,
                                    [&](auto& body) { body = server; });
}

}  // namespace

void NtpcInit() {
    const Lock lock(g_tNtpcMutex);
    if (g_ptClients != nullptr) {
        return;
    }
    g_ptClients = NewFamilies<TNtpcInfo>({VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6});
    if (g_ptClients == nullptr) {
        VLOG_ERRNO("XMALLOC error");
        return;
    }
    g_ptApiNtpCInfo = &g_ptClients->of[0].info;
    ntpc_sem_id = semget(kSemaphoreKey, 1, IPC_CREAT | 0666);
    set_semvalue(ntpc_sem_id);
}

void vimbra::ForgetNtpClients() {
    g_tNtpcMutex = PTHREAD_MUTEX_INITIALIZER;
    g_tEnded = PTHREAD_COND_INITIALIZER;
    g_tSemaphore.Forget();
    if (g_ptClients != nullptr) {
        ForgetFamilies(*g_ptClients);
    }
}

s32 VimbraNtpcStart(TVimbraAddr tServerIp, u32 dwSyncTimeInterval,
                    VimBraNtpcSyncTimeCallBack ptCallBack) {
    if (ptCallBack == nullptr) {
        VLOG_ERROR("the ntpc callback function is null!");
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    const Lock lock(g_tNtpcMutex);
    Client* const client = AwaitClient(tServerIp.wSinFamily);
    if (client == nullptr) {
        VLOG_ERROR("FamilyMapNtpcInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (IsStarted(client->info)) {
        VLOG_ERROR("ntpc-Client is already started");
        return VIMBRA_ERR_GENERAL;
    }
    if (IsIpv4(client->info) && check_ip(tServerIp.tV4Addr.s_addr) == VIMBRA_IP_CLASS_OTHER) {
        VLOG_ERROR("tServerIp ip is invaild");
        return VIMBRA_ERR_GENERAL;
    }
    __atomic_store_n(&client->info.pfNtpcNotifyCallBack, ptCallBack, __ATOMIC_RELEASE);
    g_tSemaphore.Take();
    if (!StartListener(IsIpv4(client->info) ? kIpv4 : kIpv6, client->listener,
                       {.argument = client, .handle = &client->info.tNtpcThreadID})) {
        // Kept: the semaphore stays taken; the test is Ntpc.SemaphoreStaysTakenWithoutThread.
        g_tSemaphore.Forget();
        VLOG_ERROR("create ntpc callback thread failed!");
        return VIMBRA_ERR_GENERAL;
    }
    g_tSemaphore.Take();
    g_tSemaphore.Give();
    if (ApicNtpcStart(tServerIp, dwSyncTimeInterval) != VIMBRA_OK) {
        VLOG_ERROR("ntpc client start error!");
        EndListener(VIMBRA_HERE, *client);
        return VIMBRA_ERR_GENERAL;
    }
    SetStarted(client->info, true);
    return VIMBRA_OK;
}

s32 VimbraNtpcStop(u16 wSinFamily) {
    const Lock lock(g_tNtpcMutex);
    Client* const client = AwaitClient(wSinFamily);
    if (client == nullptr) {
        VLOG_ERROR("FamilyMapNtpcInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (!IsStarted(client->info)) {
        VLOG_PRINT("ntpc-Client is already stoped");
        return VIMBRA_OK;
    }
    if (ApicNtpcStop(wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ntpc client stop error!");
        return VIMBRA_ERR_GENERAL;
    }
    SetStarted(client->info, false);
    EndListener(VIMBRA_HERE, *client);
    return VIMBRA_OK;
}

s32 VimbraNtpcSerCheck(TVimbraAddr tServerIp) {
    if (!IsOneFamily(tServerIp.wSinFamily)) {
        VLOG_ERROR("sinFamily  %d is not support !", tServerIp.wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (ApicNtpcSerCheck(tServerIp) != VIMBRA_OK) {
        VLOG_ERROR("ntpc check error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}
