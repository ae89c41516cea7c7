// Threads: how they are made, and what one does to itself.
#include "thread.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(Thread, RunsItsProcedureWithItsParameterUnderItsName) {
    struct Seen {
        void* param = nullptr;
        char name[16] = {};
        pthread_t self = 0;
    } seen;
    const pthread_t thread = Spawn(
        [](void* param) {
            auto* to = static_cast<Seen*>(param);
            to->param = param;
            to->self = pthread_self();
            pthread_getname_np(pthread_self(), to->name, sizeof(to->name));
        },
        &seen);
    ASSERT_NE(0u, thread);
    EXPECT_EQ(nullptr, ThreadWait(thread));
    EXPECT_EQ(&seen, seen.param);
    EXPECT_STREQ("VimbraTestThrea", seen.name);
    EXPECT_TRUE(pthread_equal(thread, seen.self));
}

TEST(Thread, BlocksTheListedSignalsAndNoOther) {
    sigset_t mask;
    sigfillset(&mask);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    const pthread_t thread = Spawn(
        [](void* to) { pthread_sigmask(SIG_BLOCK, nullptr, static_cast<sigset_t*>(to)); }, &mask);
    ThreadWait(thread);
    for (int signum = 1; signum < 32; signum++) {
        const bool listed = signum <= 6 || signum == 10 || (signum >= 12 && signum <= 15) ||
                            signum == 18 || (signum >= 20 && signum <= 22);
        EXPECT_EQ(listed, sigismember(&mask, signum) == 1) << signum;
    }
}

TEST(Thread, IsNicerToOthersByTheNegativePriority) {
    const int before = getpriority(PRIO_PROCESS, 0);
    int nice = 99;
    ThreadWait(Spawn(
        [](void* to) {
            *static_cast<int*>(to) =
                getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
        },
        &nice));
    // With the privilege five less, without it as before.
    EXPECT_TRUE(nice == before - 5 || nice == before) << nice;
    // Worse is always allowed.
    const pthread_t thread = ThreadSpawn(
        g_name,
        [](void* to) {
            *static_cast<int*>(to) =
                getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
        },
        &nice, kStack, 0, -3);
    ThreadWait(thread);
    EXPECT_EQ(before + 3, nice);
}

TEST(Thread, RoundRobinThatTheSystemRefusesLeavesOrdinaryScheduling) {
    // The priority becomes -5, which no policy has.
    int policy = -1;
    const pthread_t thread = ThreadSpawn(
        g_name, [](void* to) { *static_cast<int*>(to) = sched_getscheduler(0); }, &policy, kStack,
        SCHED_RR, 5);
    ASSERT_NE(0u, thread);
    ThreadWait(thread);
    EXPECT_EQ(SCHED_OTHER, policy);
}

TEST(Thread, SpawnTakesAbsurdNumbers) {
    for (const int number : {INT_MIN, INT_MAX, 0, -1}) {
        for (const int policy : {SCHED_OTHER, SCHED_RR}) {
            std::atomic<bool> ran = false;
            const pthread_t thread = ThreadSpawn(
                g_name, [](void* to) { *static_cast<std::atomic<bool>*>(to) = true; }, &ran, kStack,
                policy, number);
            ASSERT_NE(0u, thread);
            ThreadWait(thread);
            EXPECT_TRUE(ran);
        }
    }
}

TEST(Thread, SpawnThatTheSystemRefusesGives0) {
    Capture log;
    const size_t before = Threads();
    // Room for what the process does besides, but not for the stack.
    const size_t size =
        std::stoul(ReadFile("/proc/self/statm")) * static_cast<size_t>(getpagesize());
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_AS, &limit));
    limit.rlim_cur = size + (1U << 30);
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
    // An emulator knows no such limit, but then its address space is soon full.
    Held held;
    std::vector<pthread_t> threads;
    for (pthread_t thread = 1; thread != 0 && threads.size() < 8;) {
        thread = ThreadSpawn(g_name, Held::Run, &held, INT_MAX & ~0xfff, 0, 5);
        threads.push_back(thread);
    }
    EXPECT_EQ(0u, threads.back());
    // The words end in a newline of their own, in the middle of the line.
    EXPECT_TRUE(log.Has(Kind::kPerror, "ThreadSpawn", "THREAD: spawn() thread create error\n",
                        Where::kSyslog));
    EXPECT_NE(std::string::npos, log.StdoutText().find("thread create error\n{errno("));
    EXPECT_EQ(0u, ThreadSpawnDeatched(g_name, Held::Run, &held, INT_MAX & ~0xfff, 0, 5));
    EXPECT_TRUE(log.Has(Kind::kPerror, "ThreadSpawnDeatched",
                        "THREAD: spawn() thread create error\n", Where::kSyslog));
    held.gate.Open();
    for (const pthread_t thread : threads) {
        ThreadWait(thread);
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == before; }));
}

