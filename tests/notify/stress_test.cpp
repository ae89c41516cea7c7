// Thousands of rounds: what ran leaves the process as it was.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <vimbra/log.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include "../ground/level.hpp"
#include "../ground/prepared.hpp"
#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// Emulators and sanitizers are slow, and sanitizers keep maps of their own.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kDivisor = 20;
constexpr size_t kMapsSlack = 1000;
#elif defined(__arm__)
constexpr int kDivisor = 20;
constexpr size_t kMapsSlack = 64;
#else
constexpr int kDivisor = 1;
constexpr size_t kMapsSlack = 64;
#endif

// VIMBRA_STRESS overrides the divisor.
int Scaled(int rounds) {
    int divisor = kDivisor;
    if (const char* wanted = getenv("VIMBRA_STRESS")) {
        divisor = std::max(1, atoi(wanted));
    }
    return std::max(1, rounds / divisor);
}

// A daemon in a process of its own, so that what it remembers is not counted here.
class ForkedDaemon {
 public:
    ForkedDaemon() {
        child_ = fork();
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const ScriptedDaemon daemon;
            for (;;) {
                pause();
            }
        }
        EXPECT_TRUE(WaitForListener("api_daemon"));
    }
    ~ForkedDaemon() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    ForkedDaemon(const ForkedDaemon&) = delete;
    ForkedDaemon& operator=(const ForkedDaemon&) = delete;

 private:
    pid_t child_;
};

size_t CountMaps() {
    std::ifstream maps("/proc/self/maps");
    return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(maps), {}, '\n'));
}

// Threads and descriptors, and memory.
struct Footprint {
    Level level;
    size_t maps = CountMaps();
    size_t heap = mallinfo2().uordblks;
};

void ExpectMemoryBack(const Footprint& before) {
    // Arenas and stacks that the C library keeps for later; a leaking round would leave far more.
    EXPECT_LE(CountMaps(), before.maps + kMapsSlack);
    EXPECT_LE(mallinfo2().uordblks, before.heap + 64 * 1024);
}

void ExpectBack(const Footprint& before) {
    before.level.ExpectBack();
    ExpectMemoryBack(before);
}

class Stress : public testing::TestWithParam<NotifyService> {
 protected:
    Stress() { PrepareSilently(); }
    ForkedDaemon daemon_;
};

INSTANTIATE_TEST_SUITE_P(Services, Stress, testing::ValuesIn(kServices),
                         [](const auto& which) { return std::string(which.param.name); });

TEST_P(Stress, StartAndStop) {
    const NotifyService& service = GetParam();
    const auto round = [&] {
        ASSERT_EQ(0, service.start());
        ASSERT_EQ(0, service.stop());
    };
    for (int i = 0; i < 100; i++) {
        round();
    }
    ASSERT_TRUE(WaitForNoListener(service.socket));
    const Footprint before;
    for (int i = 0; i < Scaled(10000) && !HasFatalFailure(); i++) {
        round();
    }
    ExpectBack(before);
}

TEST_P(Stress, StartNotifyAndStop) {
    const NotifyService& service = GetParam();
    const Bytes message = GoodMessage(service);
    const Footprint before;
    for (int i = 0; i < Scaled(2000); i++) {
        ASSERT_EQ(0, service.start());
        for (int k = 0; k < i % 4; k++) {
            ASSERT_TRUE(Post(service.socket, message));
        }
        // Whatever is still on its way.
        ASSERT_EQ(0, service.stop());
    }
    ExpectBack(before);
}

TEST_P(Stress, Notifications) {
    const NotifyService& service = GetParam();
    const Bytes message = GoodMessage(service);
    ASSERT_EQ(0, service.start());
    const auto post = [&](int count) {
        const int goal = g_calls + count;
        for (int i = 0; i < count; i++) {
            ASSERT_TRUE(Post(service.socket, message));
        }
        EXPECT_TRUE(WaitFor([=] { return g_calls == goal; }));
    };
    post(100);
    const Footprint before;
    post(Scaled(100000));
    EXPECT_TRUE(
        WaitFor([&] { return OpenDescriptors().size() <= before.level.Descriptors() + 16; }));
    ExpectMemoryBack(before);
    EXPECT_EQ(0, service.stop());
}

// Everything at once, from several threads, good messages and bad.
TEST(Chaos, StartsStopsAndMessagesOfAllServices) {
    PrepareSilently();
    const ForkedDaemon daemon;
    const Footprint before;
    std::atomic<bool> over = false;
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 3; seed++) {
        threads.emplace_back([&, seed] {
            std::mt19937 random(seed);
            for (int i = 0; i < Scaled(4000); i++) {
                const NotifyService& service = kServices[random() % std::size(kServices)];
                random() % 2 == 0 ? service.start() : service.stop();
            }
            over = true;
        });
        threads.emplace_back([&, seed] {
            std::mt19937 random(100 + seed);
            while (!over) {
                const NotifyService& service = kServices[random() % std::size(kServices)];
                const Bytes message = GoodMessage(service);
                const int fd = Connect(service.socket);
                if (fd >= 0) {
                    SendTo(fd, message, 0,
                           random() % 8 == 0 ? random() % message.size() : message.size());
                    close(fd);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const NotifyService& service : kServices) {
        service.stop();
    }
    ExpectBack(before);
}

}  // namespace
}  // namespace vimbra::tests
