// The thread layer.
#include <gtest/gtest.h>
#include <malloc.h>
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
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr int kStack = 0x200000;
char g_name[] = "VimbraTestThreadWithALongName";

pthread_t Spawn(void (*proc)(void*), void* param, bool detached = false) {
    return (detached ? ThreadSpawnDeatched : ThreadSpawn)(g_name, proc, param, kStack, 0, 5);
}

// A thread that runs until it is told to go on.
struct Held {
    Gate gate;
    std::atomic<int> tid = 0;

    static void Run(void* param) {
        auto* held = static_cast<Held*>(param);
        held->tid = static_cast<int>(syscall(SYS_gettid));
        held->gate.Pass();
    }
    void AwaitRunning() const {
        ASSERT_TRUE(WaitFor([this] { return tid != 0; }));
    }
};

// A thread that blocks where cancellation acts.
struct Blocked {
    int pipe[2];
    std::atomic<bool> running = false;

    Blocked() { EXPECT_EQ(0, ::pipe(pipe)); }
    ~Blocked() {
        close(pipe[0]);
        close(pipe[1]);
    }
    static void Run(void* param) {
        auto* blocked = static_cast<Blocked*>(param);
        blocked->running = true;
        char byte;
        static_cast<void>(read(blocked->pipe[0], &byte, 1) == 1);
    }
};

bool IsGone(int tid) {
    return WaitFor([tid] { return syscall(SYS_tgkill, getpid(), tid, 0) != 0; });
}

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

TEST(Thread, KillCancelsAThreadThatBlocksAndWaitTellsSo) {
    Blocked blocked;
    const pthread_t thread = Spawn(Blocked::Run, &blocked);
    ASSERT_TRUE(WaitFor([&] { return blocked.running.load(); }));
    EXPECT_EQ(0, ThreadKill(thread));
    EXPECT_EQ(PTHREAD_CANCELED, ThreadWait(thread));
}

TEST(Thread, CancelledThreadsLeaveNothing) {
    const size_t threads = Threads();
    for (int i = 0; i < 200; i++) {
        Blocked blocked;
        const pthread_t thread = Spawn(Blocked::Run, &blocked);
        ASSERT_NE(0u, thread);
        EXPECT_EQ(0, ThreadKill(thread));
        ThreadWait(thread);
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
}

TEST(Thread, HandlesOfNobodyAreRefused) {
    for (const pthread_t handle : {pthread_t{0}, static_cast<pthread_t>(-1)}) {
        EXPECT_EQ(-1, ThreadKill(handle));
        EXPECT_EQ(-1, ThreadDetach(handle));
        EXPECT_EQ(-1, ThreadGetPriority(handle));
        EXPECT_EQ(nullptr, ThreadWait(handle));
    }
}

// A joinable thread that this layer knows nothing of, on a stack of the size that its own have.
pthread_t SpawnElsewhere(void* (*proc)(void*), void* param) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_t thread = 0;
    EXPECT_EQ(0, pthread_create(&thread, &attributes, proc, param));
    pthread_attr_destroy(&attributes);
    return thread;
}

void* RunBlocked(void* param) {
    Blocked::Run(param);
    return nullptr;
}

void* RunHeld(void* param) {
    Held::Run(param);
    return param;
}

TEST(Thread, ThreadMadeElsewhereIsWaitedFor) {
    Held held;
    held.gate.Open();
    EXPECT_EQ(&held, ThreadWait(SpawnElsewhere(RunHeld, &held)));
}

TEST(Thread, ThreadMadeElsewhereIsKilled) {
    Blocked blocked;
    const pthread_t thread = SpawnElsewhere(RunBlocked, &blocked);
    EXPECT_EQ(0, ThreadGetPriority(thread));
    EXPECT_EQ(0, ThreadKill(thread));
    EXPECT_EQ(PTHREAD_CANCELED, ThreadWait(thread));
}

TEST(Thread, ThreadMadeElsewhereIsDetachedOnce) {
    static auto& held = *new Held;
    const pthread_t thread = SpawnElsewhere(RunHeld, &held);
    held.AwaitRunning();
    EXPECT_EQ(0, ThreadDetach(thread));
    EXPECT_EQ(-1, ThreadDetach(thread));
    held.gate.Open();
    EXPECT_TRUE(IsGone(held.tid));
}

// Handles that were this layer's belong to whoever has them next.
TEST(Thread, HandleThatWasGivenToAThreadMadeElsewhereIsThatThreads) {
    for (const bool byOtherMeans : {false, true}) {
        Held ended;
        ended.gate.Open();
        const pthread_t gone = Spawn(Held::Run, &ended);
        if (byOtherMeans) {
            pthread_join(gone, nullptr);
        } else {
            ThreadWait(gone);
        }
        EXPECT_EQ(-1, ThreadKill(gone));
        Blocked blocked;
        const pthread_t next = SpawnElsewhere(RunBlocked, &blocked);
        ASSERT_TRUE(pthread_equal(gone, next)) << "the C library takes another stack";
        EXPECT_EQ(0, ThreadGetPriority(next));
        EXPECT_EQ(0, ThreadKill(next));
        EXPECT_EQ(PTHREAD_CANCELED, ThreadWait(next));
    }
}

TEST(Thread, ThreadsThatWereJoinedByOtherMeansAreNotKept) {
    Held held;
    held.gate.Open();
    const auto round = [&] { pthread_join(Spawn(Held::Run, &held), nullptr); };
    for (int i = 0; i < 100; i++) {
        round();
    }
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 2000; i++) {
        round();
    }
    EXPECT_LE(mallinfo2().uordblks, before + 1024);
}

