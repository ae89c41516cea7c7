// Router advertisements: stops.
#include <gtest/gtest.h>
#include <vimbra/router_advertise.h>

#include <atomic>
#include <list>
#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "router_advertise.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_F(RouterAdvertise, RefusedStopKeepsTheWatchThatHasNotTakenTheStopMessage) {
    ASSERT_EQ(0, Start("eth0"));
    ASSERT_EQ(0, Start("eth1"));
    // The stop message of eth0 goes to eth1's listener.
    daemon_.Next(kStop, Answer::Code(3));
    EXPECT_EQ(-1, Stop("eth0"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "ApicRouterAdvertiseStop", "send and recv msg error num : 3!"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraRouterAdvertiseStop", "ApicRouterAdvertiseStop error : -1!"));
    EXPECT_EQ(1u, g_ptApiRouterNotifyInfo->bIsStarted);
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_EQ(-1, Stop("eth1"));
    ExpectLevel();
}

TEST_F(RouterAdvertise, StopMessageEndsTheListenerBeforeItIsKilled) {
    ASSERT_EQ(0, Start("eth0"));
    bool ended = false;
    daemon_.On(kStop,
               Answer::Code(0).After([&](const Request&) { ended = WaitForNoListener(kSocket); }));
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_TRUE(ended);
    ExpectLevel();
}

TEST_F(RouterAdvertise, SlotThatWasFreedDuringAStopIsNotTakenFromItsNextWatch) {
    ASSERT_EQ(0, Start("eth0"));
    daemon_.On(kStop, Answer::Code(0).After([&](const Request&) {
        EXPECT_TRUE(WaitForNoListener(kSocket));
        EXPECT_EQ(0, Start("eth1"));
    }));
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_TRUE(Notified("eth1"));
    daemon_.On(kStop, Answer::Code(0));
    EXPECT_EQ(0, Stop("eth1"));
    ExpectLevel();
}

TEST_F(RouterAdvertise, StopWaitsForARunningCallback) {
    ASSERT_EQ(0, Start("eth0"));
    Gate gate;
    std::atomic<bool> through = false;
    g_changes.InCallback([&] {
        gate.Pass();
        through = true;
    });
    std::list<Connection> kept;
    ASSERT_TRUE(Post(kept, 0, Change()));
    ASSERT_TRUE(gate.WaitArrived());
    std::thread stopper([&] {
        EXPECT_EQ(0, Stop("eth0"));
        EXPECT_TRUE(through);
    });
    ASSERT_TRUE(WaitForNoListener(kSocket));
    EXPECT_FALSE(through);
    gate.Open();
    stopper.join();
    kept.clear();
    ExpectLevel();
}

TEST_F(RouterAdvertise, CallbackMayStopItsWatchWhenItsBacklogIsFull) {
    const Gate gate;
    std::atomic<int> result = 12345;
    g_changes.InCallback([&] {
        gate.Pass();
        result = Stop("eth0");
    });
    ASSERT_EQ(0, Start("eth0"));
    std::list<Connection> kept;
    ASSERT_TRUE(Post(kept, 0, Change()));
    ASSERT_TRUE(gate.WaitArrived());
    {
        const FullBacklog full(kSocket);
        EXPECT_EQ(101u, full.Count());
        gate.Open();
        EXPECT_TRUE(WaitFor([&] { return result == 0; }));
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "IpcCallbackSendAndRecv", "make_addr_client error!"));
    kept.clear();
    ExpectLevel();
}

// The stop waits for the callback, as always, but the daemon hears of it at once.
TEST_F(RouterAdvertise, StopFromElsewhereDoesNotWaitForAPlaceInTheBacklog) {
    const Gate gate;
    g_changes.InCallback([&] { gate.Pass(); });
    ASSERT_EQ(0, Start("eth0"));
    std::list<Connection> kept;
    ASSERT_TRUE(Post(kept, 0, Change()));
    ASSERT_TRUE(gate.WaitArrived());
    const FullBacklog full(kSocket);
    std::thread stopper([] { EXPECT_EQ(0, Stop("eth0")); });
    EXPECT_TRUE(WaitFor([&] { return daemon_.Requests(kStop).size() == 1; }));
    gate.Open();
    stopper.join();
    kept.clear();
    level_.ExpectThreadsBack();
}

TEST_F(RouterAdvertise, StopDoesNotWaitForAStrangerOnItsSocket) {
    ASSERT_EQ(0, Start("eth0"));
    {
        const DeafServer stranger(kSocket);
        const FullBacklog full(kSocket);
        EXPECT_EQ(0, Stop("eth0"));
    }
    EXPECT_EQ(1u, daemon_.Requests(kStop).size());
    ExpectLevel();
}

TEST_F(RouterAdvertise, CallbackMayStopItsOwnWatchAndStartAnother) {
    std::atomic<int> rounds = 0;
    g_changes.InCallback([&] {
        const bool even = rounds % 2 == 0;
        EXPECT_EQ(0, Stop(even ? "eth0" : "eth1"));
        EXPECT_EQ(0, Start(even ? "eth1" : "eth0"));
        rounds++;
    });
    ASSERT_EQ(0, Start("eth0"));
    for (int i = 1; i <= 20; i++) {
        ASSERT_TRUE(Notified());
        ASSERT_TRUE(WaitFor([&] { return rounds == i; }));
    }
    EXPECT_EQ(0, Stop("eth0"));
    ExpectLevel();
}

// Two callbacks at once, each of which stops the other's watch: nobody may wait for the other. The
// daemon keeps both stops until it has both: the orders go to the newest watch, which ends with its
// callback, and a stop that comes after that finds nothing to stop.
TEST_F(RouterAdvertise, CallbacksMayStopEachOther) {
    static Gate both;
    static std::atomic<int> stopped;
    const Gate asked;
    daemon_.On(kStop, Answer::Code(0).Behind(asked));
    ASSERT_EQ(0, Start("eth0", [](TVimbraRouterAdCb*) {
                  both.Pass();
                  EXPECT_EQ(0, Stop("eth1"));
                  stopped++;
              }));
    std::list<Connection> kept;
    ASSERT_TRUE(Post(kept, 0, Change()));
    ASSERT_TRUE(both.WaitArrived(1));
    ASSERT_EQ(0, Start("eth1", [](TVimbraRouterAdCb*) {
                  both.Pass();
                  EXPECT_EQ(0, Stop("eth0"));
                  stopped++;
              }));
    ASSERT_TRUE(Post(kept, 0, Change()));
    ASSERT_TRUE(both.WaitArrived(2));
    both.Open();
    EXPECT_TRUE(asked.WaitArrived(2));
    asked.Open();
    EXPECT_TRUE(WaitFor([] { return stopped == 2; }));
    kept.clear();
    ExpectLevel();
}

}  // namespace
}  // namespace vimbra::tests
