// PPPoE.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vimbra/common.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "no_threads.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr u32 kStart = 0x601;
constexpr u32 kStop = 0x602;
constexpr char kSocket[] = "ipc_pppoe";
constexpr char kSocket6[] = "ipc_pppoe6";
constexpr char kThread[] = "PppoeCBThread";
constexpr char kThread6[] = "PppoeCBThread6";

struct Event {
    u32 event;
    bool hasData;
    Bytes data;
    std::string thread;
};

// Never destroyed: listeners may outlive main().
Recorder<Event>& g_events = *new Recorder<Event>;

void Take(u32 event, void* data, u32 length) {
    const auto* bytes = static_cast<const u8*>(data);
    if (data == nullptr) {
        EXPECT_EQ(0u, length);
    }
    g_events.Add({event, data != nullptr, Bytes(std::span(bytes, data != nullptr ? length : 0)),
                  ThisThread()});
}

void Never(u32, void*, u32) {
    ADD_FAILURE() << "the wrong callback";
}

template <size_t N>
void SetText(char (&field)[N], std::string_view text) {
    memset(field, 0, N);
    memcpy(field, text.data(), std::min(N, text.size()));
}

TVimbraPppoeParam Param() {
    TVimbraPppoeParam param = {};
    SetText(param.achUserName, "user");
    SetText(param.achPassword, "secret");
    SetText(param.achServerName, "server");
    SetText(param.achDevName, "eth0");
    param.bAutoDialEnable = 1;
    param.bDefaultRouteEnable = 2;
    param.dwAutoDialInterval = 30;
    param.wDialRetryTimes = 5;
    param.wLcpEchoSendInterval = 40;
    param.wLcpEchoRetryTimes = 6;
    return param;
}

struct Config {
    std::string user = "user";
    std::string password = "secret";
    u32 autoDial = 1;
    u32 defaultRoute = 2;
    u32 debug = 0;
    u32 retrySeconds = 30;
    u32 echoInterval = 40;
    u32 echoFailure = 6;
    u32 maxFail = 5;
    std::string device = "eth0";

    [[nodiscard]] Bytes Body(u16 family) const {
        return Pack()
            .U16(family)
            .Text(user, 255)
            .Text(password, 255)
            .Zeros(255)
            .U32(autoDial)
            .U32(defaultRoute)
            .U32(debug)
            .U32(retrySeconds)
            .U32(echoInterval)
            .U32(echoFailure)
            .U32(maxFail)
            .Text(device, 16);
    }
};

Bytes Addresses() {
    return Pack()
        .Address(2, "192.0.2.1")
        .Address(2, "192.0.2.2")
        .Address(2, "192.0.2.53")
        .Address(2, "192.0.2.54");
}

std::vector<std::string> Started() {
    std::vector<std::string> started;
    for (const TPppoeInfo* info = g_ptApiPppoeInfo; info != nullptr; info = info->ptNext) {
        started.push_back(std::to_string(info->wSinFamily) + "=" +
                          std::to_string(__atomic_load_n(&info->bPppoeStarted, __ATOMIC_ACQUIRE)));
    }
    return started;
}

s32 Start(u16 family, TVimbraPppoeCallBack callback = Take) {
    TVimbraPppoeParam param = Param();
    return VimbraPppoeStart(&param, family, callback);
}

s32 Stop(u16 family) {
    return VimbraPppoeStop(nullptr, family);
}

using Pppoe = Prepared;

// ---- Start -------------------------------------------------------------------------------------

