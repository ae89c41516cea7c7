// Statistics: starts and stops that cross.
#include <gtest/gtest.h>
#include <vimbra/stat.h>

#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"
#include "stat.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

void ExpectStartsAndStops() {
    g_reports.Clear();
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_TRUE(WaitForNoListener(kSocket));
}

TEST(Stat, TwoRegistrationsOfWhichOneIsRefusedLeaveTheOther) {
    for (const bool firstIsRefused : {false, true}) {
        ScriptedDaemon daemon;
        const Gate gates[2];
        const int refused = firstIsRefused ? 0 : 1;
        g_reports.Clear();
        std::thread calls[2];
        for (int i = 0; i < 2; i++) {
            daemon.Next(kStart, Answer::Code(i == refused ? 17 : 0).Behind(gates[i]));
            const auto callback = i == refused ? NoStat : TakeStat;
            const int expected = i == refused ? -1 : 0;
            calls[i] =
                std::thread([=] { EXPECT_EQ(expected, VimbraStatNotifyCallbackReg(1, callback)); });
            ASSERT_TRUE(gates[i].WaitArrived());
        }
        // The refused one hears of it before the other has its reply.
        gates[refused].Open();
        calls[refused].join();
        gates[1 - refused].Open();
        calls[1 - refused].join();
        EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
        EXPECT_EQ(1u, g_reports.Events().size());
        daemon.Forget();
        EXPECT_EQ(0, VimbraStatStop());
        EXPECT_EQ(1u, daemon.Requests(kStop).size());
        ExpectStartsAndStops();
    }
}

TEST(Stat, RefusalAfterTheOtherWasAcceptedLeavesItRunning) {
    ScriptedDaemon daemon;
    const Gate gate;
    daemon.Next(kStart, Answer::Code(17).Behind(gate));
    std::thread refused([] { EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, NoStat)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    gate.Open();
    refused.join();
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
    ExpectStartsAndStops();
}

TEST(Stat, TwoAcceptedRegistrationsAreOneOfTheFirst) {
    Capture log;
    ScriptedDaemon daemon;
    const Gate gate;
    daemon.Next(kStart, Answer::Code(0).Behind(gate));
    std::thread late([] { EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, NoStat)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    gate.Open();
    late.join();
    EXPECT_EQ(1, log.Count(Kind::kPrint, "VimbraStatNotifyCallbackReg",
                           "vimbra stat is already started"));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
    ExpectStartsAndStops();
}

TEST(Stat, TwoRefusedRegistrationsLeaveNothing) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const Gate gate;
    daemon.Next(kStart, Answer::Code(17).Behind(gate)).Next(kStart, Answer::Code(17).Behind(gate));
    std::thread one([] { EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, NoStat)); });
    std::thread other([] { EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, NoStat)); });
    ASSERT_TRUE(gate.WaitArrived(2));
    gate.Open();
    one.join();
    other.join();
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_FALSE(HasListener(kSocket));
    ExpectStartsAndStops();
}

TEST(Stat, LateStopLeavesARegistrationThatCameSinceAlone) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraStatNotifyCallbackReg(1, NoStat));
    const Gate gate;
    daemon.Next(kStop, Answer::Code(0).Behind(gate));
    std::thread stopper([] { EXPECT_EQ(-1, VimbraStatStop()); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraStatStop());
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    gate.Open();
    stopper.join();
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraStatStop", "stat thread_kill error!"));
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
    ExpectStartsAndStops();
}

TEST(Stat, StopFromTheCallbackBeforeTheStartHasItsReplyFindsNothingStarted) {
    Capture log;
    ScriptedDaemon daemon;
    g_reports.InCallback([] { EXPECT_EQ(0, VimbraStatStop()); });
    daemon.Next(kStart, Answer::Code(0).After(
                            [](const Request&) { EXPECT_TRUE(Notify(kSocket, 0, GoodBody())); }));
    EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, TakeStat));
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraStatStop", "vimbra stat is already stoped"));
    EXPECT_EQ(0u, daemon.Requests(kStop).size());
    g_reports.InCallback(nullptr);
    EXPECT_TRUE(Notify(kSocket, 0, GoodBody()));
    EXPECT_EQ(2u, g_reports.Events().size());
    EXPECT_EQ(0, VimbraStatStop());
    ExpectStartsAndStops();
}

}  // namespace
}  // namespace vimbra::tests
