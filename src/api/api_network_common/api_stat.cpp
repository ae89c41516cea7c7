#include <vimbra/stat.h>

#include <type_traits>

#include "api/api_network_common/stat_wire.hpp"
#include "api/forget.hpp"
#include "lib/base/lock.hpp"
#include "lib/ipc/request.hpp"
#include "lib/ipc/slots.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr RequestRule kStartRule = {
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
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

struct Statistics {
    vimbra_bool isStarted;
    TDevStatNotifyCallBack callback;
};

// Not held while the daemon is asked, nor in the callback.
pthread_mutex_t g_tStatMutex = PTHREAD_MUTEX_INITIALIZER;
Slot<Statistics> g_tStat;

// The application's callback, unless the listener has been detached.
TDevStatNotifyCallBack CallbackFor(const Listener& listener) {
    const Lock lock(g_tStatMutex);
    return listener.IsCurrent() ? g_tStat.info.callback : nullptr;
}

Next TakeReport(Listener& listener, Message& message) {
    const StatReportBody& report = message.As<StatReportBody>();
    constexpr u32 kDevices = std::extent_v<decltype(StatReportBody::atStat)>;
    TNetDevStat stats[kDevices] = {};
    u32 count = 0;
    for (u32 i = 0; i < kDevices; i++) {
        if (report.atStat[i].bIsValid != 0) {
            stats[count].byEthId = i;
            stats[count].dwBandSended = report.atStat[i].dwBandSended;
            stats[count].dwBandRecved = report.atStat[i].dwBandRecved;
            count++;
        }
    }
    if (count == 0) {
        return Next::kGoOn;
    }
    if (const TDevStatNotifyCallBack callback = CallbackFor(listener); callback != nullptr) {
        callback(stats, count);
    }
    return Next::kGoOn;
}

constexpr ListenerService kService = {
    .function = "StatCBThread",
    .threadName = "VimbraDevStatiNotifyThreadId",
    .socketName = kStatSocket,
    .bodySize = sizeof(StatReportBody),
    .socketText = "socket AF_UNIX error",
    .serverText = "make_addr_server error!",
    .outOfMemory = {"malloc error", FailureRule::kPlain, Next::kGoOn},
    .message = TakeReport,
};

s32 SendStart(CallSite site, int interval) {
    return SendRequest<StatStartBody>(site, kStartRule, kStatStart,
                                      [&](auto& body) { body.nInterval = interval; });
}

s32 SendStop(CallSite site) {
    Request<NoBody> request(site, kStopRule);
    return request ? request.Send(kStatStop) : VIMBRA_ERR_GENERAL;
}

s32 AlreadyStarted(CallSite site) {
    VLOG_PRINT_AT(site, "vimbra stat is already started");
    return VIMBRA_OK;
}

// What follows on a refused registration. The listener goes with the last that waits for its reply,
// unless another was accepted.
void GiveUp(u32 generation, TDevStatNotifyCallBack callback) {
    const Lock lock(g_tStatMutex);
    if (!IsStillTaken(g_tStat, generation)) {
        return;
    }
    g_tStat.pending--;
    if (g_tStat.info.isStarted != 0) {
        return;
    }
    if (g_tStat.pending == 0) {
        KillListener(g_tStat.listener);
        GiveBack(g_tStat);
    } else if (g_tStat.info.callback == callback) {
        g_tStat.info.callback = nullptr;
    }
}

// What follows on an accepted registration: the first that is accepted counts.
s32 Confirm(CallSite site, u32 generation, TDevStatNotifyCallBack callback) {
    Lock lock(g_tStatMutex);
    if (!IsStillTaken(g_tStat, generation)) {
        return VIMBRA_OK;
    }
    g_tStat.pending--;
    if (g_tStat.info.isStarted != 0) {
        lock.Unlock();
        return AlreadyStarted(site);
    }
    g_tStat.info = {1, callback};
    return VIMBRA_OK;
}

}  // namespace

void vimbra::ForgetStatistics() {
    g_tStatMutex = PTHREAD_MUTEX_INITIALIZER;
    g_tStat.info = {};
    GiveBack(g_tStat);
}

s32 VimbraStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb) {
    Lock lock(g_tStatMutex);
    if (g_tStat.info.isStarted != 0) {
        lock.Unlock();
        return AlreadyStarted(VIMBRA_HERE);
    }
    if (nInterval <= 0) {
        lock.Unlock();
        VLOG_ERROR("nInterval %d param is invalid!", nInterval);
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (pfNotifyCb == nullptr) {
        lock.Unlock();
        VLOG_ERROR("pfNotifyCb is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const u32 generation = ShareSlot(g_tStat);
    if (g_tStat.pending == 1) {
        g_tStat.info.callback = pfNotifyCb;
        // Kept: a thread that could not be made passes here; the test is
        // NoThread.StatisticsDoNotNoticeUntilTheyStop.
        StartListener(kService, g_tStat.listener, {});
    }
    lock.Unlock();
    if (SendStart(VIMBRA_HERE, nInterval) != VIMBRA_OK) {
        // Kept: a route's words; the test is Stat.RefusedStartEndsTheListener.
        VLOG_ERROR("api_operate_route error");
        GiveUp(generation, pfNotifyCb);
        return VIMBRA_ERR_GENERAL;
    }
    return Confirm(VIMBRA_HERE, generation, pfNotifyCb);
}

s32 VimbraStatStop() {
    Lock lock(g_tStatMutex);
    const bool isStarted = g_tStat.info.isStarted != 0;
    const u32 generation = g_tStat.generation;
    lock.Unlock();
    if (!isStarted) {
        VLOG_PRINT("vimbra stat is already stoped");
        return VIMBRA_OK;
    }
    if (SendStop(VIMBRA_HERE) != VIMBRA_OK) {
        VLOG_ERROR("stat stop error!");
        return VIMBRA_ERR_GENERAL;
    }
    Lock again(g_tStatMutex);
    // Stopped by another call meanwhile, it has no thread to kill; what came since is left alone.
    if (IsStillTaken(g_tStat, generation) && KillListener(g_tStat.listener).result == 0) {
        g_tStat.info = {};
        GiveBack(g_tStat);
        return VIMBRA_OK;
    }
    again.Unlock();
    VLOG_ERROR("stat thread_kill error!");
    return VIMBRA_ERR_GENERAL;
}
