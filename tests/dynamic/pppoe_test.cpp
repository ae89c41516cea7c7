// PPPoE: start and stop of a link, its version and state.
#include "pppoe.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <vimbra/common.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/pppoe.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "failed_accept.hpp"
#include "no_threads.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;

namespace {

// ---- Start -------------------------------------------------------------------------------------

TEST_F(Pppoe, StartSendsTheConfigurationOnceTheListenerStands) {
    bool listening = false;
    daemon_.On(kStart,
               Answer::Code(0).After([&](const Request&) { listening = HasListener(kSocket); }));
    EXPECT_EQ(0, Start(2));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Sent().Body(2)), daemon_.Requests()[0].raw);
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
    EXPECT_EQ(Sent().Body(10), daemon_.Requests()[0].body);
    EXPECT_EQ(0, Stop(10));
    EXPECT_EQ(0, Start(11));
    EXPECT_TRUE(HasListener(kSocket6));
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(Sent().Body(11), daemon_.Requests(kStart)[1].body);
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
        PppoeConfig config = Sent();
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
    PppoeConfig config = Sent();
    config.debug = 1;
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(0, Stop(2));
    param.bDebug = 0;
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(config.Body(2), daemon_.Requests(kStart)[0].body);
    EXPECT_EQ(config.Body(2), daemon_.Requests(kStart)[1].body);
    // Each family has its own.
    EXPECT_EQ(0, VimbraPppoeStart(&param, 10, Take));
    EXPECT_EQ(Sent().Body(10), daemon_.Requests(kStart)[2].body);
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, NothingOfAnEarlierStartIsSentAgain) {
    TVimbraPppoeParam param = Param();
    SetText(param.achUserName, std::string(254, 'u'));
    SetText(param.achPassword, std::string(254, 'p'));
    SetText(param.achDevName, std::string(15, 'd'));
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    PppoeConfig config = Sent();
    config.user = std::string(254, 'u');
    config.password = std::string(254, 'p');
    config.device = std::string(15, 'd');
    EXPECT_EQ(config.Body(2), daemon_.Requests(kStart)[0].body);
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(Sent().Body(2), daemon_.Requests(kStart)[1].body);
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, WhatStandsBehindATextIsNotSent) {
    TVimbraPppoeParam param = Param();
    memset(param.achUserName + 5, 'x', 250);
    memset(param.achServerName, 'x', 255);
    EXPECT_EQ(0, VimbraPppoeStart(&param, 2, Take));
    EXPECT_EQ(Sent().Body(2), daemon_.Requests()[0].body);
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
    ExpectUnboundEnds(log_, kThread, "ipc_pppoe", [] { return Start(2); });
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

}  // namespace
}  // namespace vimbra::tests
