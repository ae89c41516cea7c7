// Pings and traces started, stopped and reported on by several threads at once: whatever the
// interleaving, nothing is left behind.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/log.h>
#include <vimbra/ping.h>
#include <vimbra/traceroute.h>

#include <atomic>
#include <random>
#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/level.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr int kRounds = 10000;
#else
constexpr int kRounds = 300;
#endif

TVimbraAddr Destination() {
    TVimbraAddr address = {};
    address.wSinFamily = VIMBRA_FAMILY_IPV4;
    address.tV4Addr.s_addr = htonl(0x0a000001);
    return address;
}

int OnPing(s32, TVimbraPingCBInfo*) {
    return 0;
}

int OnHop(s32, TVimbraTracerouteCBInfo*) {
    return 0;
}

class DiagStress : public testing::Test {
 protected:
    void SetUp() override { PrepareSilently(); }

    s32 StartPing(s32 user) { return VimbraPingStart(Destination(), &ping_, user, OnPing); }
    s32 StartTrace(s32 user) { return VimbraTracerouteStart(Destination(), &trace_, user, OnHop); }

    // Anything for four users.
    void StartAndStop(u32 seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < kRounds / 5; i++) {
            const s32 user = static_cast<s32>(random() % 4 + 1);
            switch (random() % 4) {
                case 0:
                    StartPing(user);
                    break;
                case 1:
                    VimbraPingStop(user);
                    break;
                case 2:
                    StartTrace(user);
                    break;
                case 3:
                    VimbraTracerouteStop(user);
                    break;
            }
        }
    }

    ScriptedDaemon daemon_;
    TVimbraPingOpt ping_ = {1, 1, 1, 1};
    TVimbraTracerouteOpt trace_ = {1};
};

template <typename Round>
void ExpectNothingLeft(Round round) {
    for (int i = 0; i < 20; i++) {
        round();
    }
    const Level before;
    for (int i = 0; i < kRounds; i++) {
        round();
    }
    before.ExpectNoMore();
}

TEST_F(DiagStress, PingRoundsLeaveNothing) {
    ExpectNothingLeft([this] {
        ASSERT_EQ(0, StartPing(1));
        ASSERT_EQ(0, VimbraPingStop(1));
        daemon_.Forget();
    });
}

TEST_F(DiagStress, TraceRoundsLeaveNothing) {
    ExpectNothingLeft([this] {
        ASSERT_EQ(0, StartTrace(1));
        ASSERT_EQ(0, VimbraTracerouteStop(1));
        daemon_.Forget();
    });
}

// Reports of both services, one in sixteen of them cut, until it is over.
void SendReports(const std::atomic<bool>& isOver) {
    std::mt19937 random(1);
    while (!isOver) {
        const u32 user = random() % 4 + 1;
        const s32 over = static_cast<s32>(random() % 3);
        Bytes ping = Message(random() % 5, Pack().U32(user).Zeros(12).S32(over));
        Bytes hop = Message(100 + random() % 8,
                            Pack().Zeros(24).U32(user).Zeros(16).S32(over == 1 ? 1 : 0));
        if (random() % 16 == 0) {
            ping.resize(random() % ping.size());
            hop.resize(random() % hop.size());
        }
        Connection("ipc_ping").Send(ping);
        Connection("ipc_traceroute").Send(hop);
    }
}

TEST_F(DiagStress, SeveralThreadsAtOnce) {
    const Level before;
    // One request in eight is refused.
    std::atomic<u32> count = 0;
    daemon_.Default(Answer::By([&](const Request&) { return Answer::Code(++count % 8 ? 0 : 5); }));
    std::atomic<bool> isOver = false;
    std::thread notifier([&] { SendReports(isOver); });
    std::vector<std::thread> users;
    for (u32 seed = 0; seed < 3; seed++) {
        users.emplace_back([this, seed] { StartAndStop(seed); });
    }
    for (std::thread& user : users) {
        user.join();
    }
    isOver = true;
    notifier.join();
    daemon_.Default(Answer::Code(0));
    for (s32 user = 1; user <= 4; user++) {
        VimbraPingStop(user);
        VimbraTracerouteStop(user);
    }
    before.ExpectNoMore();
    // And all works as before.
    EXPECT_EQ(0, StartPing(1));
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_EQ(0, StartTrace(1));
    EXPECT_EQ(0, VimbraTracerouteStop(1));
}

}  // namespace
}  // namespace vimbra::tests
