// A C library without crypt_r makes all hashes in one place of its own: threads take turns.
#include <crypt.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "lib/files/pw_salt.hpp"

namespace vimbra::tests {
namespace {

std::atomic<int> g_inside = 0;
std::atomic<bool> g_overlapped = false;
std::atomic<bool> g_isHeld = false;
char g_text[64];

std::string HashOf(const char* password) {
    Buffer hash;
    return HashPassword(VIMBRA_HERE, password, hash) ? reinterpret_cast<char*>(hash.Get()) : "";
}

}  // namespace

// In place of the C library's: slow, with its result where all calls have it.
extern "C" char* crypt(const char* password, const char* salt) noexcept {
    if (g_inside++ != 0) {
        g_overlapped = true;
    }
    for (size_t i = 0; i < sizeof(g_text) && (i == 0 || g_text[i - 1] != '\0'); i++) {
        g_text[i] = i < 3 ? salt[i] : password[i - 3];
    }
    // Where the machine is busy, whoever yields waits for all others.
    do {
        sched_yield();
    } while (g_isHeld);
    g_inside--;
    return g_text;
}

namespace {

TEST(SharedCrypt, EachThreadGetsItsOwnHash) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (const char* password : {"first", "second", "third"}) {
        threads.emplace_back([&wrong, password] {
            for (int i = 0; i < 30; i++) {
                wrong += HashOf(password) != "$1$" + std::string(password) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
    EXPECT_FALSE(g_overlapped);
}

TEST(SharedCrypt, AChildDoesNotWaitForWhoWasHashing) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    ASSERT_EQ(0, VimbraInit());
    g_isHeld = true;
    std::thread other([] { HashOf("other"); });
    while (g_inside == 0) {
        sched_yield();
    }
    const pid_t child = fork();
    if (child == 0) {
        g_isHeld = false;
        _exit(HashOf("child") == "$1$child" ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    g_isHeld = false;
    other.join();
}

}  // namespace
}  // namespace vimbra::tests
