#include "api/api_network_common/api_ip_conflict.hpp"

#include "api/api_network_common/ip_conflict_wire.hpp"
#include "api/forget.hpp"
#include "lib/argument.hpp"
#include "lib/base/lock.hpp"
#include "lib/base/shared_function.hpp"
#include "lib/ipc/families.hpp"
#include "lib/ipc/request.hpp"
#include "lib/ipc/slots.hpp"

using namespace vimbra;
using namespace vimbra::wire;

TIpConflictInfo* g_ptIpConflictInfo = nullptr;

namespace {

// What only the library knows of a family's watch. It is not part of the record, since an
// application may have put one of its own into the list.
struct Watch {
    TIpConflictInfo* info;  // of its newest start
};
using WatchSlot = Slot<Watch>;

constexpr RequestRule Rule(RequestRule::OutOfMemory outOfMemory) {
    return {
        VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
        VIMBRA_TAG_ERR "send and recv msg error, nErrid : %d!",
        Failure::kPassOn,
        Failure::kPassOn,
        outOfMemory,
        "XMALLOC error",
        -1,
    };
}

constexpr RequestRule kStartRule = Rule(RequestRule::OutOfMemory::kErrno);
constexpr RequestRule kStopRule = Rule(RequestRule::OutOfMemory::kPlain);

// Guards the records and the watches. Not held while the daemon is asked.
pthread_mutex_t g_tConflictMutex = PTHREAD_MUTEX_INITIALIZER;
WatchSlot g_tWatchIpv4;
WatchSlot g_tWatchIpv6;

// Set by the application's threads and read by the listener's.
SharedFunction<ConflictFilter> conflict_filter;

WatchSlot& WatchOf(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 ? g_tWatchIpv4 : g_tWatchIpv6;
}

// The application's callback, unless the watch has been stopped or even started anew meanwhile.
TVimbraConflictCallBack CallbackFor(Listener& listener) {
    const Lock lock(g_tConflictMutex);
    const auto* watch = static_cast<const WatchSlot*>(listener.Argument());
    return listener.IsCurrent() ? watch->info.info->pfIpConflictCB : nullptr;
}

Next TakeConflict(Listener& listener, Message& message) {
    const IpConfilctMsg& conflict = message.As<IpConfilctMsg>();
    const u32 type = message.head.type;
    if (type != VIMBRA_IP_CONFLICT && type != VIMBRA_MAC_CONFLICT) {
        VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", type);
        return Next::kGoOn;
    }
    const TVimbraConflictCallBack callback = CallbackFor(listener);
    if (callback == nullptr) {
        return Next::kGoOn;
    }
    const auto kind = static_cast<EVimbraConflictType>(type);
    TVimbraIfaceMac mac = conflict.mac;
    TVimbraAddr address = conflict.tIpAddr;
    if (listener.Service().socketName == kConflictSocket) {
        char name[sizeof(NameField) + 1] = {};
        memcpy(name, conflict.achIfcName, sizeof(NameField));
        const ConflictFilter filter = conflict_filter.Get();
        if (filter != nullptr && filter(kind, &mac, &address, name) == 0) {
            VLOG_PRINT_AT(listener.At(__LINE__), "compatibility with 1.x");
            return Next::kGoOn;
        }
    }
    callback(kind, &mac, &address);
    return Next::kGoOn;
}

constexpr ListenerService Service(const char* function, const char* threadName,
                                  const char* socketName) {
    return {
        .function = function,
        .threadName = threadName,
        .socketName = socketName,
        .bodySize = sizeof(IpConfilctMsg),
        .message = TakeConflict,
    };
}

constexpr ListenerService kIpv4 =
    Service("IpConflictCBThread", "VimbraIpConfilictCBThread", kConflictSocket);
constexpr ListenerService kIpv6 =
    Service("IpConflictCBThreadV6", "VimbraIpConfilictCBThreadV6", kConflictSocketV6);

// Only the first record of the published list and its successor count.
TIpConflictInfo* FamilyMapIpConfictInfo(u16 wSinFamily) {
    static constexpr LookupWords kWords = {
        "the ip confilct is not inited!",
        VIMBRA_TAG_ERR "the wSinFamily %d is invalid!",
    };
    TIpConflictInfo* const first = g_ptIpConflictInfo;
    TIpConflictInfo* const records[] = {first, first != nullptr ? first->ptNext : nullptr};
    return FindFamily(VIMBRA_HERE, kWords, records, wSinFamily);
}

s32 Send(CallSite site, const RequestRule& rule, u32 type, u16 family) {
    return SendRequest<ConflictBody>(site, rule, type,
                                     [&](auto& body) { body.wSinFamily = family; });
}

s32 ApicConflictCheckStart(u16 wSinFamily) {
    return Send(VIMBRA_HERE, kStartRule, kConflictStart, wSinFamily);
}

s32 ApicConflictCheckStop(u16 wSinFamily) {
    return Send(VIMBRA_HERE, kStopRule, kConflictStop, wSinFamily);
}

void IpConflictCleanUp(TIpConflictInfo* ptInfo) {
    SetStarted(*ptInfo, false);
    ptInfo->pfIpConflictCB = nullptr;
    ptInfo->tThreadId = 0;
}

// With the lock held.
bool Listen(WatchSlot& slot, TIpConflictInfo& info, TVimbraConflictCallBack callback) {
    slot.info.info = &info;
    info.pfIpConflictCB = callback;
    return StartListener(IsIpv4(info) ? kIpv4 : kIpv6, slot.listener,
                         {.argument = &slot, .handle = &info.tThreadId});
}

s32 AlreadyStarted(CallSite site, u16 family) {
    VLOG_ERROR_AT(site, "the wSimFamily %d ip conflict has been started!", family);
    return VIMBRA_ERR_GENERAL;
}

// Ends one generation of a watch: its listener goes, its record is cleared. If it has ended already
// there is no thread to kill, and a watch that was started since is left alone. Gives the lock up.
s32 Recycle(CallSite site, WatchSlot& slot, u32 generation, Lock& lock) {
    ListenerStop stop = {-1, 0};
    if (IsStillTaken(slot, generation)) {
        stop = KillListener(slot.listener);
        if (stop.result == 0) {
            IpConflictCleanUp(slot.info.info);
        }
        GiveBack(slot);
    }
    lock.Unlock();
    if (stop.result != 0) {
        VLOG_ERROR_AT(site, "ThreadKill error!");
        return stop.result;
    }
    VLOG_PRINT_AT(site, "Recycling resources...!");
    WaitListener(stop);
    VLOG_PRINT_AT(site, "Recycling resources done!");
    return VIMBRA_OK;
}

// What follows on a refused start. Another start that shares the watch keeps it.
// Kept: success, only the log says so; the test is Conflicts.RefusedStartIs0AndNotStarted.
s32 GiveUp(CallSite site, WatchSlot& slot, u32 generation, TVimbraConflictCallBack callback) {
    Lock lock(g_tConflictMutex);
    if (IsStillTaken(slot, generation)) {
        TIpConflictInfo& info = *slot.info.info;
        slot.pending--;
        if (IsStarted(info)) {
            return VIMBRA_OK;
        }
        if (slot.pending > 0) {
            if (info.pfIpConflictCB == callback) {
                info.pfIpConflictCB = nullptr;
            }
            return VIMBRA_OK;
        }
    }
    return Recycle(site, slot, generation, lock);
}

// What follows on an accepted start: the first that is accepted has the watch. One that was stopped
// meanwhile has been started all the same.
s32 Confirm(CallSite site, WatchSlot& slot, u32 generation, TVimbraConflictCallBack callback) {
    Lock lock(g_tConflictMutex);
    if (!IsStillTaken(slot, generation)) {
        return VIMBRA_OK;
    }
    TIpConflictInfo& info = *slot.info.info;
    slot.pending--;
    if (!IsStarted(info)) {
        info.pfIpConflictCB = callback;
        SetStarted(info, true);
        return VIMBRA_OK;
    }
    lock.Unlock();
    return AlreadyStarted(site, info.wSinFamily);
}

// The family's record, of which there is none before VimbraInit.
s32 FindInfo(CallSite site, u16 family, TIpConflictInfo*& info) {
    if (!IsOneFamily(family)) {
        VLOG_ERROR_AT(site, "wSinFamily %d is invalid!", family);
        return RefuseArgument(site.function, VIMBRA_ERR_PARAM);
    }
    info = FamilyMapIpConfictInfo(family);
    if (info == nullptr) {
        VLOG_ERROR_AT(site, "FamilyMapIpConfictInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

}  // namespace

void vimbra::SetConflictFilter(ConflictFilter filter) {
    conflict_filter.Set(filter);
}

void IpConflictCheckInit() {
    if (g_ptIpConflictInfo != nullptr) {
        return;
    }
    TIpConflictInfo** link = &g_ptIpConflictInfo;
    for (const u16 family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
        auto* const info = NewZeroed<TIpConflictInfo>();
        if (info == nullptr) {
            VLOG_ERRNO("XMALLOC error");
            return;
        }
        info->wSinFamily = family;
        *link = info;
        link = &info->ptNext;
    }
}

void vimbra::ForgetConflictWatches() {
    g_tConflictMutex = PTHREAD_MUTEX_INITIALIZER;
    for (WatchSlot* slot : {&g_tWatchIpv4, &g_tWatchIpv6}) {
        if (slot->info.info != nullptr) {
            IpConflictCleanUp(slot->info.info);
        }
        GiveBack(*slot);
    }
}

s32 VimbraIpConflictCheckStart(u16 wSinFamily, TVimbraConflictCallBack ptFunc) {
    if (ptFunc == nullptr) {
        VLOG_ERROR("the callback function is null!");
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    TIpConflictInfo* info = nullptr;
    if (const s32 result = FindInfo(VIMBRA_HERE, wSinFamily, info); result != VIMBRA_OK) {
        return result;
    }
    WatchSlot& slot = WatchOf(wSinFamily);
    Lock lock(g_tConflictMutex);
    if (IsStarted(*info)) {
        lock.Unlock();
        return AlreadyStarted(VIMBRA_HERE, wSinFamily);
    }
    const u32 generation = ShareSlot(slot);
    if (slot.pending == 1 && !Listen(slot, *info, ptFunc)) {
        GiveBack(slot);
        lock.Unlock();
        VLOG_ERROR("VimbraIpConfilictCBThread thread create failed!");
        return VIMBRA_ERR_GENERAL;
    }
    lock.Unlock();
    if (ApicConflictCheckStart(wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ApicConflictCheckStart wSinFamily %d error!", wSinFamily);
        return GiveUp(VIMBRA_HERE, slot, generation, ptFunc);
    }
    return Confirm(VIMBRA_HERE, slot, generation, ptFunc);
}

s32 VimbraIpConflictCheckStop(u16 wSinFamily) {
    TIpConflictInfo* info = nullptr;
    if (const s32 result = FindInfo(VIMBRA_HERE, wSinFamily, info); result != VIMBRA_OK) {
        return result;
    }
    WatchSlot& slot = WatchOf(wSinFamily);
    Lock lock(g_tConflictMutex);
    const u32 generation = slot.generation;
    lock.Unlock();
    if (ApicConflictCheckStop(wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ApicConflictCheckStop wSinFamily %d error!", wSinFamily);
        return VIMBRA_ERR_GENERAL;
    }
    Lock again(g_tConflictMutex);
    return Recycle(VIMBRA_HERE, slot, generation, again);
}
