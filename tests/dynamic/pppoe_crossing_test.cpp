// PPPoE: calls for a link while another call for it is under way.
#include <gtest/gtest.h>
#include <vimbra/pppoe.h>

#include <cstring>
#include <thread>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kSocket[] = "ipc_pppoe";

s32 Start(u16 family, TVimbraPppoeCallBack callback) {
    TVimbraPppoeParam param = {};
    strcpy(param.achUserName, "user");
    strcpy(param.achPassword, "secret");
    strcpy(param.achDevName, "eth0");
    return VimbraPppoeStart(&param, family, callback);
}

s32 Stop(u16 family) {
    return VimbraPppoeStop("eth0", family);
}

void Ignore(u32, void*, u32) {}

class PppoeCrossing : public Prepared {};

TEST_F(PppoeCrossing, SecondStartOfALinkThatIsBeingStartedIsRefused) {
    const Gate gate;
    daemon_.Next(Answer::Code(0).Behind(gate));
    std::thread first([] { EXPECT_EQ(0, Start(2, Ignore)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(-1, Start(2, Ignore));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraPppoeStart", "the wSinFamily 2 ppppe has been started!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    gate.Open();
    first.join();
    EXPECT_EQ(0, Stop(2));
}

// Starting both marks it as started, but its own start is not over.
TEST_F(PppoeCrossing, StopOfAHalfThatIsBeingStartedIsNotAsked) {
    const Gate gate;
    daemon_.Next(Answer::Code(0).Behind(gate));
    std::thread half([] { EXPECT_EQ(0, Start(2, Ignore)); });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, Start(11, Ignore));
    daemon_.Forget();
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPppoeStop", "pppoe already stopped!"));
    EXPECT_TRUE(daemon_.Requests().empty());
    gate.Open();
    half.join();
    EXPECT_EQ(0, Stop(11));
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(WaitForNoListener(kSocket));
}

// Its stop waits for a callback, and is the one that ends it.
TEST_F(PppoeCrossing, StopOfBothLeavesAHalfThatIsBeingStopped) {
    static const Gate calling;
    const Level before;
    const Gate gate;
    daemon_.Next(Answer::Code(0).Behind(gate));
    std::thread half([] {
        EXPECT_EQ(0, Start(2, [](u32 event, void*, u32) {
                      if (event != VIMBRA_PPPOE_EVENT_STOPPED) {
                          calling.Pass();
                      }
                  }));
    });
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(0, Start(11, Ignore));
    gate.Open();
    half.join();
    EXPECT_TRUE(Notify(kSocket, 4, {}, {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(calling.WaitArrived());
    std::thread stopper([] { EXPECT_EQ(0, Stop(2)); });
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_EQ(0, Stop(11));
    // The stop would take the new listener for its own, or mark it as stopped for good.
    EXPECT_EQ(-1, Start(2, Ignore));
    calling.Open();
    stopper.join();
    before.ExpectBack();
    EXPECT_EQ(0, log_.Count(Kind::kPerror, "VimbraPppoeStop", "pthread_cancel error"));
}

}  // namespace
}  // namespace vimbra::tests
