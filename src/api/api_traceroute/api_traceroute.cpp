#include "api/api_traceroute/api_traceroute.hpp"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <vimbra/msg_queue.h>
#include <vimbra/semaphore.h>

#include "api/api_traceroute/traceroute_wire.hpp"
#include "api/forget.hpp"
#include "lib/argument.hpp"
#include "lib/base/lock.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/ipc/request.hpp"
#include "lib/ipc/semaphore.hpp"
#include "lib/ipc/slots.hpp"

using namespace vimbra;
using namespace vimbra::wire;

TTraceRtInfo* g_ptApiTracerouteInfo = nullptr;

namespace {

constexpr key_t kSemaphoreKey = 7784;
constexpr key_t kQueueKey = 3328;

pthread_mutex_t g_tTraceRtMutex = PTHREAD_MUTEX_INITIALIZER;
int tracert_sem_id = -1;
StartSemaphore g_tSemaphore(tracert_sem_id);

using TraceSlot = Slot<TTraceRtInfo>;
using Traces = Runs<TTraceRtInfo, g_tTraceRtMutex, ClearTraceRtInfo>;

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet = %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid = %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kPlain,
    "XMALLOC error!",
};

// The starter, which waits for it, may go on: the socket is served, or never will be.
void ReleaseStarter(Listener&, Bound) {
    g_tSemaphore.Give();
}

// Null when the trace was stopped. Records of other traces are taken too: all traces share one
// socket, and the callback looks at the record's user id.
TVimbraTracerouteCallBack CallbackOf(Listener& listener) {
    const Lock lock(g_tTraceRtMutex);
    if (!listener.IsCurrent()) {
        return nullptr;
    }
    return static_cast<const TraceSlot*>(listener.Argument())->info.ptCallBackFunc;
}

Next TakeHop(Listener& listener, Message& message) {
    auto hop = message.As<TVimbraTracerouteCBInfo>();
    const TVimbraTracerouteCallBack callback = CallbackOf(listener);
    if (callback == nullptr) {
        return Next::kEnd;
    }
    const s32 user = hop.nUserId;
    const bool isOver = hop.nIsOver != 0;
    const u32 event = message.head.type;
    if (event >= kTracerouteFirstEvent && event <= kTracerouteLastEvent) {
        callback(static_cast<s32>(event), &hop);
    } else {
        VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", event);
    }
    if (!isOver) {
        return Next::kGoOn;
    }
    VLOG_PRINT_AT(listener.At(__LINE__), "the user %d traceroute is over!", user);
    return Next::kEnd;
}

constexpr ListenerService kService = {
    .function = "TraceRtCBThread",
    .threadName = "VimbraTraceRtCBThread",
    .socketName = kTracerouteSocket,
    .bodySize = sizeof(TVimbraTracerouteCBInfo),
    .connections = Connections::kKeep,
    .outOfMemory = {"XMALLOC error", FailureRule::kErrno, Next::kEnd},
    .shortRead = {"read message error", FailureRule::kErrno, Next::kEnd},
    .wrongSize = {"the sended data is too long!", FailureRule::kPlain, Next::kEnd},
    .bound = ReleaseStarter,
    .message = TakeHop,
    .ended = Traces::ListenerEnded,
};

TraceSlot* FindBusy(s32 nUserID) {
    return FindBusySlot(g_ptApiTracerouteInfo,
                        [nUserID](const TTraceRtInfo& info) { return info.nUserId == nUserID; });
}

// Starts the listener and waits until it serves its socket; one start at a time on the whole
// machine. With the registry locked.
bool StartBound(TraceSlot& slot) {
    g_tSemaphore.Take();
    if (!StartListener(kService, slot.listener,
                       {.argument = &slot, .handle = &slot.info.tThreadId})) {
        VLOG_ERROR_AT((CallSite{"VimbraTracerouteStart", __LINE__}),
                      "create traceroute callback thread failed!");
        g_tSemaphore.Give();
        return false;
    }
    g_tSemaphore.Take();
    g_tSemaphore.Give();
    return true;
}

s32 SendStop(CallSite site, s32 nUserID) {
    return SendRequest<TracerouteStopBody>(site, kRule, kTracerouteStop,
                                           [&](auto& body) { body.nUserID = nUserID; });
}

}  // namespace

void TracerouteInit() {
    if (!BuildSlots(g_ptApiTracerouteInfo, VIMBRA_TRACEROUTE_MAX, SetUpUserRun<TTraceRtInfo>)) {
        VLOG_ERRNO("XMALLOC error");
        return;
    }
    tracert_sem_id = semget(kSemaphoreKey, 1, IPC_CREAT | 0666);
    set_semvalue(tracert_sem_id);
}

