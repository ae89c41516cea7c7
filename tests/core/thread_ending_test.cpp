// A thread that ends while its handle is looked at. Linked with -Wl,--wrap=syscall.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
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

}  // namespace
}  // namespace vimbra::tests