TEST_F(Pppoe, StartSendsTheConfigurationOnceTheListenerStands) {
    bool listening = false;
    daemon_.On(kStart,
               Answer::Code(0).After([&](const Request&) { listening = HasListener(kSocket); }));
    EXPECT_EQ(0, Start(2));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Config().Body(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(811u, daemon_.Requests()[0].size);
    EXPECT_EQ(1u, daemon_.Requests()[0].reads);
    EXPECT_TRUE(listening);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=0", "11=0"));
    EXPECT_THAT(ThreadNames(), Contains(ThreadOf("VimbraPppoeCBThread")));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, OtherFamiliesListenOnTheOtherSocket) {
    EXPECT_EQ(0, Start(10));
    EXPECT_TRUE(HasListener(kSocket6));
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(Config().Body(10), daemon_.Requests()[0].body);
    EXPECT_EQ(0, Stop(10));
    EXPECT_EQ(0, Start(11));
    EXPECT_TRUE(HasListener(kSocket6));
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(Config().Body(11), daemon_.Requests(kStart)[1].body);
    EXPECT_TRUE(Notify(kSocket6, 2, {}));
    ASSERT_EQ(2u, g_events.Count());
    EXPECT_EQ(ThreadOf("VimbraPppoeCBThread6"), g_events.Events()[1].thread);
    EXPECT_EQ(0, Stop(11));
}

TEST_F(Pppoe, EchoCountsOutOfRangeBecomeTheDefaults) {
    struct Case {
        u16 interval;
        u32 sentInterval;
        u16 times;
        u32 sentTimes;
    };
    for (const Case& c : {Case{0, 20, 0, 3}, Case{1, 1, 1, 1}, Case{255, 255, 255, 255},
                          Case{256, 20, 256, 3}, Case{300, 20, 65535, 3}, Case{65535, 20, 3, 3}}) {
        daemon_.Forget();
        log_.Clear();
        TVimbraPppoeParam param = Param();
        param.wLcpEchoSendInterval = c.interval;
        param.wLcpEchoRetryTimes = c.times;
        EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
        Config config;
        config.echoInterval = c.sentInterval;
        config.echoFailure = c.sentTimes;
        EXPECT_EQ(config.Body(2), daemon_.Requests().at(0).body);
        EXPECT_EQ(c.interval != c.sentInterval ? 1 : 0,
                  log_.Count(Kind::kPrint, "VimbraPppoeStart",
                             "the lcp echo interval is :" + std::to_string(c.interval) +
                                 ", use default : 20"));
        EXPECT_EQ(c.times != c.sentTimes ? 1 : 0,
                  log_.Count(Kind::kPrint, "VimbraPppoeStart",
                             "the lcp echo timeout times is :" + std::to_string(c.times) +
                                 ", use default :"));
        EXPECT_TRUE(log_.HasNoTrouble());
        EXPECT_EQ(0, Stop(2));
    }
}

TEST_F(Pppoe, DebugStays) {
    TVimbraPppoeParam param = Param();
    param.bDebug = 7;
    Config config;
    config.debug = 1;
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(0, Stop(2));
    param.bDebug = 0;
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(config.Body(2), daemon_.Requests(kStart)[0].body);
    EXPECT_EQ(config.Body(2), daemon_.Requests(kStart)[1].body);
    // Each family has its own.
    EXPECT_EQ(0, VimbraPppoeStart(&param, 10, Take));
    EXPECT_EQ(Config().Body(10), daemon_.Requests(kStart)[2].body);
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, NothingOfAnEarlierStartIsSentAgain) {
    TVimbraPppoeParam param = Param();
    SetText(param.achUserName, std::string(254, 'u'));
    SetText(param.achPassword, std::string(254, 'p'));
    SetText(param.achDevName, std::string(15, 'd'));
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    Config config;
    config.user = std::string(254, 'u');
    config.password = std::string(254, 'p');
    config.device = std::string(15, 'd');
    EXPECT_EQ(config.Body(2), daemon_.Requests(kStart)[0].body);
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(Config().Body(2), daemon_.Requests(kStart)[1].body);
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, WhatStandsBehindATextIsNotSent) {
    TVimbraPppoeParam param = Param();
    memset(param.achUserName + 5, 'x', 250);
    memset(param.achServerName, 'x', 255);
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(Config().Body(2), daemon_.Requests()[0].body);
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, ParametersAreCheckedInOrder) {
    TVimbraPppoeParam param = {};
    memset(param.achUserName, 'u', 255);
    memset(param.achPassword, 'p', 255);
    memset(param.achDevName, 'd', 16);
    const auto refused = [&](u16 family, TVimbraPppoeCallBack callback, TVimbraPppoeParam* record,
                             const char* text) {
        log_.Clear();
        EXPECT_EQ(1105, VimbraPppoeStart(record, family, callback));
        EXPECT_TRUE(log_.Has(Kind::kError, "CheckPppoeParam", text));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPppoeStart", "CheckPppoeParam error!"));
        EXPECT_EQ(2, log_.Count(Kind::kError));
    };
    refused(0, Take, nullptr, "the ptPppoeParam or ptNotifyCallBack is invalid!");
    refused(0, nullptr, &param, "the ptPppoeParam or ptNotifyCallBack is invalid!");
    refused(0, Take, &param, "wSinFamily is not VIMBRA_PROTO_TYPE_IPV4 and is not AF_INET6!");
    refused(7, Take, &param, "the user name is invalid!");
    SetText(param.achUserName, "");
    refused(2, Take, &param, "the user name is invalid!");
    SetText(param.achUserName, std::string(254, 'u'));
    refused(2, Take, &param, "the password is invalid!");
    SetText(param.achPassword, "");
    refused(2, Take, &param, "the password is invalid!");
    SetText(param.achPassword, std::string(254, 'p'));
    refused(2, Take, &param, "the device name is invalid!");
    SetText(param.achDevName, "");
    refused(2, Take, &param, "the device name is invalid!");
    EXPECT_EQ(0u, daemon_.Connections());
    SetText(param.achDevName, std::string(15, 'd'));
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, UnknownFamilyFailsAtTheLookup) {
    for (const int family : {1, 7, 12, 65535}) {
        EXPECT_EQ(-1, Start(static_cast<u16>(family)));
        EXPECT_TRUE(log_.Has(Kind::kError, "FamilyMapPppoeInfo",
                             "the sinfamily " + std::to_string(family) + " is invalid!"));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "VimbraPppoeStart", "FamilyMapPppoeInfo error!"));
    EXPECT_EQ(1105, Stop(7));
    EXPECT_EQ(1105, Stop(0));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraPppoeStop", "FamilyMapPppoeInfo error!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST(PppoeAlone, WithoutInitNothingStarts) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(nullptr, g_ptApiPppoeInfo);
    EXPECT_EQ(-1, Start(2));
    EXPECT_EQ(-1, Start(11));
    EXPECT_EQ(1105, Stop(2));
    EXPECT_EQ(1105, Stop(11));
    EXPECT_EQ(4, log.Count(Kind::kError, "FamilyMapPppoeInfo", "the vimbra is not init!"));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST_F(Pppoe, InitMakesThreeLinksOnce) {
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
    const TPppoeInfo* const first = g_ptApiPppoeInfo;
    PppoeInit();
    EXPECT_EQ(first, g_ptApiPppoeInfo);
}

TEST_F(Pppoe, SecondStartIsRefusedAndTheLinkGoesOn) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(-1, Start(2, Never));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraPppoeStart", "the wSinFamily 2 ppppe has been started!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify(kSocket, 3, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(3u));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, RefusedStartLeavesNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    daemon_.On(kStart, Answer::Code(19));
    for (const u16 family : {2, 10, 11}) {
        EXPECT_EQ(1109, Start(family, Never));
        const char* const socket = family == 2 ? kSocket : kSocket6;
        EXPECT_FALSE(Connection(socket).Connected());
        EXPECT_TRUE(WaitForNoListener(socket));
    }
    EXPECT_EQ(3,
              log_.Count(Kind::kError, "ApicPppoeStart", "send and recv msg error, nErrid : 19!"));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraPppoeStart", "ApicPppoeStart start error!"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPppoeStop", "pppoe already stopped!"));
    daemon_.On(kStart, Answer::Code(0));
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
}

