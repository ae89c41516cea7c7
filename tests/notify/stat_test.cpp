// Statistics: the service by itself.
#include "stat.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/net_stat.h>
#include <vimbra/stat.h>

#include <atomic>
#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(Stat, StartSendsTheIntervalOnceTheListenerStands) {
    Capture log;
    ScriptedDaemon daemon;
    bool listening = false;
    daemon.On(kStart,
              Answer::Code(0).After([&](const Request&) { listening = HasListener(kSocket); }));
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(7, TakeStat));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Message(kStart, Pack().S32(7)), daemon.Requests()[0].raw);
    EXPECT_TRUE(listening);
    EXPECT_EQ(0, VimbraStatStop());
    ASSERT_EQ(2u, daemon.Requests().size());
    EXPECT_EQ(Message(kStop, {}), daemon.Requests()[1].raw);
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST(Stat, ReportsTheValidInterfacesInOrder) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(
        kSocket, 0, Body(Stat(UINT64_MAX, 1ULL << 40, 1), Stat(9, 9, 0), Stat(5, 6, 0x80000000))));
    ASSERT_EQ(1u, g_reports.Events().size());
    const Report report = g_reports.Events()[0];
    ASSERT_EQ(2u, report.size());
    EXPECT_EQ(0u, report[0].byEthId);
    EXPECT_EQ(UINT64_MAX, report[0].dwBandSended);
    EXPECT_EQ(1ULL << 40, report[0].dwBandRecved);
    EXPECT_EQ(2u, report[1].byEthId);
    EXPECT_EQ(5u, report[1].dwBandSended);
    EXPECT_EQ(6u, report[1].dwBandRecved);
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, OnlyTheThirdValidIsOneRecordOfInterface2) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, Body(Stat(1, 2, 0), Stat(3, 4, 0), Stat(5, 6, 1))));
    ASSERT_EQ(1u, g_reports.Events().size());
    ASSERT_EQ(1u, g_reports.Events()[0].size());
    EXPECT_EQ(2u, g_reports.Events()[0][0].byEthId);
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, NoValidInterfaceMakesNoCall) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, Body(Stat(1, 2, 0), Stat(3, 4, 0), Stat(5, 6, 0))));
    EXPECT_EQ(0u, g_reports.Events().size());
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, AnyTypeAndFlagIsAReport) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0xffffffff, GoodBody(), {.size = {}, .flag = -1}));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, SecondStartKeepsTheFirstCallback) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(2, NoStat));
    // Started is looked at before the arguments are.
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(0, nullptr));
    EXPECT_EQ(2, log.Count(Kind::kPrint, "VimbraStatNotifyCallbackReg",
                           "vimbra stat is already started"));
    EXPECT_EQ(1u, daemon.Requests().size());
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, StopWhenStoppedIsDone) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraStatStop", "vimbra stat is already stoped"));
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_EQ(2u, daemon.Requests().size());
}

TEST(Stat, ArgumentsAreCheckedInOrder) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(0, nullptr));
    EXPECT_TRUE(
        log.Has(Kind::kError, "VimbraStatNotifyCallbackReg", "nInterval 0 param is invalid!"));
    EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(-5, TakeStat));
    EXPECT_TRUE(
        log.Has(Kind::kError, "VimbraStatNotifyCallbackReg", "nInterval -5 param is invalid!"));
    EXPECT_EQ(0, log.Count(Kind::kError, kAny, "pfNotifyCb is NULL!"));
    EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatNotifyCallbackReg", "pfNotifyCb is NULL!"));
    EXPECT_EQ(0u, daemon.Requests().size());
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(INT32_MAX, TakeStat));
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, RefusedStartEndsTheListener) {
    Capture log;
    ScriptedDaemon daemon;
    daemon.Next(kStart, Answer::Code(17));
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatNotifyCallbackReg",
                        "send and recv msg error, nErrid : 17!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatNotifyCallbackReg", "api_operate_route error"));
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_EQ(descriptors, OpenDescriptors());
    // It counts as stopped.
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, StartWithoutDaemonFails) {
    Capture log;
    EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatNotifyCallbackReg",
                        "send and recv msg error, nRet : -1!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatNotifyCallbackReg", "api_operate_route error"));
    EXPECT_TRUE(WaitForNoListener(kSocket));
}

