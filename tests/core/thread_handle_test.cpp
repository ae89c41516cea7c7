// Threads: what a handle is good for, whoever made the thread and whether it lives.
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <atomic>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "thread.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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
    for (int i = 0; i < 200; i++) {
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

}  // namespace
}  // namespace vimbra::tests
