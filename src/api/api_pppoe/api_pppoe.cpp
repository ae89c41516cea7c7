#include <vimbra/pppoe.h>
#include <vimbra/thread.h>

#include "api/api_pppoe/pppoe_wire.hpp"
#include "api/forget.hpp"
#include "lib/base/lock.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/families.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

template <>
inline constexpr auto vimbra::kStartedField<TPppoeInfo> = &TPppoeInfo::bPppoeStarted;

TPppoeInfo* g_ptApiPppoeInfo = nullptr;

namespace {

constexpr RequestRule kStartRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid : %d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kPlain,
};

constexpr RequestRule kStopRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet = %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid = %d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kPlain,
};

using Link = FamilyRecord<TPppoeInfo>;
FamilyTable<TPppoeInfo, 3>* g_ptLinks = nullptr;

// Guards the links. Not held while the daemon or a thread is waited for, nor in a callback, which
// may start and stop.
pthread_mutex_t g_tPppoeMutex = PTHREAD_MUTEX_INITIALIZER;

// ---- The links, with the lock held -------------------------------------------------------------

bool Runs(int index) {
    return IsStarted(g_ptLinks->of[index].info);
}

void MarkStarted(Link& link) {
    if (FamilyOf(link.info) == VIMBRA_FAMILY_BOTH) {
        SetStarted(g_ptLinks->of[0].info, true);
        SetStarted(g_ptLinks->of[1].info, true);
    }
    SetStarted(link.info, true);
}

// Where one half runs, starting both is starting the other half and stopping both is stopping that
// one.
u16 Narrow(u16 family, u16 ifOnlyIpv4Runs, u16 ifOnlyIpv6Runs) {
    if (family != VIMBRA_FAMILY_BOTH || g_ptLinks == nullptr || Runs(0) == Runs(1)) {
        return family;
    }
    return Runs(0) ? ifOnlyIpv4Runs : ifOnlyIpv6Runs;
}

Link* FamilyMapPppoeInfo(u16 wSinFamily) {
    static constexpr LookupWords kWords = {
        "the vimbra is not init!",
        VIMBRA_TAG_ERR "the sinfamily %d is invalid!",
    };
    return FindFamily(VIMBRA_HERE, kWords, g_ptLinks, wSinFamily);
}

// ---- The listening thread ----------------------------------------------------------------------

void Call(const Listener& listener, u32 event, void* data, u32 length) {
    Lock lock(g_tPppoeMutex);
    const auto* link = static_cast<const Link*>(listener.Argument());
    const TVimbraPppoeCallBack callback =
        listener.IsCurrent() ? link->info.pfPppoeNotifyCallBack : nullptr;
    lock.Unlock();
    if (callback != nullptr) {
        callback(event, data, length);
    }
}

Next TakeEvent(Listener& listener, Message& message) {
    const u32 type = message.head.type;
    switch (type) {
        case kPppoeConnected:
            Call(listener, type, message.body, sizeof(TVimbraPppoeAddr));
            break;
        case kPppoeEvent2:
        case kPppoeEvent3:
        case kPppoeEvent4:
        case kPppoeStopped:
            Call(listener, type, nullptr, 0);
            break;
        default:
            VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", type);
            break;
    }
    return Next::kGoOn;
}

// An IPv4 peer that says nothing is taken for one that says 0, which is unknown.
Next TakeEventIpv6(Listener& listener, Message& message) {
    if (message.count == 0) {
        VLOG_ERROR_AT(listener.At(__LINE__), "the peer connection has been closed!");
        return Next::kGoOn;
    }
    return TakeEvent(listener, message);
}

constexpr ListenerService Service(const char* function, const char* threadName,
                                  const char* socketName, Next (*message)(Listener&, Message&)) {
    return {
        .function = function,
        .threadName = threadName,
        .socketName = socketName,
        .detached = false,
        .bodySize = sizeof(TVimbraPppoeAddr),
        .reading = Reading::kUpTo,
        .acceptFailure = AcceptFailure::kMayBePassing,
        .serverText = "MakeAddrServer error!",
        .outOfMemory = {"XMALLOC error", FailureRule::kErrno, Next::kEnd},
        .shortRead = {"read error", FailureRule::kErrno, Next::kGoOn},
        .message = message,
    };
}

constexpr ListenerService kIpv4 =
    Service("PppoeCBThread", "VimbraPppoeCBThread", kPppoeSocketIpv4, TakeEvent);
constexpr ListenerService kIpv6 =
    Service("PppoeCBThread6", "VimbraPppoeCBThread6", kPppoeSocketIpv6, TakeEventIpv6);

// ---- Requests ----------------------------------------------------------------------------------