TEST(Stat, FailedStopStaysStarted) {
    Capture log;
    {
        ScriptedDaemon daemon;
        ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
        daemon.Next(kStop, Answer::Code(5));
        EXPECT_EQ(-1, VimbraStatStop());
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatStop", "send and recv msg error:5!"));
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatStop", "stat stop error!"));
        EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
        EXPECT_EQ(1u, g_reports.Events().size());
    }
    EXPECT_EQ(-1, VimbraStatStop());
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatStop", "send and recv msg error:-1!"));
    ScriptedDaemon daemon;
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, NoStat));
    EXPECT_EQ(0u, daemon.Requests().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, WrongSizeIsDroppedAndTheListenerGoesOn) {
    for (const u32 size : {0u, 60u, 71u, 73u, 84u, 0x80000000u, 0xffffffffu}) {
        Capture log;
        ScriptedDaemon daemon;
        ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
        g_reports.Clear();
        EXPECT_TRUE(Notify(kSocket, 0, GoodBody(), {.size = size}));
        EXPECT_TRUE(log.Has(Kind::kError, kFunction, "the sended data is too long!"));
        EXPECT_EQ(0u, g_reports.Events().size());
        EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
        EXPECT_EQ(1u, g_reports.Events().size());
        EXPECT_EQ(0, VimbraStatStop());
    }
}

TEST(Stat, ShortMessagesAreDroppedAndTheListenerGoesOn) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    const Bytes whole = Message(0, GoodBody());
    int dropped = 0;
    for (const size_t length : {0, 1, 11, 12, 13, 60, 83}) {
        Connection daemonSide(kSocket);
        ASSERT_TRUE(daemonSide.Send(whole.Slice(0, length)));
        daemonSide.EndSending();
        EXPECT_TRUE(daemonSide.WaitPeerClosed());
        EXPECT_EQ(++dropped, log.Count(Kind::kPerror, kFunction, "read message error"));
    }
    EXPECT_EQ(0u, g_reports.Events().size());
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, MessageInPiecesIsShort) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    Connection daemonSide(kSocket);
    daemonSide.SendInPieces(Message(0, GoodBody()), {12});
    EXPECT_TRUE(daemonSide.WaitPeerClosed());
    EXPECT_EQ(1, log.Count(Kind::kPerror, kFunction, "read message error"));
    EXPECT_EQ(0u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, WhatComesBehindAReportIsNotLookedAt) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    Connection daemonSide(kSocket);
    Bytes much = Message(0, GoodBody());
    much.resize(2000, 0xee);
    ASSERT_TRUE(daemonSide.Send(much));
    EXPECT_TRUE(daemonSide.WaitPeerClosed());
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, StaleSocketFileIsReplaced) {
    WriteFile(std::string("/tmp/") + kSocket, "left over");
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, WhatCannotBeRemovedEndsTheListenerWithItsMessages) {
    ASSERT_EQ(0, mkdir((std::string("/tmp/") + kSocket).c_str(), 0777));
    Capture log;
    ScriptedDaemon daemon;
    const auto descriptors = OpenDescriptors();
    const size_t threads = Threads();
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(log.WaitFor(Kind::kPerror, kFunction, "accept error"));
    EXPECT_TRUE(log.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_EQ(1, log.Count(Kind::kPerror, kFunction));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    // The thread has gone, so it cannot be killed.
    EXPECT_EQ(-1, VimbraStatStop());
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatStop", "stat thread_kill error!"));
}

TEST(Stat, CallbackMayStopTheService) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    std::atomic<int> result = 99;
    g_reports.InCallback([&] { result = VimbraStatStop(); });
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(0, result);
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST(Stat, CallbackMayRestartTheService) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    g_reports.InCallback([] {
        EXPECT_EQ(0, VimbraStatStop());
        EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    });
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    for (size_t i = 1; i <= 20; i++) {
        EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
        EXPECT_EQ(i, g_reports.Events().size());
    }
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
}

TEST(Stat, StopDoesNotWaitForARunningCallbackNorCutIt) {
    Capture log;
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    Gate gate;
    std::atomic<bool> through = false;
    g_reports.InCallback([&] {
        gate.Pass();
        // Where a cancellation would act.
        pthread_testcancel();
        through = true;
    });
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody(), {.size = {}, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_FALSE(through);
    gate.Open();
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_TRUE(through);
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST(Stat, StopCutsAListenerThatReads) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    Connection silent(kSocket);
    ASSERT_TRUE(silent.Connected());
    ASSERT_TRUE(WaitFor([&] { return OpenDescriptors().size() == descriptors.size() + 2; }));
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_TRUE(silent.WaitPeerClosed());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST(Stat, ListenerRunsUnderItsName) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    const auto names = ThreadNames();
    EXPECT_EQ(1, std::count(names.begin(), names.end(), "VimbraDevStatiN"));
    EXPECT_EQ(0, VimbraStatStop());
}

TEST(Stat, LegacyNamesForward) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(-1, NetStatNotifyCallbackReg(0, TakeStat));
    EXPECT_EQ(0, NetStatNotifyCallbackReg(9, TakeStat));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Message(kStart, Pack().S32(9)), daemon.Requests()[0].raw);
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, NetStatStop());
    EXPECT_EQ(0, NetStatStop());
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraStatStop", "vimbra stat is already stoped"));
}

}  // namespace
}  // namespace vimbra::tests