TEST(PppoeAlone, WithoutDaemonStartIs1109) {
    Capture log;
    ASSERT_EQ(0, VimbraInit());
    EXPECT_EQ(1109, Start(2, Never));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicPppoeStart", "send and recv msg error, nRet : -1!"));
    EXPECT_FALSE(Connection(kSocket).Connected());
    EXPECT_TRUE(WaitForNoListener(kSocket));
}

TEST_F(Pppoe, WithoutThreadStartFails) {
    const auto descriptors = OpenDescriptors();
    {
        const NoThreads none;
        EXPECT_EQ(-1, Start(2, Never));
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPppoeStart", "pppoe ThreadSpawn error!"));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, ListenerThatCannotBindEndsAndTheStartSucceeds) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_pppoe", 0700));
    const size_t threads = Threads();
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kThread, "accept error"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(1, log_.Count(Kind::kPerror, kThread, "accept error"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "VimbraPppoeStop", "pthread_cancel error"));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(5u));
}

// ---- Stop --------------------------------------------------------------------------------------

TEST_F(Pppoe, StopAsksTheDaemonAndTellsTheCallback) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, Start(2));
    prctl(PR_SET_NAME, "stopper");
    EXPECT_EQ(0, VimbraPppoeStop("whatever", 2));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().U16(2)), daemon_.Requests()[1].raw);
    ASSERT_THAT(g_events.Kinds(), ElementsAre(5u));
    EXPECT_FALSE(g_events.Events()[0].hasData);
    EXPECT_EQ("stopper", g_events.Events()[0].thread);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPppoeStop", "pppoe already stopped!"));
    EXPECT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(1u, g_events.Count());
}

