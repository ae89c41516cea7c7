// Answers to starts that come when another start or a stop has had its own, or before.
#include <gtest/gtest.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/router_advertise.h>
#include <vimbra/stat.h>

#include <thread>

#include "../ground/prepared.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class LateAnswer : public Prepared {
 protected:
    // The next request waits there for its refusal.
    Gate RefuseBehindAGate() {
        const Gate gate;
        daemon_.Next(Answer::Code(3).Behind(gate));
        return gate;
    }

    static void ExpectReport(const NotifyService& service) {
        g_calls = 0;
        EXPECT_TRUE(Post(service.socket, GoodMessage(service)));
        EXPECT_TRUE(WaitFor([] { return g_calls == 1; }));
    }
};

void NoStat(TNetDevStat*, u32) {
    ADD_FAILURE() << "the wrong callback";
}

void NoConflict(EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) {
    ADD_FAILURE() << "the wrong callback";
}

void NoAdvertisement(TVimbraRouterAdCb*) {
    ADD_FAILURE() << "the wrong callback";
}

TEST_F(LateAnswer, RefusalOfStatisticsThatHaveBeenStoppedChangesNothing) {
    const NotifyService& stat = kServices[0];
    const Gate gate = RefuseBehindAGate();
    std::thread refused([] { EXPECT_EQ(-1, VimbraStatNotifyCallbackReg(1, NoStat)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, stat.start());
    EXPECT_EQ(0, stat.stop());
    EXPECT_EQ(0, stat.start());
    gate.Open();
    refused.join();
    ExpectReport(stat);
    EXPECT_EQ(0, stat.stop());
}

TEST_F(LateAnswer, AcceptanceOfStatisticsThatHaveBeenStoppedStartsNothing) {
    const NotifyService& stat = kServices[0];
    const Gate gate;
    daemon_.Next(Answer::Code(0).Behind(gate));
    std::thread late([] { EXPECT_EQ(0, VimbraStatNotifyCallbackReg(1, NoStat)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, stat.start());
    EXPECT_EQ(0, stat.stop());
    gate.Open();
    late.join();
    EXPECT_TRUE(WaitForNoListener(stat.socket));
    EXPECT_EQ(0, stat.start());
    ExpectReport(stat);
    EXPECT_EQ(0, stat.stop());
}

TEST_F(LateAnswer, RefusalOfAWatchThatAnotherStartHasLeavesItRunning) {
    const NotifyService& conflict = kServices[1];
    const Gate gate = RefuseBehindAGate();
    std::thread refused([] { EXPECT_EQ(0, VimbraIpConflictCheckStart(2, NoConflict)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, conflict.start());
    gate.Open();
    refused.join();
    ExpectReport(conflict);
    EXPECT_EQ(0, conflict.stop());
}

// Events that come before any answer go to the first start; the second one's refusal is no reason
// to drop them.
TEST_F(LateAnswer, RefusalOfTheSecondStartLeavesTheFirstItsCallback) {
    const NotifyService& conflict = kServices[1];
    const Gate gate;
    daemon_.Next(Answer::Code(0).Behind(gate));
    std::thread first([&] { EXPECT_EQ(0, conflict.start()); });
    ASSERT_TRUE(gate.WaitArrived());
    daemon_.Next(Answer::Code(3));
    EXPECT_EQ(0, VimbraIpConflictCheckStart(2, NoConflict));
    ExpectReport(conflict);
    gate.Open();
    first.join();
    EXPECT_EQ(0, conflict.stop());
}

TEST_F(LateAnswer, AWatchThatWaitsForItsAnswerKeepsItsPlace) {
    const Gate gate;
    daemon_.Next(Answer::Code(0).Behind(gate));
    static char eth1[] = "eth1";
    std::thread first([] { EXPECT_EQ(0, VimbraRouterAdvertiseStart(g_eth0, NoAdvertisement)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, VimbraRouterAdvertiseStart(eth1, [](TVimbraRouterAdCb*) { g_calls++; }));
    gate.Open();
    first.join();
    ExpectReport(kServices[3]);
    EXPECT_EQ(0, VimbraRouterAdvertiseStop(eth1));
    EXPECT_EQ(0, VimbraRouterAdvertiseStop(g_eth0));
}

}  // namespace
}  // namespace vimbra::tests