TEST(Thread, HandlesOfTheGoneAreRefused) {
    Held held;
    held.gate.Open();
    const pthread_t joined = Spawn(Held::Run, &held);
    ThreadWait(joined);
    static auto& another = *new Held;
    another.gate.Open();
    const pthread_t detached = Spawn(Held::Run, &another, true);
    another.AwaitRunning();
    ASSERT_TRUE(IsGone(another.tid));
    for (const pthread_t handle : {joined, detached}) {
        EXPECT_EQ(-1, ThreadKill(handle));
        EXPECT_EQ(-1, ThreadDetach(handle));
        EXPECT_EQ(-1, ThreadGetPriority(handle));
        EXPECT_EQ(nullptr, ThreadWait(handle));
    }
}

TEST(Thread, JoinableThreadThatHasEndedCanBeWaitedForOrDetachedOnce) {
    for (const bool detach : {false, true}) {
        Held held;
        held.gate.Open();
        const pthread_t thread = Spawn(Held::Run, &held);
        held.AwaitRunning();
        ASSERT_TRUE(IsGone(held.tid));
        EXPECT_EQ(-1, ThreadKill(thread));
        if (detach) {
            EXPECT_EQ(0, ThreadDetach(thread));
        } else {
            EXPECT_EQ(nullptr, ThreadWait(thread));
        }
        EXPECT_EQ(-1, ThreadDetach(thread));
        EXPECT_EQ(nullptr, ThreadWait(thread));
    }
}

TEST(Thread, WaitOfADetachedThreadReturnsAtOnce) {
    // Nobody can tell when detached threads are through with them.
    static auto& held = *new Held;
    const pthread_t thread = Spawn(Held::Run, &held, true);
    held.AwaitRunning();
    EXPECT_EQ(nullptr, ThreadWait(thread));
    EXPECT_EQ(-1, ThreadDetach(thread));
    static auto& other = *new Held;
    const pthread_t joinable = Spawn(Held::Run, &other);
    EXPECT_EQ(0, ThreadDetach(joinable));
    EXPECT_EQ(nullptr, ThreadWait(joinable));
    held.gate.Open();
    other.AwaitRunning();
    other.gate.Open();
    EXPECT_TRUE(IsGone(held.tid));
    EXPECT_TRUE(IsGone(other.tid));
}

TEST(Thread, OnlyOneWaiterIsKept) {
    Held held;
    const pthread_t thread = Spawn(Held::Run, &held);
    held.AwaitRunning();
    std::atomic<int> returned = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; i++) {
        waiters.emplace_back([&] {
            ThreadWait(thread);
            returned++;
        });
    }
    EXPECT_TRUE(WaitFor([&] { return returned == 2; }));
    EXPECT_EQ(-1, ThreadDetach(thread));
    EXPECT_EQ(2, returned);
    held.gate.Open();
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_TRUE(IsGone(held.tid));
}

TEST(Thread, ThreadThatIsWaitedForCanBeKilled) {
    Blocked blocked;
    const pthread_t thread = Spawn(Blocked::Run, &blocked);
    std::thread waiter([=] { EXPECT_EQ(PTHREAD_CANCELED, ThreadWait(thread)); });
    ASSERT_TRUE(WaitFor([&] { return blocked.running.load(); }));
    EXPECT_EQ(0, ThreadKill(thread));
    waiter.join();
}

// The thread sanitizer knows neither a wait that is cancelled nor one for the main thread.
#ifndef __SANITIZE_THREAD__

TEST(Thread, WaitingIsACancellationPoint) {
    static pthread_t target;
    for (const bool elsewhere : {false, true}) {
        Held held;
        target = elsewhere ? SpawnElsewhere(RunHeld, &held) : Spawn(Held::Run, &held);
        for (int i = 0; i < 3; i++) {
            std::atomic<bool> waiting = false;
            const pthread_t waiter = Spawn(
                [](void* param) {
                    *static_cast<std::atomic<bool>*>(param) = true;
                    ThreadWait(target);
                },
                &waiting);
            ASSERT_TRUE(WaitFor([&] { return waiting.load(); }));
            EXPECT_EQ(0, ThreadKill(waiter));
            EXPECT_EQ(PTHREAD_CANCELED, ThreadWait(waiter));
        }
        // The next one may wait for it.
        held.gate.Open();
        EXPECT_EQ(elsewhere ? &held : nullptr, ThreadWait(target));
        EXPECT_EQ(nullptr, ThreadWait(elsewhere ? 0 : target));
    }
}

TEST(Thread, MainThreadIsAThread) {
    static pthread_t mainThread = pthread_self();
    std::atomic<int> priority = 99;
    ThreadWait(
        Spawn([](void* to) { *static_cast<std::atomic<int>*>(to) = ThreadGetPriority(mainThread); },
              &priority));
    EXPECT_EQ(0, priority);
    // It can even be waited for; whoever does is left alone with the process.
    const pid_t child = fork();
    if (child == 0) {
        mainThread = pthread_self();
        Spawn(
            [](void*) {
                ThreadWait(mainThread);
                _exit(7);
            },
            nullptr);
        syscall(SYS_exit, 0);  // The test's frames above would catch pthread_exit(3).
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(7, WEXITSTATUS(status));
}

#endif

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