TEST_F(Pppoe, RefusedStopChangesNothing) {
    EXPECT_EQ(0, Start(10));
    daemon_.Next(kStop, Answer::Code(4));
    EXPECT_EQ(-1, Stop(10));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPppoeStop", "send and recv msg error, nErrid = 4!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPppoeStop", "ApicPppoeStop error!"));
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=1", "11=0"));
    EXPECT_TRUE(Notify(kSocket6, 4, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(4u));
    EXPECT_EQ(0, Stop(10));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(4u, 5u));
}

TEST_F(Pppoe, StopWithBadReplyIsMinusOne) {
    EXPECT_EQ(0, Start(2));
    daemon_.Next(kStop, Answer::Raw(Pack().U32(0).U32(4).U32(0).U8(1)));
    EXPECT_EQ(-1, Stop(2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPppoeStop", "send and recv msg error, nRet = 13!"));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, StopWaitsForARunningCallback) {
    const Gate gate;
    g_events.InCallback([&](const Event& event) {
        if (event.event == 1) {
            gate.Pass();
        }
    });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses(), {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    std::atomic<bool> stopped = false;
    std::thread stopper([&] {
        EXPECT_EQ(0, Stop(2));
        stopped = true;
    });
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_FALSE(stopped);
    EXPECT_THAT(g_events.Kinds(), ElementsAre(1u));
    // Meanwhile it is neither started again nor stopped twice.
    EXPECT_EQ(-1, Start(2, Never));
    EXPECT_EQ(0, Stop(2));
    gate.Open();
    stopper.join();
    EXPECT_THAT(g_events.Kinds(), ElementsAre(1u, 5u));
    EXPECT_EQ(1u, daemon_.Requests(kStop).size());
}

TEST_F(Pppoe, CallbackMayStopItsLink) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    g_events.InCallback([&](const Event& event) {
        if (event.event == 3) {
            EXPECT_EQ(0, Stop(2));
        }
    });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 3, {}));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(3u, 5u));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, CallbackMayStopItsLinkWhileItIsStopped) {
    const Gate gate;
    g_events.InCallback([&](const Event& event) {
        if (event.event == 3) {
            gate.Pass();
            EXPECT_EQ(0, Stop(2));
        }
    });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 3, {}, {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    std::thread stopper([&] { EXPECT_EQ(0, Stop(2)); });
    EXPECT_TRUE(WaitForNoListener(kSocket));
    gate.Open();
    stopper.join();
    EXPECT_THAT(g_events.Kinds(), ElementsAre(3u, 5u));
}

TEST_F(Pppoe, CallbackMayStartAgainWhenItIsStopped) {
    std::atomic<int> starts = 0;
    g_events.InCallback([&](const Event& event) {
        if (event.event == 5 && starts++ == 0) {
            EXPECT_EQ(0, Start(2));
        }
    });
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=0", "11=0"));
    EXPECT_TRUE(Notify(kSocket, 4, {}));
    EXPECT_EQ(0, Stop(2));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(5u, 4u, 5u));
}

TEST_F(Pppoe, StopCutsAListenerThatReads) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, Start(2));
    Connection silent(kSocket);
    ASSERT_TRUE(silent.Connected());
    ASSERT_TRUE(WaitFor([&] { return OpenDescriptors().size() == descriptors.size() + 2; }));
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(silent.WaitPeerClosed());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

// ---- Both families together --------------------------------------------------------------------

