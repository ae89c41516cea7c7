#include "api/api_ping/api_ping.hpp"

#include "api/api_ping/ping_wire.hpp"
#include "api/forget.hpp"
#include "lib/argument.hpp"
#include "lib/base/lock.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/ipc/request.hpp"
#include "lib/ipc/slots.hpp"

using namespace vimbra;
using namespace vimbra::wire;

TPingInfo* g_ptApiPingInfo = nullptr;

namespace {

pthread_mutex_t g_tPingMutex = PTHREAD_MUTEX_INITIALIZER;

using PingSlot = Slot<TPingInfo>;
using Tests = Runs<TPingInfo, g_tPingMutex, ClearPingInfo>;

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet = %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid = %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kPlain,
    "XMALLOC error!",
};

TVimbraPingCBInfo ResultOf(u32 event, const pingmsg& message) {
    TVimbraPingCBInfo info = {};
    if (event == kPingAnswer) {
        info.nTtl = static_cast<s32>(message.ttl);
        info.nTripTime = static_cast<s32>(message.time);
    }
    info.nSeq = message.seq;
    info.nUserID = static_cast<s32>(message.nUserID);
    return info;
}

// The callback of the listener's test if the record is for it. All tests share one socket, so a
// record may well be for another one; and a test that was stopped reports nothing more.
TVimbraPingCallBack CallbackFor(Listener& listener, const pingmsg& message) {
    const Lock lock(g_tPingMutex);
    const auto* slot = static_cast<const PingSlot*>(listener.Argument());
    if (!listener.IsCurrent() || slot->info.nUserId != static_cast<s32>(message.nUserID)) {
        return nullptr;
    }
    return slot->info.ptCallBackFunc;
}

Next TakeRecord(Listener& listener, Message& message) {
    const auto record = message.As<pingmsg>();
    const TVimbraPingCallBack callback = CallbackFor(listener, record);
    if (callback == nullptr) {
        return Next::kGoOn;
    }
    if (record.over_flag == kPingStopOrder) {
        VLOG_PRINT_AT(listener.At(__LINE__), "receive msg from NetpingStop,ping_thread will exit");
        return Next::kEnd;
    }
    if (message.head.type > kPingLastEvent) {
        VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", message.head.type);
    } else {
        TVimbraPingCBInfo info = ResultOf(message.head.type, record);
        callback(static_cast<s32>(message.head.type), &info);
    }
    return record.over_flag != kPingMore ? Next::kEnd : Next::kGoOn;
}

constexpr ListenerService kService = {
    .function = "PingCBThread",
    .threadName = "VimbraPingCBThread",
    .socketName = kPingSocket,
    .bodySize = sizeof(pingmsg),
    .outOfMemory = {"XMALLOC error", FailureRule::kErrno, Next::kEnd},
    .shortRead = {"read message error", FailureRule::kErrno, Next::kEnd},
    .wrongSize = {"the sended data is too long!", FailureRule::kPlain, Next::kEnd},
    .message = TakeRecord,
    .ended = Tests::ListenerEnded,
};

// Orders a listener of this process to end. It may be another test's, or none: the stop does not
// depend on it.
void PostStopOrder(s32 nUserID) {
    pingmsg order = {};
    order.nUserID = static_cast<u32>(nUserID);
    order.over_flag = kPingStopOrder;
    const IgnoredFailure ignored;
    IpcCallbackSendAndRecv(kPingSocket, kPingAnswer, &order, sizeof(order), nullptr, 0);
}

}  // namespace

void PingInit() {
    if (!BuildSlots(g_ptApiPingInfo, VIMBRA_PING_MAX, SetUpUserRun<TPingInfo>)) {
        VLOG_ERRNO("XMALLOC error");
    }
}

TPingInfo* FamilyMapBusyPingInfo(s32 nUserID) {
    if (nUserID <= 0) {
        VLOG_ERROR("the nUserId must be more than 0!");
        return nullptr;
    }
    return InfoOf(FindBusySlot(
        g_ptApiPingInfo, [nUserID](const TPingInfo& info) { return info.nUserId == nUserID; }));
}