TEST(Thread, ActsOnItself) {
    struct Results {
        int kill = 99;
        void* wait = &kill;
        int priority = 99;
    } results;
    const pthread_t thread = Spawn(
        [](void* param) {
            auto* to = static_cast<Results*>(param);
            to->wait = ThreadWait(pthread_self());
            to->priority = ThreadGetPriority(pthread_self());
            int state;
            pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
            to->kill = ThreadKill(pthread_self());
            ThreadExit();
        },
        &results);
    ThreadWait(thread);
    EXPECT_EQ(0, results.kill);
    EXPECT_EQ(nullptr, results.wait);
    EXPECT_EQ(0, results.priority);
    // A thread of the application's own asks about itself.
    EXPECT_EQ(0, ThreadGetPriority(pthread_self()));
    EXPECT_EQ(nullptr, ThreadWait(pthread_self()));
}

TEST(Thread, DetachesItself) {
    struct Results : Held {
        std::atomic<int> detach = 99;
    };
    static auto& results = *new Results;
    ASSERT_NE(0u, Spawn(
                      [](void* param) {
                          auto* to = static_cast<Results*>(param);
                          to->detach = ThreadDetach(pthread_self());
                          Held::Run(static_cast<Held*>(to));
                      },
                      static_cast<void*>(&results)));
    results.AwaitRunning();
    EXPECT_EQ(0, results.detach);
    results.gate.Open();
    EXPECT_TRUE(IsGone(results.tid));
}

TEST(Thread, ExitEndsOnlyTheThread) {
    std::atomic<int> steps = 0;
    const pthread_t thread = Spawn(
        [](void* to) {
            *static_cast<std::atomic<int>*>(to) += 1;
            ThreadExit();
        },
        &steps);
    EXPECT_EQ(nullptr, ThreadWait(thread));
    EXPECT_EQ(1, steps);
}

TEST(Thread, DelayIsInMicroseconds) {
    // Milliseconds would be a second each; one that is not interrupted tells.
    auto shortest = std::chrono::nanoseconds::max();
    for (int i = 0; i < 20; i++) {
        const auto begin = std::chrono::steady_clock::now();
        ThreadDelay(1000);
        shortest =
            std::min<std::chrono::nanoseconds>(shortest, std::chrono::steady_clock::now() - begin);
    }
    EXPECT_GE(shortest, std::chrono::microseconds(1000));
    EXPECT_LT(shortest, std::chrono::milliseconds(900));
}

TEST(Thread, GetIdIsTheHandleAsFarAsItFits) {
    EXPECT_EQ(static_cast<int>(pthread_self()), ThreadGetId());
}

TEST(Thread, WhatIsNotSupportedSaysSo) {
    EXPECT_EQ(-1, ThreadSuspend(pthread_self()));
    EXPECT_EQ(-1, ThreadResume(pthread_self()));
    EXPECT_EQ(-1, ThreadAdjustPriority(pthread_self(), 1));
    ThreadYield();
    static std::atomic<int> cleaned = 0;
    ThreadSetCleanup(
        pthread_self(), [](void*) { cleaned = 1; }, nullptr);
    ThreadWait(Spawn(
        [](void*) {
            ThreadSetCleanup(
                pthread_self(), [](void*) { cleaned = 1; }, nullptr);
        },
        nullptr));
    EXPECT_EQ(0, cleaned);
}

TEST(Thread, SignalsAreBlockedAndUnblockedOneByOne) {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    ThreadSigBlock(SIGUSR1);
    ThreadSigBlock(SIGHUP);
    ThreadSigUnblock(SIGHUP);
    ThreadSigBlock(0);
    ThreadSigBlock(-1);
    ThreadSigBlock(1000);
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signum = 1; signum < 32; signum++) {
        EXPECT_EQ(signum == SIGUSR1, sigismember(&mask, signum) == 1) << signum;
    }
}

}  // namespace
}  // namespace vimbra::tests