TEST_F(Pppoe, BothTogetherMarkAllThree) {
    EXPECT_EQ(0, Start(11));
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=1", "11=1"));
    for (const u16 family : {2, 10, 11}) {
        EXPECT_EQ(-1, Start(family, Never));
        EXPECT_TRUE(
            log_.Has(Kind::kError, "VimbraPppoeStart",
                     "the wSinFamily " + std::to_string(family) + " ppppe has been started!"));
    }
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, Stop(11));
    EXPECT_EQ(Message(kStop, Pack().U16(11)), daemon_.Requests()[1].raw);
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(5u));
}

TEST_F(Pppoe, BothTogetherStartTheHalfThatDoesNotRun) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(11));
    EXPECT_EQ(Config().Body(10), daemon_.Requests(kStart)[1].body);
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=1", "11=0"));
    // One by one they are not what stopping both stops.
    EXPECT_EQ(0, Stop(11));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPppoeStop", "pppoe already stopped!"));
    EXPECT_EQ(0u, daemon_.Requests(kStop).size());
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
    // With one half left it does.
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(11));
    EXPECT_EQ(Pack().U16(10), daemon_.Requests(kStop)[1].body);
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));

    EXPECT_EQ(0, Start(10));
    EXPECT_EQ(0, Start(11));
    EXPECT_EQ(Config().Body(2), daemon_.Requests(kStart)[3].body);
    EXPECT_EQ(0, Stop(10));
    EXPECT_EQ(0, Stop(11));
    EXPECT_EQ(Pack().U16(2), daemon_.Requests(kStop)[3].body);
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
}

TEST_F(Pppoe, BothTogetherMayBeStartedOverBothHalves) {
    const size_t threads = Threads();
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    EXPECT_EQ(0, Start(11));
    EXPECT_EQ(Config().Body(11), daemon_.Requests(kStart)[2].body);
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=1", "11=1"));
    EXPECT_EQ(0, Stop(11));
    // All are marked as stopped, and no thread is left that calls back.
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_FALSE(HasListener(kSocket6));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(5u));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(1u, daemon_.Requests(kStop).size());
    for (const u16 family : {2, 10}) {
        EXPECT_EQ(0, Start(family));
        EXPECT_EQ(0, Stop(family));
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
}

TEST_F(Pppoe, HalfOfBothHasNoThreadToStop) {
    for (const u16 half : {2, 10}) {
        daemon_.Forget();
        log_.Clear();
        EXPECT_EQ(0, Start(11));
        EXPECT_EQ(0, Stop(half));
        EXPECT_EQ(Message(kStop, Pack().U16(half)), daemon_.Requests().at(1).raw);
        EXPECT_TRUE(log_.Has(Kind::kPerror, "VimbraPppoeStop", "pthread_cancel error"));
        // The one that listens is still there.
        EXPECT_TRUE(Notify(kSocket6, 2, {}));
        // The other half alone runs, so stopping both stops it; then both.
        EXPECT_EQ(0, Stop(11));
        EXPECT_EQ(Pack().U16(half == 2 ? 10 : 2), daemon_.Requests().at(2).body);
        EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=1"));
        EXPECT_EQ(0, Stop(11));
        EXPECT_EQ(Pack().U16(11), daemon_.Requests().at(3).body);
        EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(2u, 5u, 2u, 5u));
}

// ---- Calls that cross --------------------------------------------------------------------------

TEST_F(Pppoe, StartsOfBothAndOfAHalfAtOnceLeaveNothingWhenAllAreStopped) {
    for (const u16 half : {2, 10}) {
        for (const auto& order : {std::vector<u16>{11, 10, 2}, {2, 10, 11}, {11, 2, 10}}) {
            const size_t threads = Threads();
            const auto descriptors = OpenDescriptors();
            const Gate gate;
            daemon_.Next(kStart, Answer::Code(0).Behind(gate));
            daemon_.Next(kStart, Answer::Code(0).Behind(gate));
            std::thread both([&] { EXPECT_EQ(0, Start(11)); });
            std::thread one([&] { EXPECT_EQ(0, Start(half)); });
            ASSERT_TRUE(gate.WaitArrived(2));
            gate.Open();
            both.join();
            one.join();
            EXPECT_THAT(Started(), ElementsAre("2=1", "10=1", "11=1"));
            for (const u16 family : order) {
                EXPECT_EQ(0, Stop(family));
            }
            EXPECT_THAT(Started(), ElementsAre("2=0", "10=0", "11=0"));
            EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
            EXPECT_EQ(descriptors, OpenDescriptors());
        }
    }
    EXPECT_EQ(0, Start(11));
    EXPECT_TRUE(Notify(kSocket6, 4, {}));
    EXPECT_EQ(0, Stop(11));
}