TPingInfo* FamilyMapFreePingInfo(s32 nUserID) {
    if (nUserID <= 0) {
        VLOG_ERROR("the nUserId must be more than 0!");
        return nullptr;
    }
    return InfoOf(FindFreeSlot(g_ptApiPingInfo));
}

void ClearPingInfo(TPingInfo* ptPingInfo) {
    ClearUserRun(*SlotOf(ptPingInfo));
}

void vimbra::ForgetPings() {
    g_tPingMutex = PTHREAD_MUTEX_INITIALIZER;
    ForgetSlots(g_ptApiPingInfo, ClearUserRun<TPingInfo>);
}

s32 ApicPingStart(const TVimbraAddr& tDestIp, const TVimbraPingOpt& tPingOpt, s32 nUserID) {
    return SendRequest<PingStartBody>(VIMBRA_HERE, kRule, kPingStart, [&](auto& body) {
        body.tDestIp = tDestIp;
        body.tPingOpt = tPingOpt;
        body.nUserID = nUserID;
    });
}

s32 ApicPingStop(s32 nUserID) {
    return SendRequest<PingStopBody>(VIMBRA_HERE, kRule, kPingStop,
                                     [&](auto& body) { body.nUserID = nUserID; });
}

s32 VimbraPingStart(TVimbraAddr tDestIp, TVimbraPingOpt* ptPingOpt, s32 nUserID,
                    TVimbraPingCallBack ptCallBackFunc) {
    if (ptPingOpt == nullptr || ptCallBackFunc == nullptr) {
        VLOG_ERROR("the ptPingOpt or ptCallBackFunc is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!IsOneFamily(tDestIp.wSinFamily)) {
        VLOG_ERROR("the dest wSinFamily %d is invalid!", tDestIp.wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckUserId(VIMBRA_HERE, nUserID)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    Lock lock(g_tPingMutex);
    if (FamilyMapBusyPingInfo(nUserID) != nullptr) {
        VLOG_PRINT("the userId %d is pinging, please replace the user id!", nUserID);
        return VIMBRA_ERR_GENERAL;
    }
    TPingInfo* const info = FamilyMapFreePingInfo(nUserID);
    if (info == nullptr) {
        VLOG_ERROR("the user id has been up to the max!");
        return VIMBRA_ERR_GENERAL;
    }
    PingSlot& slot = *SlotOf(info);
    const u32 generation = TakeSlot(slot);
    info->nUserId = nUserID;
    info->ptCallBackFunc = ptCallBackFunc;
    SetStarted(*info, true);
    if (!StartListener(kService, slot.listener, {.argument = &slot, .handle = &info->tThreadId})) {
        VLOG_ERROR("create ping callback thread failed!");
        Tests::End(slot);
        return VIMBRA_ERR_PING_THREAD;
    }
    lock.Unlock();
    if (ApicPingStart(tDestIp, *ptPingOpt, nUserID) != VIMBRA_OK) {
        VLOG_ERROR("ApicPingStart error!");
        Tests::EndGeneration(slot, generation);
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraPingStop(s32 nUserID) {
    if (!CheckUserId(VIMBRA_HERE, nUserID)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    Lock lock(g_tPingMutex);
    TPingInfo* const info = FamilyMapBusyPingInfo(nUserID);
    if (info == nullptr) {
        VLOG_PRINT("the userId %d has stopped ping", nUserID);
        return VIMBRA_ERR_PING_UNKNOWN;
    }
    PingSlot& slot = *SlotOf(info);
    const u32 generation = slot.generation;
    lock.Unlock();
    PostStopOrder(nUserID);
    if (ApicPingStop(nUserID) != VIMBRA_OK) {
        VLOG_ERROR("apic_ping_stop failed!");
        return VIMBRA_ERR_PING_STOP;
    }
    Tests::EndGeneration(slot, generation);
    return VIMBRA_OK;
}
