// A process that holds more descriptors than a select(2) set has bits; there may be no memory for
// larger sets.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vimbra/log.h>

#include <algorithm>
#include <vector>

#include "../ground/memory.hpp"
#include "api/api_1x/api_dhcps/inotify_utils.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// Sets for descriptors from 1088 to 1151 have this size; nothing else has.
constexpr size_t kSetSize = 144;

// Takes all descriptors up to 1100, for as long as it lives.
class Taken {
 public:
    Taken() {
        rlimit limit = {};
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        while (taken_.empty() || (taken_.back() >= 0 && taken_.back() < 1100)) {
            taken_.push_back(fcntl(0, F_DUPFD_CLOEXEC, 0));
        }
    }
    ~Taken() {
        for (const int fd : taken_) {
            close(fd);
        }
    }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;

 private:
    std::vector<int> taken_;
};

TEST(LargeDescriptors, AreServed) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraInit());
    const Taken taken;
    for (const NotifyService& service : kServices) {
        const int before = g_calls;
        ASSERT_EQ(0, service.start());
        ASSERT_TRUE(Post(service.socket, GoodMessage(service)));
        EXPECT_TRUE(WaitFor([=] { return g_calls == before + 1; }));
        EXPECT_EQ(0, service.stop());
    }
}

TEST(LargeDescriptors, WithoutMemoryForTheirSetsTheListenerEnds) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraInit());
    const size_t threads = Threads();
    for (const NotifyService& service : kServices) {
        // Nobody gives a small one back meanwhile: not the daemon, not the listener before.
        ASSERT_TRUE(daemon.WaitIdle());
        ASSERT_TRUE(WaitFor([=] { return Threads() == threads; }));
        g_failSize = kSetSize;
        {
            const Taken taken;
            service.start();  // It fails as well, or is what taking it back gives.
            EXPECT_TRUE(WaitForNoListener(service.socket));
        }
        g_failSize = 0;
        EXPECT_TRUE(WaitFor([=] { return Threads() == threads; }));
        const int before = g_calls;
        ASSERT_EQ(0, service.start());
        ASSERT_TRUE(Post(service.socket, GoodMessage(service)));
        EXPECT_TRUE(WaitFor([=] { return g_calls == before + 1; }));
        EXPECT_EQ(0, service.stop());
    }
    EXPECT_LE(4, log.Count(Kind::kPerror));
}

TEST(LargeDescriptors, WithoutMemoryForTheirSetsAMessageIsNotWaitedFor) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraInit());
    const NotifyService& service = kServices[0];
    ASSERT_EQ(0, service.start());
    ASSERT_TRUE(daemon.WaitIdle());
    {
        const Taken taken;
        g_failSize = kSetSize;
        Connection connection(service.socket);
        ASSERT_TRUE(connection.Connected());
        EXPECT_TRUE(connection.WaitPeerClosed());
        g_failSize = 0;
    }
    EXPECT_EQ(0, g_calls);
    service.stop();
    EXPECT_TRUE(WaitForNoListener(service.socket));
    ASSERT_EQ(0, service.start());
    ASSERT_TRUE(Post(service.socket, GoodMessage(service)));
    EXPECT_TRUE(WaitFor([] { return g_calls == 1; }));
    EXPECT_EQ(0, service.stop());
}

TEST(LargeDescriptors, WithoutMemoryForTheirSetsNoLeaseIsWaitedFor) {
    Capture log;
    VimbraLogPrint("The system log has its own.");
    const Taken taken;
    Watcher watcher;
    ASSERT_TRUE(open_inotify_fd(watcher));
    g_failSize = kSetSize;
    EXPECT_EQ(-1, event_check(watcher));
    g_failSize = 0;
    EXPECT_TRUE(log.Has(Kind::kPerror, "event_check", "XMALLOC error"));
}

}  // namespace
}  // namespace vimbra::tests