TEST_F(Pppoe, StopOfBothLeavesAHalfThatIsBeingStarted) {
    const Gate gate;
    daemon_.Next(kStart, Answer::Code(0).Behind(gate));
    std::thread half([&] { EXPECT_EQ(0, Start(10)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, Start(11, [](u32, void*, u32) {}));
    EXPECT_EQ(0, Stop(11));
    gate.Open();
    half.join();
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=1", "11=0"));
    EXPECT_THAT(ThreadNames(), Contains(ThreadOf("VimbraPppoeCBThread6")));
    EXPECT_EQ(0, Stop(10));
    EXPECT_THAT(log_.Count(Kind::kPerror, "VimbraPppoeStop", "pthread_cancel error"), 0);
    EXPECT_EQ(0, Start(10));
    EXPECT_TRUE(Notify(kSocket6, 4, {}));
    EXPECT_EQ(0, Stop(10));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(5u, 4u, 5u));
}

// It waits for a callback of the one half while the start of the other one comes to its end.
TEST_F(Pppoe, StopOfBothLeavesAHalfWhoseStartEndsMeanwhile) {
    const Gate starting;
    const Gate startingBoth;
    const Gate calling;
    daemon_.Next(kStart, Answer::Code(0).Behind(starting));
    std::thread half([] { EXPECT_EQ(0, Start(2, [](u32, void*, u32) {})); });
    ASSERT_TRUE(starting.WaitArrived());
    daemon_.Next(kStart, Answer::Code(0).Behind(startingBoth));
    std::thread both([] { EXPECT_EQ(0, Start(11, [](u32, void*, u32) {})); });
    ASSERT_TRUE(startingBoth.WaitArrived());
    // It has the socket now.
    EXPECT_EQ(0, Start(10));
    startingBoth.Open();
    both.join();
    g_events.InCallback([&] { calling.Pass(); });
    EXPECT_TRUE(Notify(kSocket6, 4, {}, {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(calling.WaitArrived());
    std::thread stopper([] { EXPECT_EQ(0, Stop(11)); });
    EXPECT_TRUE(WaitForNoListener(kSocket6));
    starting.Open();
    half.join();
    calling.Open();
    stopper.join();
    g_events.InCallback(nullptr);
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=0", "11=0"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(WaitForNoListener(kSocket));
}

TEST_F(Pppoe, LateStopLeavesALinkThatWasStartedSinceAlone) {
    EXPECT_EQ(0, Start(2));
    const Gate gate;
    daemon_.Next(kStop, Answer::Code(0).Behind(gate));
    std::thread stopper([] { EXPECT_EQ(0, Stop(2)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Start(2));
    gate.Open();
    stopper.join();
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=0", "11=0"));
    EXPECT_TRUE(Notify(kSocket, 4, {}));
    EXPECT_EQ(0, Stop(2));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(5u, 4u, 5u));
}

// ---- Events ------------------------------------------------------------------------------------

TEST_F(Pppoe, EventsReachTheCallback) {
    for (const char* socket : {kSocket, kSocket6}) {
        EXPECT_EQ(0, Start(socket == kSocket ? 2 : 10));
        EXPECT_TRUE(Notify(socket, 1, Addresses()));
        for (const u32 type : {2u, 3u, 4u, 5u}) {
            EXPECT_TRUE(Notify(socket, type, {}));
        }
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(1u, 2u, 3u, 4u, 5u, 1u, 2u, 3u, 4u, 5u));
    EXPECT_EQ(Addresses(), g_events.Events()[0].data);
    EXPECT_FALSE(g_events.Events()[1].hasData);
    EXPECT_EQ(Addresses(), g_events.Events()[5].data);
    EXPECT_EQ(ThreadOf("VimbraPppoeCBThread"), g_events.Events()[0].thread);
    EXPECT_TRUE(log_.HasNoTrouble());
    // The daemon's stop event does not stop anything here.
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=1", "11=0"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, SizeOfAnEventIsNotChecked) {
    EXPECT_EQ(0, Start(2));
    // A body that is too short is zero behind what came, one that is too long is cut.
    EXPECT_TRUE(Notify(kSocket, 1, Pack().Address(2, "192.0.2.1")));
    EXPECT_TRUE(Notify(kSocket, 1, Pack().Add(Addresses()).Zeros(100),
                       {.size = 0xffffffff, .flag = 0, .wait = true}));
    EXPECT_TRUE(Notify(kSocket, 2, Addresses()));
    {
        Connection connection(kSocket);
        connection.Send(Pack().U32(3));
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    ASSERT_THAT(g_events.Kinds(), ElementsAre(1u, 1u, 2u, 3u));
    EXPECT_EQ(Pack().Address(2, "192.0.2.1").FillTo(80), g_events.Events()[0].data);
    EXPECT_EQ(Addresses(), g_events.Events()[1].data);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, UnknownTypeIsLogged) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    EXPECT_TRUE(Notify(kSocket, 6, {}));
    EXPECT_TRUE(Notify(kSocket6, 0xABCD, {}));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread, "the unkonwn type = 0x6"));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread6, "the unkonwn type = 0xabcd"));
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, PeerThatSaysNothing) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    for (const char* socket : {kSocket, kSocket6}) {
        Connection connection(socket);
        ASSERT_TRUE(connection.Connected());
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    EXPECT_TRUE(log_.Has(Kind::kError, kThread, "the unkonwn type = 0x0"));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread6, "the peer connection has been closed!"));
    EXPECT_EQ(2, log_.Count(Kind::kError));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_TRUE(Notify(kSocket6, 2, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(2u, 2u));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, StaleSocketFileIsReplaced) {
    WriteFile("/tmp/ipc_pppoe", "stale");
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, ManyStartsAndStopsLeaveNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 30; i++) {
        for (const u16 family : {2, 10, 11}) {
            EXPECT_EQ(0, Start(family));
            EXPECT_EQ(0, Stop(family));
        }
    }
    EXPECT_EQ(90u, g_events.Count());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

