#include <vimbra/stat.h>

#include <type_traits>

#include "api/api_network_common/stat_wire.hpp"
#include "api/fork.hpp"
#include "lib/listener.hpp"
#include "lib/request.hpp"

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
    if (count > 0) {
        reinterpret_cast<TDevStatNotifyCallBack>(listener.Argument())(stats, count);
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
    .outOfMemory = {"malloc error", Trouble::kPlain, Next::kGoOn},
    .message = TakeReport,
};

ListenerSlot g_tStatListener;
vimbra_bool g_bVimBraStatRunState = 0;

bool IsStarted() {
    return __atomic_load_n(&g_bVimBraStatRunState, __ATOMIC_ACQUIRE) != 0;
}

void SetStarted(vimbra_bool started) {
    __atomic_store_n(&g_bVimBraStatRunState, started, __ATOMIC_RELEASE);
}

s32 SendStart(const CallSite& site, int interval) {
    Request<StatStartBody> request(site, kStartRule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->nInterval = interval;
    return request.Send(kStatStart);
}

s32 SendStop(const CallSite& site) {
    Request<NoBody> request(site, kStopRule);
    return request ? request.Send(kStatStop) : VIMBRA_ERR_GENERAL;
}

}  // namespace

void vimbra::ForgetStatistics() {
    SetStarted(0);
}

s32 VimbraStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb) {
    if (IsStarted()) {
        VLOG_PRINT("vimbra stat is already started");
        return VIMBRA_OK;
    }
    if (nInterval <= 0) {
        VLOG_ERROR("nInterval %d param is invalid!", nInterval);
        return VIMBRA_ERR_GENERAL;
    }
    if (pfNotifyCb == nullptr) {
        VLOG_ERROR("pfNotifyCb is NULL!");
        return VIMBRA_ERR_GENERAL;
    }
    const pthread_t thread =
        StartListener(kService, g_tStatListener, {.argument = reinterpret_cast<void*>(pfNotifyCb)});
    // A thread that could not be made is 0 and passes here; stopping tells it.
    if (thread == static_cast<pthread_t>(-1)) {
        VLOG_ERROR("create callback thread failed!");
        return VIMBRA_ERR_GENERAL;
    }
    if (SendStart(VIMBRA_HERE, nInterval) != VIMBRA_OK) {
        VLOG_ERROR("api_operate_route error");  // Known by these words.
        KillListener(g_tStatListener);
        return VIMBRA_ERR_GENERAL;
    }
    SetStarted(1);
    return VIMBRA_OK;
}

s32 VimbraStatStop() {
    if (!IsStarted()) {
        VLOG_PRINT("vimbra stat is already stoped");
        return VIMBRA_OK;
    }
    if (SendStop(VIMBRA_HERE) != VIMBRA_OK) {
        VLOG_ERROR("stat stop error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (KillListener(g_tStatListener).result != 0) {
        VLOG_ERROR("stat thread_kill error!");
        return VIMBRA_ERR_GENERAL;
    }
    SetStarted(0);
    return VIMBRA_OK;
}
