// A process that holds more descriptors than a select(2) set has bits.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <vector>

#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(LargeDescriptors, AreServed) {
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraInit());
    std::vector<int> taken;
    while (taken.empty() || taken.back() < 1100) {
        taken.push_back(fcntl(0, F_DUPFD_CLOEXEC, 0));
        ASSERT_GE(taken.back(), 0);
    }
    for (const NotifyService& service : kServices) {
        const int before = g_calls;
        ASSERT_EQ(0, service.start());
        ASSERT_TRUE(Post(service.socket, GoodMessage(service)));
        EXPECT_TRUE(WaitFor([=] { return g_calls == before + 1; }));
        EXPECT_EQ(0, service.stop());
    }
    for (const int fd : taken) {
        close(fd);
    }
}

}  // namespace
}  // namespace vimbra::tests