// Want of descriptors passes, and is waited out.
TEST_F(Pppoe, FailedAcceptGoesOn) {
    // A sanitizer wants descriptors for what it has not seen yet, such as the end of a thread of
    // the bed's.
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(daemon_.WaitIdle());
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(daemon_.WaitIdle());
    g_events.Clear();
    const Gate gate;
    g_events.InCallback([&] { gate.Pass(); });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses(), {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    Connection waiting(kSocket);
    ASSERT_TRUE(waiting.Connected());
    waiting.Send(Message(2, {}));
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const auto begin = std::chrono::steady_clock::now();
    gate.Open();
    EXPECT_TRUE(WaitFor([&] { return log_.Count(Kind::kPerror, kThread, "accept error") >= 3; }));
    EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_TRUE(waiting.WaitPeerClosed());
    EXPECT_THAT(g_events.Kinds(), ElementsAre(1u, 2u));
    EXPECT_EQ(0, Stop(2));
}

// ---- Version and state -------------------------------------------------------------------------

TEST_F(Pppoe, VersionIsTwoLines) {
    TVimbraVersion version;
    memset(&version, 'x', sizeof(version));
    EXPECT_EQ(0, VimbraPppoeVer(&version));
    EXPECT_EQ(Pack().Text("pppd version 2.4.5\nPPPoE Version 3.10", 256), AsBytes(version));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(1105, VimbraPppoeVer(nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPppoeVer", "the ptVersion is NULL!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Pppoe, StatesDumpDoesNothing) {
    TVimbraPppoeStates states;
    memset(&states, 'x', sizeof(states));
    VimbraPppoeStatesDump(&states);
    VimbraPppoeStatesDump(nullptr);
    EXPECT_EQ(Bytes(std::vector<u8>(sizeof(states), 'x')), AsBytes(states));
    EXPECT_TRUE(log_.IsSilent());
    EXPECT_EQ(0u, daemon_.Connections());
}

// ---- Legacy ------------------------------------------------------------------------------------

using NetPppoe = Pppoe;

TPppoeInitParam InitParam() {
    TPppoeInitParam param = {};
    SetText(param.abyUserName, "user");
    SetText(param.abyPassword, "secret");
    SetText(param.abyServerName, "server");
    param.bAutoDialEnable = 1;
    param.bDefaultRouteEnable = 2;
    param.dwAutoDialInterval = 30;
    param.wDialRetryTimes = 5;
    param.wLcpEchoSendInterval = 40;
    param.wLcpEchoRetryTimes = 6;
    param.dwEthID = 1;
    return param;
}

TEST_F(NetPppoe, StartIsConverted) {
    TPppoeInitParam param = InitParam();
    param.bDebug = 1;
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    Config config;
    config.device = "eth1";
    config.debug = 1;
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, config.Body(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(0, NetPppoeStop());
    EXPECT_EQ(Message(kStop, Pack().U16(2)), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
    // Not told of its own stop.
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
}

TEST_F(NetPppoe, EventsAreConverted) {
    TPppoeInitParam param = InitParam();
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses()));
    for (const u32 type : {2u, 3u, 4u, 5u, 6u}) {
        EXPECT_TRUE(Notify(kSocket, type, {}));
    }
    ASSERT_THAT(g_events.Kinds(), ElementsAre(9003u, 9006u, 9002u, 9001u, 9004u));
    EXPECT_EQ(Pack().In4("192.0.2.1").In4("192.0.2.2").In4("192.0.2.53").In4("192.0.2.54"),
              g_events.Events()[0].data);
    EXPECT_FALSE(g_events.Events()[1].hasData);
    EXPECT_EQ(0, NetPppoeStop());
    EXPECT_EQ(5u, g_events.Count());
}

TEST_F(NetPppoe, StoppedByTheCurrentCallTheLegacyCallbackHearsIt) {
    TPppoeInitParam param = InitParam();
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    EXPECT_EQ(0, Stop(2));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(9004u));
}

TEST_F(NetPppoe, NullCallbackIsNobody) {
    TPppoeInitParam param = InitParam();
    EXPECT_EQ(0, NetPppoeStart(&param, nullptr));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses()));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, NetPppoeStop());
}

