// Calls of one service from several threads at once, of both families, some of them refused, with
// reports between them and callbacks that start and stop in turn: whatever the order, the service
// can be used afterwards, and nothing is left behind.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <string>
#include <thread>

#include "../ground/prepared.hpp"
#include "reporting.hpp"

namespace vimbra::tests {
namespace {

using bed::Answer;
using bed::Request;
using bed::ScriptedDaemon;

// Requests that the daemon has to see, and callbacks. Emulators and sanitizers are slow.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || defined(__arm__)
constexpr unsigned kRequests = 600;
#else
constexpr unsigned kRequests = 3000;
#endif
constexpr unsigned kCallbacks = 20;
// The end of what was printed, with the failure in it.
constexpr size_t kPrinted = 10000;
// Of a service that does not bear many.
constexpr int kDearStarts = 15;

std::mt19937& Random() {
    static std::atomic<unsigned> threads = 0;
    thread_local std::mt19937 random(++threads);
    return random;
}

unsigned long Below(unsigned long bound) {
    return Random()() % bound;
}

class Crossing : public testing::TestWithParam<std::string> {
 protected:
    void SetUp() override {
        PrepareSilently();
        ways_ = ReportingOf(GetParam());
        asked_ = 0;
        started_ = 0;
        // A sink for what a watch of leases prints.
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        ways_.clear();
        const std::string printed = testing::internal::GetCapturedStdout();
        if (HasFailure()) {
            std::cerr << printed.substr(printed.size() - std::min(printed.size(), kPrinted));
        }
    }

    static const Reporting& Any() { return ways_[Below(ways_.size())]; }

    static void FromCallback() {
        const Reporting& reporting = Any();
        if (Below(4) != 0) {
            return;
        }
        if (reporting.fromCallback != nullptr) {
            reporting.fromCallback();
        } else if (reporting.isDear) {
            reporting.stop();
        } else {
            Below(2) == 0 ? reporting.start() : reporting.stop();
        }
    }

    static bool IsOver() {
        const bool isOver = ways_[0].isDear ? started_ >= kDearStarts : asked_ >= kRequests;
        return isOver && g_callbacks >= kCallbacks;
    }

    // Calls of a dear service keep their distance.
    static void Pace() {
        if (ways_[0].isDear) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    static void Start() {
        Any().start();
        started_++;
        Pace();
    }

    static void Stop() {
        Any().stop();
        Pace();
    }

    // One in sixteen ends before its time.
    static void Notify() { Report(Any(), Below(16) == 0 ? Below(100) : SIZE_MAX); }

    static Answer Choose(const Request&) {
        const unsigned asked = ++asked_;
        return asked % 7 == 0 ? Answer::Close() : Answer::Code(asked % 5 == 0 ? 1 : 0);
    }

    // Two threads start, one stops, one reports.
    static void Cross();

    static inline std::vector<Reporting> ways_;
    static inline std::atomic<unsigned> asked_;
    static inline std::atomic<int> started_;
};

void Crossing::Cross() {
    g_inCallback = FromCallback;
    std::vector<std::thread> threads;
    for (void (*const call)() : {Start, Start, Stop, Notify}) {
        threads.emplace_back([call] {
            while (!IsOver()) {
                call();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(EndCallbacks());
}

// A watch of leases begins some time after its start, and does not know what was before: there the
// report is repeated until it comes.
bool IsTold(const Reporting& reporting) {
    const unsigned long calls = g_callbacks;
    const bool isFile = reporting.socket.empty();
    bool isReported = false;
    return bed::WaitFor([&] {
        isReported = (isReported && !isFile) || Report(reporting);
        return g_callbacks > calls;
    });
}

TEST_P(Crossing, LeavesTheServiceWhole) {
    const Level before;
    {
        ScriptedDaemon daemon;
        daemon.On(kGetAddresses, NoAddresses());
        daemon.Default(Answer::By(Choose));
        Cross();
    }
    ScriptedDaemon daemon;
    daemon.On(kGetAddresses, NoAddresses());
    EndAll(ways_);
    EXPECT_TRUE(daemon.WaitIdle());
    before.ExpectNoMore();
    for (const Reporting& reporting : ways_) {
        SCOPED_TRACE(reporting.name);
        EXPECT_EQ(0, reporting.start());
        EXPECT_TRUE(IsTold(reporting));
        EXPECT_EQ(0, reporting.stop());
    }
    before.ExpectNoMore();
}

std::vector<std::string> Services(bool lingering) {
    std::vector<std::string> services = ReportingServices();
    std::erase_if(services, [lingering](const std::string& service) {
        return ReportingOf(service)[0].lingers != lingering;
    });
    return services;
}

const auto kName = [](const auto& which) { return which.param; };
INSTANTIATE_TEST_SUITE_P(Services, Crossing, testing::ValuesIn(Services(false)), kName);
INSTANTIATE_TEST_SUITE_P(Slow, Crossing, testing::ValuesIn(Services(true)), kName);

}  // namespace
}  // namespace vimbra::tests
