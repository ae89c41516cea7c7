#include <vimbra/router_advertise.h>

#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_route/api_route/router_notify_wire.hpp"
#include "api/forget.hpp"
#include "lib/argument.hpp"
#include "lib/base/lock.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/request.hpp"
#include "lib/ipc/slots.hpp"

using namespace vimbra;
using namespace vimbra::wire;

TRouterNotifyInfo* g_ptApiRouterNotifyInfo = nullptr;

namespace {

// The callback is handed the message's body as it is.
static_assert(sizeof(TVimbraRouterAdCb) == sizeof(RouterNotifyBody));
static_assert(offsetof(TVimbraRouterAdCb, tNetIfaceAllIp) ==
              offsetof(RouterNotifyBody, tNetIfaceAllIp));

using RouterSlot = Slot<TRouterNotifyInfo>;

constexpr int kSlots = 4;
constexpr s32 kFirstUserId = 3584;

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kMinusOne,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kPlain,
};

// Guards the slots.
pthread_mutex_t g_tRouterMutex = PTHREAD_MUTEX_INITIALIZER;

RouterSlot* FamilyMapBusyRouterAdvertiseInfo(const char* name) {
    return FindBusySlot(g_ptApiRouterNotifyInfo, [=](const TRouterNotifyInfo& info) {
        return strncmp(info.achIfaceName, name, sizeof(info.achIfaceName)) == 0;
    });
}

RouterSlot* FamilyMapFreeRouterAdvertiseInfo() {
    return FindFreeSlot(g_ptApiRouterNotifyInfo);
}

void ClearRouterAdvertiseInfo(RouterSlot& slot) {
    TRouterNotifyInfo& info = slot.info;
    SetStarted(info, false);
    info.tThreadId = 0;
    info.wSinFamily = 0;
    info.pfRouterAdvertiseCB = nullptr;
    memset(info.achIfaceName, 0, sizeof(info.achIfaceName));
    GiveBack(slot);
}

s32 ApicRouterAdvertiseStart(const char* pchIfaceName, s32 nUserId) {
    return SendRequest<RouterAdvertiseStartBody>(VIMBRA_HERE, kRule, kRouterAdvertiseStart,
                                                 [&](auto& body) {
                                                     CopyField(body.achIfaceName, pchIfaceName);
                                                     body.nUserId = nUserId;
                                                 });
}

s32 ApicRouterAdvertiseStop(const char* pchIfaceName) {
    return SendRequest<IfaceBody>(VIMBRA_HERE, kRule, kRouterAdvertiseStop,
                                  [&](auto& body) { CopyField(body.achIfaceName, pchIfaceName); });
}

// ---- The listener ------------------------------------------------------------------------------

RouterSlot& SlotFor(const Listener& listener) {
    return *static_cast<RouterSlot*>(listener.Argument());
}

void TellSize(Listener& listener, Bound bound) {
    if (bound == Bound::kListening || bound == Bound::kBindFailed) {
        VLOG_DEBUG_AT(listener.At(__LINE__), "nBufSize : %d",
                      static_cast<int>(sizeof(IpcMsgHead) + sizeof(TVimbraRouterAdCb)));
    }
}

Next TakeNotification(Listener& listener, Message& message) {
    if (message.head.type != kRouterNotify) {
        return Next::kEnd;
    }
    Lock lock(g_tRouterMutex);
    if (!listener.IsCurrent()) {
        return Next::kEnd;  // The slot may be another watch's by now.
    }
    const auto callback = SlotFor(listener).info.pfRouterAdvertiseCB;
    lock.Unlock();
    if (callback == nullptr) {
        VLOG_ERROR_AT(listener.At(__LINE__), "pfRouterAdvertiseCB is NULL!");
        return Next::kGoOn;
    }
    callback(&message.As<TVimbraRouterAdCb>());
    return Next::kGoOn;
}

// A listener that leaves its loop frees its slot; one that cannot accept leaves it to the stop.
void LeaveSlot(Listener& listener, Ended why) {
    if (why != Ended::kByService && why != Ended::kBadMessage) {
        return;
    }
    const Lock lock(g_tRouterMutex);
    if (listener.Release()) {
        ClearRouterAdvertiseInfo(SlotFor(listener));
    }
}

constexpr ListenerService kService = {
    .function = "RouterNotifyCBThread",
    .threadName = "VimbraRouterNotifyCBThread",
    .socketName = kRouterNotifySocket,
    .detached = false,
    .bodySize = sizeof(TVimbraRouterAdCb),
    .connections = Connections::kKeep,
    .shortRead = {"read message error", FailureRule::kErrno, Next::kEnd},
    .wrongSize = {"read message error", FailureRule::kErrno, Next::kEnd},
    .bound = TellSize,
    .message = TakeNotification,
    .ended = LeaveSlot,
};

// ---- Start and stop ----------------------------------------------------------------------------

// A slot on its way to being started.
struct Taken {
    RouterSlot* slot;
    u32 generation;
};

