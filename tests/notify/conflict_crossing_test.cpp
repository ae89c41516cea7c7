// Address conflicts: starts and stops that cross.
#include <gtest/gtest.h>
#include <vimbra/ip_conflict.h>

#include <thread>
#include <utility>
#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"
#include "ip_conflict.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_P(Conflicts, StopBeforeTheStartHasItsReplyLeavesTheFamilyStopped) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const Gate gate;
    daemon.Next(kStart, Answer::Code(0).Behind(gate));
    std::thread starter([&] { EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    gate.Open();
    starter.join();
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(0u, Info()->bIsStarted);
    EXPECT_EQ(nullptr, Info()->pfIpConflictCB);
    ExpectStartsAndStops();
}

TEST_P(Conflicts, CallbackMayStopBeforeTheStartHasItsReply) {
    ScriptedDaemon daemon;
    g_seen.InCallback([&] { EXPECT_EQ(0, VimbraIpConflictCheckStop(Family())); });
    daemon.Next(kStart, Answer::Code(0).After(
                            [&](const Request&) { EXPECT_TRUE(Notify(Socket(), 1, Conflict())); }));
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    g_seen.InCallback(nullptr);
    EXPECT_EQ(0u, Info()->bIsStarted);
    EXPECT_TRUE(WaitForNoListener(Socket()));
    ExpectStartsAndStops();
}

TEST_P(Conflicts, RefusedStartLeavesAWatchThatWasStartedSinceAlone) {
    Capture log;
    ScriptedDaemon daemon;
    bool first = true;
    g_seen.InCallback([&] {
        if (!std::exchange(first, false)) {
            return;
        }
        EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
        EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    });
    daemon.Next(kStart, Answer::Code(9).After(
                            [&](const Request&) { EXPECT_TRUE(Notify(Socket(), 1, Conflict())); }));
    EXPECT_EQ(-1, VimbraIpConflictCheckStart(Family(), TakeConflict));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStart", "ThreadKill error!"));
    EXPECT_EQ(1u, Info()->bIsStarted);
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(2u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    g_seen.InCallback(nullptr);
    ExpectStartsAndStops();
}

TEST_P(Conflicts, LateStopLeavesAWatchThatWasStartedSinceAlone) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict));
    const Gate gate;
    daemon.Next(kStop, Answer::Code(0).Behind(gate));
    std::thread stopper([&] { EXPECT_EQ(-1, VimbraIpConflictCheckStop(Family())); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    gate.Open();
    stopper.join();
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStop", "ThreadKill error!"));
    EXPECT_EQ(1u, Info()->bIsStarted);
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    ExpectStartsAndStops();
}

TEST_P(Conflicts, TwoStartsOfWhichOneIsRefusedLeaveTheOther) {
    for (const bool firstIsRefused : {false, true}) {
        ScriptedDaemon daemon;
        const Gate first;
        const Gate second;
        daemon.Next(kStart, Answer::Code(firstIsRefused ? 3 : 0).Behind(first));
        daemon.Next(kStart, Answer::Code(firstIsRefused ? 0 : 3).Behind(second));
        g_seen.Clear();
        std::thread one([&] { EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict)); });
        ASSERT_TRUE(first.WaitArrived());
        std::thread other(
            [&] { EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict)); });
        ASSERT_TRUE(second.WaitArrived());
        // The refused one hears of it before the other has its reply.
        (firstIsRefused ? first : second).Open();
        (firstIsRefused ? one : other).join();
        EXPECT_EQ(0u, Info()->bIsStarted);
        (firstIsRefused ? second : first).Open();
        (firstIsRefused ? other : one).join();
        EXPECT_EQ(1u, Info()->bIsStarted);
        EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
        EXPECT_EQ(1u, g_seen.Count());
        EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
        ExpectStartsAndStops();
    }
}

TEST_P(Conflicts, TwoRefusedStartsLeaveNothing) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const Gate gate;
    daemon.Next(kStart, Answer::Code(3).Behind(gate)).Next(kStart, Answer::Code(4).Behind(gate));
    std::thread one([&] { EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict)); });
    ASSERT_TRUE(gate.WaitArrived(1));
    std::thread other([&] { EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict)); });
    ASSERT_TRUE(gate.WaitArrived(2));
    gate.Open();
    one.join();
    other.join();
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(0u, Info()->bIsStarted);
    EXPECT_EQ(nullptr, Info()->pfIpConflictCB);
    ExpectStartsAndStops();
}

TEST_P(Conflicts, TwoAcceptedStartsAreOneWatchOfTheFirst) {
    Capture log;
    ScriptedDaemon daemon;
    const Gate gate;
    daemon.Next(kStart, Answer::Code(0).Behind(gate));
    std::thread late([&] { EXPECT_EQ(-1, VimbraIpConflictCheckStart(Family(), NoConflict)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    gate.Open();
    late.join();
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStart",
                        "the wSimFamily " + Number() + " ip conflict has been started!"));
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    ExpectStartsAndStops();
}

}  // namespace
}  // namespace vimbra::tests