void ClearTraceRtInfo(TTraceRtInfo* ptTraceRtInfo) {
    ClearUserRun(*SlotOf(ptTraceRtInfo));
}

void vimbra::ForgetTraces() {
    g_tTraceRtMutex = PTHREAD_MUTEX_INITIALIZER;
    g_tSemaphore.Forget();
    ForgetSlots(g_ptApiTracerouteInfo, ClearUserRun<TTraceRtInfo>);
}

s32 ApicTracertStart(const TVimbraAddr& tDestIp, const TVimbraTracerouteOpt& tTraceRtOpt,
                     s32 nUserID) {
    return SendRequest<TracerouteStartBody>(VIMBRA_HERE, kRule, kTracerouteStart, [&](auto& body) {
        body.tDestIp = tDestIp;
        body.dwTtl = tTraceRtOpt.dwTtl;
        body.nUserID = nUserID;
    });
}

s32 ApicTracertStop(s32 nUserID) {
    return SendStop(VIMBRA_HERE, nUserID);
}

// Kept: an entry of its own, which sends what a stop sends; the test is
// TracerouteRequests.AllStopSendsWhatAStopSends.
s32 ApicTracertAllStop(s32 nUserID) {
    return SendStop(VIMBRA_HERE, nUserID);
}

s32 VimbraTracerouteStart(TVimbraAddr tDestIp, TVimbraTracerouteOpt* ptTraceRtOpt, s32 nUserID,
                          TVimbraTracerouteCallBack ptCallBackFunc) {
    if (ptTraceRtOpt == nullptr || ptCallBackFunc == nullptr) {
        VLOG_ERROR("the ptCallBackFunc is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    if (tDestIp.wSinFamily != VIMBRA_FAMILY_IPV4) {
        VLOG_ERROR("the dest wSinFamily %d is invalid!", tDestIp.wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckUserId(VIMBRA_HERE, nUserID)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    Lock lock(g_tTraceRtMutex);
    if (TraceSlot* const busy = FindBusy(nUserID); busy != nullptr) {
        VLOG_ERROR("the userId %d is tracerouting, please replace the user id!", nUserID);
        // Kept: the running trace loses its place; the test is Traceroute.StartingABusyIdEndsItsTrace.
        Traces::End(*busy);
        return VIMBRA_ERR_GENERAL;
    }
    TraceSlot* const slot = FindFreeSlot(g_ptApiTracerouteInfo);
    if (slot == nullptr) {
        VLOG_ERROR("the user id has been up to the max!");
        return VIMBRA_ERR_GENERAL;
    }
    const u32 generation = TakeSlot(*slot);
    slot->info.ptCallBackFunc = ptCallBackFunc;
    slot->info.nUserId = nUserID;
    SetStarted(slot->info, true);
    if (!StartBound(*slot)) {
        Traces::End(*slot);
        return VIMBRA_ERR_GENERAL;
    }
    lock.Unlock();
    if (ApicTracertStart(tDestIp, *ptTraceRtOpt, nUserID) != VIMBRA_OK) {
        // Kept: the ping's words; the test is Traceroute.ARefusedStartGivesThePlaceBack.
        VLOG_ERROR("ApicPingStart error!");
        Traces::EndGeneration(*slot, generation);
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraTracerouteStop(s32 nUserID) {
    if (!CheckUserId(VIMBRA_HERE, nUserID)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    Lock lock(g_tTraceRtMutex);
    TraceSlot* const slot = FindBusy(nUserID);
    if (slot == nullptr) {
        VLOG_PRINT("the user id %d has been stopped!", nUserID);
        return VIMBRA_OK;
    }
    const u32 generation = slot->generation;
    lock.Unlock();
    if (ApicTracertStop(nUserID) != VIMBRA_OK) {
        VLOG_ERROR("Stop traceroute failed!");
        return VIMBRA_ERR_TRACE_STOP;
    }
    Traces::EndGeneration(*slot, generation);
    return VIMBRA_OK;
}

s32 ClearTraceRtMsgQueue(s32 nUserId) {
    const int queue = CreateMsgQueue(kQueueKey, IPC_CREAT);
    if (queue < 0) {
        VLOG_ERROR("CreateMsgQueue NET_TRACEROUTE_BASE error!");
        return VIMBRA_ERR_GENERAL;
    }
    // Not reached while message queues are switched off.
    char buffer[256];
    while (RecvFromQueue(queue, nUserId, buffer, sizeof(buffer), IPC_NOWAIT) > 0) {
    }
    VLOG_PRINT("RecvFromQueue has been empty!");
    return VIMBRA_OK;
}
