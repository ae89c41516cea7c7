// Threads that end while their handles are looked at, or given away while they are waited for.
// Linked with -Wl,--wrap= for syscall, pthread_join and pthread_getcpuclockid.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <atomic>
#include <cstdarg>
#include <functional>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

// Before the library asks the kernel whether a thread lives.
std::function<void()>& g_onLook = *new std::function<void()>;
// When the library has waited for a thread and has not taken note of it yet.
std::function<void()>& g_onJoined = *new std::function<void()>;
// Every thread has a clock, as in a C library that does not look whether it still runs.
bool g_hasClock = false;

}  // namespace

extern "C" {
long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const long first = va_arg(arguments, long);
    const long second = va_arg(arguments, long);
    const long third = va_arg(arguments, long);
    va_end(arguments);
    if (number == SYS_tgkill && g_onLook) {
        g_onLook();
    }
    return __real_syscall(number, first, second, third);
}

int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result) {
    const int error = __real_pthread_join(thread, result);
    if (g_onJoined) {
        g_onJoined();
    }
    return error;
}

int __real_pthread_getcpuclockid(pthread_t thread, clockid_t* clock);
int __wrap_pthread_getcpuclockid(pthread_t thread, clockid_t* clock) {
    if (g_hasClock) {
        constexpr clockid_t kOfAThread = 6;
        *clock = ~0 * 8 + kOfAThread;  // of the thread with the number 0
        return 0;
    }
    return __real_pthread_getcpuclockid(thread, clock);
}
}

namespace {

constexpr int kStack = 0x200000;
char g_name[] = "VimbraTest";

// Runs until it is told to end.
struct Held {
    Gate gate;
    std::atomic<int> tid = 0;

    static void* Run(void* param) {
        auto* held = static_cast<Held*>(param);
        held->tid = gettid();
        held->gate.Pass();
        return nullptr;
    }
    void End() {
        gate.Open();
        EXPECT_TRUE(
            WaitFor([this] { return __real_syscall(SYS_tgkill, getpid(), tid.load(), 0) != 0; }));
    }
};

// Of threads that were not made here, in the stack of one that was.
pthread_t SpawnElsewhere(Held& held) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_t thread = 0;
    EXPECT_EQ(0, pthread_create(&thread, &attributes, Held::Run, &held));
    pthread_attr_destroy(&attributes);
    EXPECT_TRUE(WaitFor([&] { return held.tid != 0; }));
    return thread;
}

TEST(ThreadEnding, WhoEndsWhileHeIsLookedAtIsNobody) {
    const pthread_t gone = ThreadSpawn(
        g_name, [](void*) {}, nullptr, kStack, 0, 5);
    ThreadWait(gone);
    Held held;
    const pthread_t next = SpawnElsewhere(held);
    ASSERT_TRUE(pthread_equal(gone, next)) << "the C library takes another stack";
    int looks = 0;
    g_onLook = [&] {
        looks++;
        held.End();
    };
    EXPECT_EQ(-1, ThreadKill(gone));
    EXPECT_EQ(1, looks);
    g_onLook = nullptr;
    pthread_join(next, nullptr);
}

TEST(ThreadEnding, HandleThatIsGivenAwayBeforeItsWaiterKnowsIsTheNextThreads) {
    const pthread_t gone = ThreadSpawn(
        g_name, [](void*) {}, nullptr, kStack, 0, 5);
    Held held;
    pthread_t next = 0;
    g_onJoined = [&] {
        next = ThreadSpawn(
            g_name, [](void* param) { Held::Run(param); }, &held, kStack, 0, 5);
    };
    EXPECT_EQ(nullptr, ThreadWait(gone));
    g_onJoined = nullptr;
    ASSERT_TRUE(pthread_equal(gone, next)) << "the C library takes another stack";
    held.gate.Open();
    EXPECT_EQ(nullptr, ThreadWait(next));
    EXPECT_EQ(-1, ThreadKill(next));
}

// An emulator of programs keeps the place of what is unmapped, and msync(2) calls it mapped.
#ifndef __arm__

// A stack of that size the C library does not keep for the next thread.
TEST(ThreadEnding, WhoseStackHasGoneIsNobody) {
    constexpr int kLargeStack = 64 << 20;
    const pthread_t gone = ThreadSpawn(
        g_name, [](void*) {}, nullptr, kLargeStack, 0, 5);
    ASSERT_NE(0u, gone);
    ThreadWait(gone);
    EXPECT_EQ(-1, ThreadKill(gone));
    EXPECT_EQ(-1, ThreadDetach(gone));
}

#endif

TEST(ThreadEnding, WhoHasAClockAndNoNumberIsNobody) {
    const pthread_t gone = ThreadSpawn(
        g_name, [](void*) {}, nullptr, kStack, 0, 5);
    ThreadWait(gone);
    g_hasClock = true;
    EXPECT_EQ(-1, ThreadKill(gone));
    EXPECT_EQ(-1, ThreadDetach(gone));
}

// What an application has bound to a thread ends after all that was started for it here.
TEST(ThreadEnding, WhoOnlyReturnsIsNoMoreAskedAndStillWaitedFor) {
    static pthread_key_t key;
    ASSERT_EQ(0, pthread_key_create(&key, [](void* held) { Held::Run(held); }));
    Held held;
    const pthread_t thread = ThreadSpawn(
        g_name, [](void* param) { pthread_setspecific(key, param); }, &held, kStack, 0, 5);
    ASSERT_TRUE(WaitFor([&] { return held.tid != 0; }));
    EXPECT_EQ(-1, ThreadKill(thread));
    held.gate.Open();
    EXPECT_EQ(nullptr, ThreadWait(thread));
    EXPECT_EQ(-1, ThreadDetach(thread));
}

}  // namespace
}  // namespace vimbra::tests
