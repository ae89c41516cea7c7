#include <vimbra/ip_conflict.h>

#include "api/api_1x/api_network_common/net_ip_conflict.hpp"
#include "api/api_network_common/ip_conflict_wire.hpp"
#include "api/fork.hpp"
#include "lib/lock.hpp"
#include "lib/request.hpp"
#include "lib/slots.hpp"
#include "lib/text.hpp"

using namespace vimbra;
using namespace vimbra::wire;

TIpConflictInfo* g_ptIpConflictInfo = nullptr;

namespace {

using ConflictSlot = Slot<TIpConflictInfo>;

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

// Guards the records against the listeners.
pthread_mutex_t g_tConflictMutex = PTHREAD_MUTEX_INITIALIZER;

bool IsOneFamily(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 || family == VIMBRA_FAMILY_IPV6;
}

// The application's callback, unless the watch has been stopped or even started anew meanwhile.
TVimbraConflictCallBack CallbackFor(Listener& listener) {
    const Lock lock(g_tConflictMutex);
    const auto* info = static_cast<const TIpConflictInfo*>(listener.Argument());
    return listener.IsCurrent() ? info->pfIpConflictCB : nullptr;
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
        // The legacy callback that knows interfaces goes before all others.
        char name[sizeof(NameField) + 1] = {};
        memcpy(name, conflict.achIfcName, sizeof(NameField));
        if (PrivateIpConflictCallBackEx(kind, &mac, &address, name) == 0) {
            VLOG_PRINT_AT(listener.At(__LINE__), "compatibility with 1.x");
            return Next::kGoOn;
        }
    }
    callback(kind, &mac, &address);
    return Next::kGoOn;
}

constexpr ListenerService kServiceV4 = {
    .function = "IpConflictCBThread",
    .threadName = "VimbraIpConfilictCBThread",
    .socketName = kConflictSocket,
    .bodySize = sizeof(IpConfilctMsg),
    .message = TakeConflict,
};

constexpr ListenerService kServiceV6 = {
    .function = "IpConflictCBThreadV6",
    .threadName = "VimbraIpConfilictCBThreadV6",
    .socketName = kConflictSocketV6,
    .bodySize = sizeof(IpConfilctMsg),
    .message = TakeConflict,
};

TIpConflictInfo* FamilyMapIpConfictInfo(u16 wSinFamily) {
    if (g_ptIpConflictInfo == nullptr) {
        VLOG_ERROR("the ip confilct is not inited!");
        return nullptr;
    }
    ConflictSlot* const slot = FindSlot(g_ptIpConflictInfo, [=](const ConflictSlot& candidate) {
        return candidate.info.wSinFamily == wSinFamily;
    });
    if (slot == nullptr) {
        VLOG_ERROR("the wSinFamily %d is invalid!", wSinFamily);
        return nullptr;
    }
    return &slot->info;
}

s32 Send(const CallSite& site, const RequestRule& rule, u32 type, u16 family) {
    Request<ConflictBody> request(site, rule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->wSinFamily = family;
    return request.Send(type);
}

s32 ApicConflictCheckStart(u16 wSinFamily) {
    return Send(VIMBRA_HERE, kStartRule, kConflictStart, wSinFamily);
}

s32 ApicConflictCheckStop(u16 wSinFamily) {
    return Send(VIMBRA_HERE, kStopRule, kConflictStop, wSinFamily);
}

void IpConflictCleanUp(TIpConflictInfo* ptInfo) {
    ptInfo->bIsStarted = 0;
    ptInfo->pfIpConflictCB = nullptr;
    ptInfo->tThreadId = 0;
}

// Ends the listener and clears the record.
s32 Recycle(const CallSite& site, TIpConflictInfo* info) {
    Lock lock(g_tConflictMutex);
    const ListenerStop stop = KillListener(SlotOf(info)->listener);
    if (stop.result == 0) {
        IpConflictCleanUp(info);
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

}  // namespace

void IpConflictCheckInit() {
    constexpr u16 kFamilies[] = {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6};
    const bool built = BuildSlots(g_ptIpConflictInfo, 2, [&](TIpConflictInfo& info, int index) {
        info.wSinFamily = kFamilies[index];
    });
    if (!built) {
        VLOG_ERRNO("XMALLOC error");
    }
}

void vimbra::ForgetConflictWatches() {
    g_tConflictMutex = PTHREAD_MUTEX_INITIALIZER;
    for (TIpConflictInfo* info = g_ptIpConflictInfo; info != nullptr; info = info->ptNext) {
        IpConflictCleanUp(info);
    }
}

s32 VimbraIpConflictCheckStart(u16 wSinFamily, TVimbraConflictCallBack ptFunc) {
    if (ptFunc == nullptr) {
        VLOG_ERROR("the callback function is null!");
        return VIMBRA_ERR_CALLBACK;
    }
    if (!IsOneFamily(wSinFamily)) {
        VLOG_ERROR("wSinFamily %d is invalid!", wSinFamily);
        return VIMBRA_ERR_PARAM;
    }
    TIpConflictInfo* const info = FamilyMapIpConfictInfo(wSinFamily);
    if (info == nullptr) {
        VLOG_ERROR("FamilyMapIpConfictInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    Lock lock(g_tConflictMutex);
    if (info->bIsStarted != 0) {
        VLOG_ERROR("the wSimFamily %d ip conflict has been started!", wSinFamily);
        return VIMBRA_ERR_GENERAL;
    }
    info->pfIpConflictCB = ptFunc;
    const pthread_t thread =
        StartListener(wSinFamily == VIMBRA_FAMILY_IPV4 ? kServiceV4 : kServiceV6,
                      SlotOf(info)->listener, {.argument = info, .handle = &info->tThreadId});
    lock.Unlock();
    if (thread == 0) {
        VLOG_ERROR("VimbraIpConfilictCBThread thread create failed!");
        return VIMBRA_ERR_GENERAL;
    }
    if (ApicConflictCheckStart(wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ApicConflictCheckStart wSinFamily %d error!", wSinFamily);
        return Recycle(VIMBRA_HERE, info);  // Success, though refused: only the log tells.
    }
    const Lock again(g_tConflictMutex);
    info->bIsStarted = 1;
    return VIMBRA_OK;
}

s32 VimbraIpConflictCheckStop(u16 wSinFamily) {
    if (!IsOneFamily(wSinFamily)) {
        VLOG_ERROR("wSinFamily %d is invalid!", wSinFamily);
        return VIMBRA_ERR_PARAM;
    }
    TIpConflictInfo* const info = FamilyMapIpConfictInfo(wSinFamily);
    if (info == nullptr) {
        VLOG_ERROR("FamilyMapIpConfictInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (ApicConflictCheckStop(wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ApicConflictCheckStop wSinFamily %d error!", wSinFamily);
        return VIMBRA_ERR_GENERAL;
    }
    return Recycle(VIMBRA_HERE, info);
}
