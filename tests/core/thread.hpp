// What the tests of threads share: threads that run until they are let go, or are cancelled.
#ifndef VIMBRA_TESTS_CORE_THREAD_HPP
#define VIMBRA_TESTS_CORE_THREAD_HPP

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <atomic>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

inline constexpr int kStack = 0x200000;
inline char g_name[] = "VimbraTestThreadWithALongName";

inline pthread_t Spawn(void (*proc)(void*), void* param, bool detached = false) {
    return (detached ? ThreadSpawnDeatched : ThreadSpawn)(g_name, proc, param, kStack, 0, 5);
}

// A thread that runs until it is told to go on.
struct Held {
    bed::Gate gate;
    std::atomic<int> tid = 0;

    static void Run(void* param) {
        auto* held = static_cast<Held*>(param);
        held->tid = static_cast<int>(syscall(SYS_gettid));
        held->gate.Pass();
    }
    void AwaitRunning() const {
        ASSERT_TRUE(bed::WaitFor([this] { return tid != 0; }));
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

inline bool IsGone(int tid) {
    return bed::WaitFor([tid] { return syscall(SYS_tgkill, getpid(), tid, 0) != 0; });
}

}  // namespace vimbra::tests

#endif