s32 ApicPppoeStart(const TPppoeInfo& info) {
    return SendRequest<PppoeStartBody>(VIMBRA_HERE, kStartRule, kPppoeStart, [&](auto& body) {
        body.wSinFamily = info.wSinFamily;
        body.tConfig = info.tConfig;
    });
}

s32 ApicPppoeStop(u16 wSinFamily) {
    return SendRequest<PppoeStopBody>(VIMBRA_HERE, kStopRule, kPppoeStop,
                                      [&](auto& body) { body.wSinFamily = wSinFamily; });
}

// ---- Parameters --------------------------------------------------------------------------------

// Neither empty nor without terminator.
template <size_t N>
bool IsText(const char (&field)[N]) {
    const size_t length = strnlen(field, N);
    return length > 0 && length < N;
}

s32 CheckPppoeParam(const TVimbraPppoeParam* ptPppoeParam, u16 wSinFamily,
                    TVimbraPppoeCallBack ptNotifyCallBack) {
    if (ptPppoeParam == nullptr || ptNotifyCallBack == nullptr) {
        VLOG_ERROR("the ptPppoeParam or ptNotifyCallBack is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    // Kept: only 0, others fail at the lookup; the test is Pppoe.UnknownFamilyFailsAtTheLookup.
    if (wSinFamily == 0) {
        VLOG_ERROR("wSinFamily is not VIMBRA_PROTO_TYPE_IPV4 and is not AF_INET6!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (!IsText(ptPppoeParam->achUserName)) {
        VLOG_ERROR("the user name is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (!IsText(ptPppoeParam->achPassword)) {
        VLOG_ERROR("the password is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (!IsText(ptPppoeParam->achDevName)) {
        VLOG_ERROR("the device name is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    return VIMBRA_OK;
}

bool IsEchoCount(u16 value) {
    return value >= 1 && value <= 255;
}

// A text field that was filled before.
template <size_t N>
void Refill(char (&field)[N], const char (&text)[N]) {
    memset(field, 0, N);
    CopyField(field, text);
}

void FillConfig(CallSite site, const TVimbraPppoeParam& param, PppoeConfig& config) {
    constexpr u32 kEchoInterval = 20;
    constexpr u32 kEchoFailures = 3;
    Refill(config.username, param.achUserName);
    Refill(config.password, param.achPassword);
    config.auto_dial_enable = param.bAutoDialEnable;
    config.default_route_enable = param.bDefaultRouteEnable;
    if (param.bDebug != 0) {
        config.debug = 1;  // Kept: it is never cleared; the test is Pppoe.DebugStays.
    }
    config.dial_retry_seconds = param.dwAutoDialInterval;
    config.lcp_echo_interval = param.wLcpEchoSendInterval;
    if (!IsEchoCount(param.wLcpEchoSendInterval)) {
        VLOG_PRINT_AT(site, "the lcp echo interval is :%d, use default : %d",
                      param.wLcpEchoSendInterval, static_cast<int>(kEchoInterval));
        config.lcp_echo_interval = kEchoInterval;
    }
    config.lcp_echo_failure = param.wLcpEchoRetryTimes;
    if (!IsEchoCount(param.wLcpEchoRetryTimes)) {
        VLOG_PRINT_AT(site,
                      "the lcp echo timeout times is :%d, use default :", param.wLcpEchoRetryTimes);
        config.lcp_echo_failure = kEchoFailures;
    }
    config.maxfail = param.wDialRetryTimes;
    Refill(config.devname, param.achDevName);
}

// ---- Starting and stopping ---------------------------------------------------------------------

// Everything between taking the link and marking it as started.
s32 Dial(CallSite site, Link& link) {
    if (!StartListener(IsIpv4(link.info) ? kIpv4 : kIpv6, link.listener,
                       {.argument = &link, .handle = &link.info.tPppoeThreadId})) {
        VLOG_ERROR_AT(site, "pppoe ThreadSpawn error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (ApicPppoeStart(link.info) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "ApicPppoeStart start error!");
        // Not waited for: its callback may be in a call that waits for this one.
        ThreadDetach(KillListener(link.listener).join);
        return VIMBRA_ERR_REFUSED;
    }
    return VIMBRA_OK;
}

void HangUp(CallSite site, Link& link) {
    const ListenerStop stop = KillListener(link.listener);
    if (stop.result != 0) {
        errno = ESRCH;
        LogErrnoAt(site, "pthread_cancel error");
    }
    WaitListener(stop);
}

// Stopping both marks the halves as stopped, in one step, so that nobody sees one of them run. One
// that was started on its own, before or at the same time, ends with it: no later stop would find
// it. One whose start or stop is under way is that call's, which marks it when it is done.
void HangUpHalves() {
    ListenerStop stops[2] = {};
    {
        const Lock lock(g_tPppoeMutex);
        for (int i = 0; i < 2; i++) {
            Link& half = g_ptLinks->of[i];
            SetStarted(half.info, false);
            if (!half.isStarting && !half.isStopping) {
                stops[i] = KillListener(half.listener);
            }
        }
    }
    for (const ListenerStop& stop : stops) {
        WaitListener(stop);
    }
}

}  // namespace

void PppoeInit() {
    const Lock lock(g_tPppoeMutex);
    if (g_ptLinks != nullptr) {
        return;
    }
    g_ptLinks =
        NewFamilies<TPppoeInfo>({VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6, VIMBRA_FAMILY_BOTH});
    if (g_ptLinks == nullptr) {
        VLOG_ERRNO("XMALLOC error");
        return;
    }
    g_ptApiPppoeInfo = &g_ptLinks->of[0].info;
}

void vimbra::ForgetPppoeLinks() {
    g_tPppoeMutex = PTHREAD_MUTEX_INITIALIZER;
    if (g_ptLinks == nullptr) {
        return;
    }
    ForgetFamilies(*g_ptLinks);
    for (Link& link : g_ptLinks->of) {
        link.info.pfPppoeNotifyCallBack = nullptr;
    }
}

s32 VimbraPppoeStart(TVimbraPppoeParam* ptPppoeParam, u16 wSinFamily,
                     TVimbraPppoeCallBack ptNotifyCallBack) {
    if (CheckPppoeParam(ptPppoeParam, wSinFamily, ptNotifyCallBack) != VIMBRA_OK) {
        VLOG_ERROR("CheckPppoeParam error!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const CancelGuard guard;
    Lock lock(g_tPppoeMutex);
    wSinFamily = Narrow(wSinFamily, VIMBRA_FAMILY_IPV6, VIMBRA_FAMILY_IPV4);
    Link* const link = FamilyMapPppoeInfo(wSinFamily);
    if (link == nullptr) {
        VLOG_ERROR("FamilyMapPppoeInfo error!");
        return VIMBRA_ERR_GENERAL;
    }
    // A stop of both may have marked one as stopped whose own stop is under way.
    if (IsStarted(link->info) || link->isStarting || link->isStopping) {
        VLOG_ERROR("the wSinFamily %d ppppe has been started!", wSinFamily);
        return VIMBRA_ERR_GENERAL;
    }
    link->isStarting = true;
    link->generation++;
    FillConfig(VIMBRA_HERE, *ptPppoeParam, link->info.tConfig);
    link->info.pfPppoeNotifyCallBack = ptNotifyCallBack;
    lock.Unlock();

    const s32 result = Dial(VIMBRA_HERE, *link);

    const Lock again(g_tPppoeMutex);
    link->isStarting = false;
    if (result == VIMBRA_OK) {
        MarkStarted(*link);
    }
    return result;
}

s32 VimbraPppoeStop(const char*, u16 wSinFamily) {
    const CancelGuard guard;
    Lock lock(g_tPppoeMutex);
    wSinFamily = Narrow(wSinFamily, VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6);
    Link* const link = FamilyMapPppoeInfo(wSinFamily);
    if (link == nullptr) {
        VLOG_ERROR("FamilyMapPppoeInfo error!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const auto isStoppable = [link, generation = link->generation] {
        return IsStarted(link->info) && !link->isStarting && !link->isStopping &&
               link->generation == generation;
    };
    if (!isStoppable()) {
        VLOG_PRINT("pppoe already stopped!");
        return VIMBRA_OK;
    }
    lock.Unlock();

    if (ApicPppoeStop(wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("ApicPppoeStop error!");
        return VIMBRA_ERR_GENERAL;
    }

    Lock taking(g_tPppoeMutex);
    if (!isStoppable()) {
        return VIMBRA_OK;  // Another call was faster, and what was started since is not this one's.
    }
    link->isStopping = true;
    taking.Unlock();

    HangUp(VIMBRA_HERE, *link);
    if (wSinFamily == VIMBRA_FAMILY_BOTH) {
        HangUpHalves();
    }

    Lock marking(g_tPppoeMutex);
    link->isStopping = false;
    SetStarted(link->info, false);
    const TVimbraPppoeCallBack callback = link->info.pfPppoeNotifyCallBack;
    link->info.pfPppoeNotifyCallBack = nullptr;
    marking.Unlock();
    if (callback != nullptr) {
        callback(VIMBRA_PPPOE_EVENT_STOPPED, nullptr, 0);
    }
    return VIMBRA_OK;
}

s32 VimbraPppoeVer(TVimbraVersion* ptVersion) {
    if (ptVersion == nullptr) {
        VLOG_ERROR("the ptVersion is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    *ptVersion = {"pppd version 2.4.5\nPPPoE Version 3.10"};
    return VIMBRA_OK;
}

void VimbraPppoeStatesDump(TVimbraPppoeStates*) {}