TEST_F(NetPppoe, NumberAbove2HasNoNameAndFails) {
    TPppoeInitParam param = InitParam();
    param.dwEthID = 3;
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckPppoeParam", "the device name is invalid!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetPppoeStart", "VimbraPppoeStart error!"));
    param.dwEthID = 0xffffffff;
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetPppoe, NullRecordsFail) {
    EXPECT_EQ(-1, NetPppoeStart(nullptr, Take));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetPppoeStart", "VimbraPppoeStart error!"));
    EXPECT_EQ(1105, NetPppoeVer(nullptr));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(NetPppoe, EveryFailureIsMinusOne) {
    TPppoeInitParam param = InitParam();
    daemon_.On(kStart, Answer::Code(1));
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
    SetText(param.abyUserName, "");
    EXPECT_EQ(-1, NetPppoeStart(&param, Take));
}

TEST_F(NetPppoe, TextsAreBounded) {
    TPppoeInitParam param = InitParam();
    memset(param.abyUserName, 'u', 255);
    memset(param.abyPassword, 'p', 255);
    memset(param.abyServerName, 's', 255);
    EXPECT_EQ(0, NetPppoeStart(&param, Take));
    Config config;
    config.user = std::string(254, 'u');
    config.password = std::string(254, 'p');
    config.device = "eth1";
    EXPECT_EQ(config.Body(2), daemon_.Requests()[0].body);
    EXPECT_EQ(0, NetPppoeStop());
}

TEST_F(NetPppoe, VersionIsTheCurrentOne) {
    TVersion version;
    memset(&version, 'x', sizeof(version));
    EXPECT_EQ(0, NetPppoeVer(&version));
    EXPECT_STREQ("pppd version 2.4.5\nPPPoE Version 3.10", version.abyVersion);
}

TEST_F(NetPppoe, StopWhenStoppedIsDone) {
    EXPECT_EQ(0, NetPppoeStop());
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPppoeStop", "pppoe already stopped!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

}  // namespace
}  // namespace vimbra::tests
