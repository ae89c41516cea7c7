// Ping: stops.
#include <gtest/gtest.h>
#include <vimbra/ping.h>

#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "ping.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_F(Ping, StopPostsTheOrderAndThenAsksTheDaemon) {
    EXPECT_EQ(0, Start(6));
    daemon_.On(kStop, Answer::Code(0).After([this](const Request&) {
        EXPECT_TRUE(log_.WaitFor(Kind::kPrint, "PingCBThread",
                                 "receive msg from NetpingStop,ping_thread will exit"));
    }));
    EXPECT_EQ(0, VimbraPingStop(6));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(kStop, daemon_.Requests()[1].type);
    EXPECT_EQ(Pack().S32(6), daemon_.Requests()[1].body);
    EXPECT_TRUE(AllGone());
    EXPECT_TRUE(g_reports.Events().empty());
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Ping, TheStopOrderIsAFramedRecord) {
    EXPECT_EQ(0, Start(6));
    // In place of the listener's socket: who posts asks for the path.
    ASSERT_EQ(0, unlink("/tmp/ipc_ping"));
    ScriptedDaemon listener(kSocket);
    listener.Default(Answer::Close());
    EXPECT_EQ(0, VimbraPingStop(6));
    ASSERT_TRUE(listener.WaitRequests(1));
    EXPECT_EQ(Message(0, Record(6, 0, 0, 0, 2)), listener.Requests()[0].raw);
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, StopChecksTheId) {
    EXPECT_EQ(1105, VimbraPingStop(0));
    EXPECT_EQ(1105, VimbraPingStop(INT32_MIN));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraPingStop", "the nUserID must be more than 0!"));
    EXPECT_EQ(1305, VimbraPingStop(77));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPingStop", "the userId 77 has stopped ping"));
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Ping, ARefusedStopIs1303) {
    EXPECT_EQ(0, Start(6));
    daemon_.Next(kStop, Answer::Code(5));
    EXPECT_EQ(1303, VimbraPingStop(6));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPingStop", "send and recv msg error, nErrid = 5!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPingStop", "apic_ping_stop failed!"));
    // The order that was posted ends the thread, which gives the place back.
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, AStoppedThreadEndsWhenItsOrderWentToANewerOne) {
    EXPECT_EQ(0, Start(1));
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_TRUE(WaitRunning(1));
    EXPECT_TRUE(Notify(kSocket, 0, Record(2, 64, 1, 1, 0)));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(0, VimbraPingStop(2));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, AStoppedThreadEndsWhenTheOrderCannotBePosted) {
    EXPECT_EQ(0, Start(1));
    ASSERT_EQ(0, unlink("/tmp/ipc_ping"));
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_TRUE(log_.Has(Kind::kError, "IpcCallbackSendAndRecv", "make_addr_client error!"));
    EXPECT_EQ(kStop, daemon_.Requests().back().type);
    EXPECT_TRUE(AllGone());
}

Gate g_gate;

int BlockingCallback(s32 nResult, TVimbraPingCBInfo* ptInfo) {
    g_gate.Pass();
    return OnPing(nResult, ptInfo);
}

TEST_F(Ping, AStopDoesNotCutACallbackAndStopsWhatFollows) {
    EXPECT_EQ(0, Start(8, BlockingCallback));
    EXPECT_TRUE(Notify(kSocket, 0, Record(8, 64, 1, 1, 0), {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(g_gate.WaitArrived());
    EXPECT_EQ(0, VimbraPingStop(8));
    EXPECT_EQ(0, Start(8));
    g_gate.Open();
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_TRUE(WaitRunning(1));
    EXPECT_EQ(1u, BusySlots());
    EXPECT_EQ(0, VimbraPingStop(8));
    EXPECT_TRUE(AllGone());
}

// ---- Stops whose order nobody takes ----------------------------------------------------------

Gate g_full;

// Stops its test when its socket's backlog is full.
int StoppingCallback(s32, TVimbraPingCBInfo* ptInfo) {
    g_full.Pass();
    const s32 result = VimbraPingStop(ptInfo->nUserID);
    g_reports.Add({result, *ptInfo});
    return 0;
}

TEST_F(Ping, ATestMayBeStoppedFromItsCallbackWhenItsBacklogIsFull) {
    EXPECT_EQ(0, Start(8, StoppingCallback));
    EXPECT_TRUE(Notify(kSocket, 0, Record(8, 64, 1, 1, 0), {.size = {}, .wait = false}));
    ASSERT_TRUE(g_full.WaitArrived());
    {
        const FullBacklog full(kSocket);
        EXPECT_EQ(101u, full.Count());
        g_full.Open();
        ASSERT_TRUE(g_reports.WaitCount(1));
    }
    EXPECT_EQ(0, g_reports.Events()[0].result);
    EXPECT_TRUE(log_.Has(Kind::kError, "IpcCallbackSendAndRecv", "make_addr_client error!"));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, AStopFromElsewhereDoesNotWaitForAPlaceInTheBacklog) {
    EXPECT_EQ(0, Start(8, BlockingCallback));
    EXPECT_TRUE(Notify(kSocket, 0, Record(8, 64, 1, 1, 0), {.size = {}, .wait = false}));
    ASSERT_TRUE(g_gate.WaitArrived());
    const FullBacklog full(kSocket);
    EXPECT_EQ(101u, full.Count());
    EXPECT_EQ(0, VimbraPingStop(8));
    EXPECT_EQ(0u, BusySlots());
    EXPECT_TRUE(g_reports.Events().empty()) << "the stop waited for the callback";
    g_gate.Open();
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_TRUE(WaitRunning(0));
}

TEST_F(Ping, AStopDoesNotWaitForAStrangerOnItsSocket) {
    EXPECT_EQ(0, Start(8));
    {
        const DeafServer stranger(kSocket);
        const FullBacklog full(kSocket);
        EXPECT_EQ(0, VimbraPingStop(8));
    }
    EXPECT_EQ(kStop, daemon_.Requests().back().type);
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, AStopDuringTheStartLeavesTheNextTestAlone) {
    // The daemon takes its time over the first start, which it will refuse; meanwhile the test has
    // ended by itself and the place has been given to the next.
    const Gate gate;
    daemon_.Next(kStart, Answer::Code(5).Behind(gate));
    std::thread starter([&] { EXPECT_EQ(-1, Start(1)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_TRUE(Notify(kSocket, 0, Record(1, 64, 1, 1, 1)));
    EXPECT_TRUE(WaitFor([] { return BusySlots() == 0; }));
    EXPECT_EQ(0, Start(2));
    gate.Open();
    starter.join();
    EXPECT_EQ(1u, BusySlots());
    EXPECT_TRUE(Notify(kSocket, 0, Record(2, 64, 1, 1, 0)));
    EXPECT_TRUE(g_reports.WaitCount(2));
    EXPECT_EQ(0, VimbraPingStop(2));
    EXPECT_TRUE(AllGone());
}

}  // namespace
}  // namespace vimbra::tests