// Ends what runs in the slot, unless it is somebody else's by now, and frees it.
void Clean(const Taken& taken) {
    ListenerStop stop = {};
    Lock lock(g_tRouterMutex);
    if (IsStillTaken(*taken.slot, taken.generation)) {
        stop = KillListener(taken.slot->listener);
        ClearRouterAdvertiseInfo(*taken.slot);
    }
    lock.Unlock();
    WaitListener(stop);
}

// Takes a slot and starts its listener; the slot is null when none is free.
bool Listen(const char* name, TVimbraRouterAdvertiseCallBack callback, Taken& taken) {
    const Lock lock(g_tRouterMutex);
    taken.slot = FamilyMapFreeRouterAdvertiseInfo();
    if (taken.slot == nullptr) {
        return false;
    }
    taken.generation = TakeSlot(*taken.slot);
    TRouterNotifyInfo& info = taken.slot->info;
    info.pfRouterAdvertiseCB = callback;
    CopyField(info.achIfaceName, name);
    return StartListener(kService, taken.slot->listener,
                         {.argument = taken.slot, .handle = &info.tThreadId});
}

// The watch counts as started, unless its listener has already ended and freed the slot.
void MarkStarted(const Taken& taken) {
    const Lock lock(g_tRouterMutex);
    if (IsStillTaken(*taken.slot, taken.generation)) {
        SetStarted(taken.slot->info, true);
    }
}

bool IsWatched(const char* name, Taken* found = nullptr) {
    const Lock lock(g_tRouterMutex);
    RouterSlot* const slot = FamilyMapBusyRouterAdvertiseInfo(name);
    if (slot != nullptr && found != nullptr) {
        *found = {slot, slot->generation};
    }
    return slot != nullptr;
}

// The steps of a start that can fail; what they leave in taken is cleaned up by the caller.
bool Start(CallSite site, const char* name, TVimbraRouterAdvertiseCallBack callback, Taken& taken) {
    const bool isListening = Listen(name, callback, taken);
    if (taken.slot == nullptr) {
        VLOG_ERROR_AT(site, "the interface %s alloc memory failed!", name);
        return false;
    }
    if (!isListening) {
        VLOG_ERROR_AT(site, "ThreadSpawn error!");
        return false;
    }
    const s32 userId = taken.slot->info.nUserId;
    VLOG_DEBUG_AT(site, "VimbraRouterAdvertiseStart devname : %s, nUserId : %d", name, userId);
    const s32 result = ApicRouterAdvertiseStart(name, userId);
    if (result != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "ApicRouterAdvertiseStart error : %d!", result);
        return false;
    }
    MarkStarted(taken);
    return true;
}

// Tells the newest listener to end, this watch's or another's. The stop does not depend on it.
void PostStopOrder() {
    const TVimbraRouterAdCb nothing = {};
    const IgnoredFailure ignored;
    IpcCallbackSendAndRecv(kRouterNotifySocket, kRouterNotifyStop, &nothing, sizeof(nothing),
                           nullptr, 0);
}

}  // namespace

void RouterAdvertiseInit() {
    const bool built =
        BuildSlots(g_ptApiRouterNotifyInfo, kSlots,
                   [](TRouterNotifyInfo& info, int index) { info.nUserId = kFirstUserId + index; });
    if (!built) {
        VLOG_ERRNO("XMALLOC error");
    }
}

void vimbra::ForgetAdvertisementWatches() {
    g_tRouterMutex = PTHREAD_MUTEX_INITIALIZER;
    ForgetSlots(g_ptApiRouterNotifyInfo, ClearRouterAdvertiseInfo);
}

s32 VimbraRouterAdvertiseStart(char* pchIfaceName, TVimbraRouterAdvertiseCallBack pfRACallback) {
    if (!IsIfaceName(pchIfaceName)) {
        VLOG_ERROR("pchIfaceName is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (pfRACallback == nullptr) {
        VLOG_ERROR("pfRACallback is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    VLOG_DEBUG("the inface name : %s", pchIfaceName);
    if (IsWatched(pchIfaceName)) {
        VLOG_ERROR("the interface %s has been start!", pchIfaceName);
        return VIMBRA_ERR_GENERAL;
    }
    Taken taken = {};
    if (!Start(VIMBRA_HERE, pchIfaceName, pfRACallback, taken)) {
        if (taken.slot != nullptr) {
            Clean(taken);
        }
        VLOG_ERROR("VimbraRouterAdvertiseStart err!");
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT("VimbraRouterAdvertiseStart ok!");
    return VIMBRA_OK;
}

s32 VimbraRouterAdvertiseStop(char* pchIfaceName) {
    if (!CheckName(VIMBRA_HERE, pchIfaceName)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    Taken taken = {};
    if (!IsWatched(pchIfaceName, &taken)) {
        VLOG_ERROR("the interface %s has been stopped!", pchIfaceName);
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_DEBUG("the pchIfaceName %s", pchIfaceName);
    PostStopOrder();
    const s32 result = ApicRouterAdvertiseStop(pchIfaceName);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("ApicRouterAdvertiseStop error : %d!", result);
        return result;
    }
    Clean(taken);
    return VIMBRA_OK;
}
