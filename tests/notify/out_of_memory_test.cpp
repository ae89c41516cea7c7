// Memory runs out: what is logged, and what goes on.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/router_advertise.h>
#include <vimbra/stat.h>

#include <functional>
#include <string>

#include "../ground/memory.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class OutOfMemory : public testing::TestWithParam<NotifyService> {};

INSTANTIATE_TEST_SUITE_P(Services, OutOfMemory, testing::ValuesIn(kServices),
                         [](const auto& which) { return std::string(which.param.name); });

TEST_P(OutOfMemory, MessageIsDroppedAndTheListenerGoesOn) {
    const NotifyService& service = GetParam();
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraInit());
    ASSERT_EQ(0, service.start());
    g_failSize = 12 + service.bodySize;
    Connection connection(service.socket);
    ASSERT_TRUE(connection.Connected());
    EXPECT_TRUE(connection.WaitPeerClosed());
    g_failSize = 0;
    const std::string text = std::string(service.name) == "Stat" ? "malloc error" : "XMALLOC error";
    EXPECT_EQ(1, log.Count(Kind::kError, kAny, text));
    EXPECT_EQ(0, g_calls);
    ASSERT_TRUE(Post(service.socket, GoodMessage(service)));
    EXPECT_TRUE(WaitFor([] { return g_calls == 1; }));
    EXPECT_EQ(0, service.stop());
}

class NoThread : public testing::Test {
 protected:
    NoThread() { EXPECT_EQ(0, VimbraInit()); }

    // The two allocations of a thread fail in turn.
    static s32 WithoutThread(int which, const std::function<s32()>& start) {
        t_failAt = which;
        const s32 result = start();
        EXPECT_EQ(0, t_failAt);
        return result;
    }
    Capture log_;
    ScriptedDaemon daemon_;
};

TEST_F(NoThread, StatisticsDoNotNoticeUntilTheyStop) {
    EXPECT_EQ(0, WithoutThread(1, kServices[0].start));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "ThreadSpawnDeatched", "THREAD: spawn() malloc error"));
    EXPECT_EQ(0, log_.Count(Kind::kError, "VimbraStatNotifyCallbackReg"));
    EXPECT_FALSE(HasListener(kServices[0].socket));
    EXPECT_EQ(-1, kServices[0].stop());
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraStatStop", "stat thread_kill error!"));
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(NoThread, ConflictWatchIsNotStarted) {
    for (const NotifyService* service : {&kServices[1], &kServices[2]}) {
        for (const int which : {1, 2}) {
            log_.Clear();
            EXPECT_EQ(-1, WithoutThread(which, service->start));
            EXPECT_TRUE(log_.Has(Kind::kError, "VimbraIpConflictCheckStart",
                                 "VimbraIpConfilictCBThread thread create failed!"));
        }
        EXPECT_EQ(0u, daemon_.Requests().size());
    }
    EXPECT_EQ(0, kServices[1].start());
    EXPECT_EQ(0, kServices[1].stop());
}

TEST_F(NoThread, RouterWatchIsNotStarted) {
    const NotifyService& service = kServices[3];
    for (const int which : {1, 2}) {
        log_.Clear();
        EXPECT_EQ(-1, WithoutThread(which, service.start));
        EXPECT_TRUE(log_.Has(Kind::kPerror, "ThreadSpawn", "THREAD: spawn() malloc error"));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart", "ThreadSpawn error!"));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart",
                             "VimbraRouterAdvertiseStart err!"));
    }
    EXPECT_EQ(0u, daemon_.Requests().size());
    EXPECT_EQ(0, service.start());
    EXPECT_EQ(0, service.stop());
}

TEST_F(NoThread, RequestsThatCannotBeBuilt) {
    // The thread's two allocations pass, the request's does not.
    EXPECT_EQ(-1, WithoutThread(3, kServices[0].start));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "VimbraStatNotifyCallbackReg", "XMALLOC error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraStatNotifyCallbackReg", "api_operate_route error"));
    EXPECT_EQ(0, WithoutThread(3, kServices[1].start));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "ApicConflictCheckStart", "XMALLOC error"));
    EXPECT_EQ(-1, WithoutThread(1, kServices[1].stop));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicConflictCheckStop", "XMALLOC error"));
    EXPECT_EQ(-1, WithoutThread(3, kServices[3].start));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicRouterAdvertiseStart", "XMALLOC error"));
    EXPECT_EQ(0u, daemon_.Requests().size());
}

TEST(ShortChains, ConflictRegistryWithoutItsSecondRecord) {
    Capture log;
    ScriptedDaemon daemon;
    t_failAt = 2;
    IpConflictCheckInit();
    EXPECT_TRUE(log.Has(Kind::kPerror, "IpConflictCheckInit", "XMALLOC error"));
    ASSERT_NE(nullptr, g_ptIpConflictInfo);
    EXPECT_EQ(nullptr, g_ptIpConflictInfo->ptNext);
    EXPECT_EQ(-1, kServices[2].start());
    EXPECT_TRUE(log.Has(Kind::kError, "FamilyMapIpConfictInfo", "the wSinFamily 10 is invalid!"));
    EXPECT_EQ(0, kServices[1].start());
    EXPECT_EQ(0, kServices[1].stop());
}

TEST(ShortChains, RouterSlotsThatWereBuiltStay) {
    Capture log;
    ScriptedDaemon daemon;
    t_failAt = 3;
    RouterAdvertiseInit();
    EXPECT_TRUE(log.Has(Kind::kPerror, "RouterAdvertiseInit", "XMALLOC error"));
    int slots = 0;
    for (auto* slot = g_ptApiRouterNotifyInfo; slot != nullptr; slot = slot->ptNext) {
        EXPECT_EQ(3584 + slots++, slot->nUserId);
    }
    EXPECT_EQ(2, slots);
    EXPECT_EQ(0, kServices[3].start());
    EXPECT_EQ(0, kServices[3].stop());
}

}  // namespace
}  // namespace vimbra::tests
