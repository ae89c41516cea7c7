// PPPoE: both families together, and calls that cross.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "pppoe.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

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
    EXPECT_EQ(Sent().Body(10), daemon_.Requests(kStart)[1].body);
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
    EXPECT_EQ(Sent().Body(2), daemon_.Requests(kStart)[3].body);
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
    EXPECT_EQ(Sent().Body(11), daemon_.Requests(kStart)[2].body);
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

}  // namespace
}  // namespace vimbra::tests
