// Loading the library has no effect but that it is there.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <vimbra/types.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

std::set<std::string> FilesInTmp() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator("/tmp")) {
        names.insert(entry.path());
    }
    return names;
}

TEST(Load, WritesNothingStartsNothingOpensNothing) {
    Capture log;
    const auto descriptors = OpenDescriptors();
    const auto threads = Threads();
    const auto files = FilesInTmp();
    const std::string semaphores = ReadFile("/proc/sysvipc/sem");
    sigset_t before;
    sigprocmask(SIG_BLOCK, nullptr, &before);

    void* library = dlopen(VIMBRA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();

    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(threads, Threads());
    EXPECT_EQ(files, FilesInTmp());
    EXPECT_EQ(semaphores, ReadFile("/proc/sysvipc/sem"));
    sigset_t after;
    sigprocmask(SIG_BLOCK, nullptr, &after);
    for (int number = 1; number < 32; number++) {
        EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << number;
    }
    const auto* level = static_cast<const u32*>(dlsym(library, "g_nVimbraLogSwitch"));
    ASSERT_NE(nullptr, level);
    EXPECT_EQ(5u, *level);
    EXPECT_EQ(nullptr, dlsym(library, "ApicIpaddrSet")) << "what is inside stays inside";
}

// Listeners may still be on their last lines when their service has been stopped.
TEST(Load, StaysWhenItIsUnloaded) {
    using Init = int (*)();
    using Start = int (*)(int, void (*)(void*, u32));
    const ScriptedDaemon daemon;
    const auto threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 300; i++) {
        void* library = dlopen(VIMBRA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, library) << dlerror();
        const auto init = reinterpret_cast<Init>(dlsym(library, "VimbraInit"));
        const auto start = reinterpret_cast<Start>(dlsym(library, "VimbraStatNotifyCallbackReg"));
        const auto stop = reinterpret_cast<Init>(dlsym(library, "VimbraStatStop"));
        *static_cast<u32*>(dlsym(library, "g_nVimbraLogSwitch")) = 0;
        ASSERT_EQ(0, init());
        ASSERT_EQ(0, start(1, [](void*, u32) {}));
        ASSERT_EQ(0, stop());
        ASSERT_EQ(0, dlclose(library));
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_TRUE(daemon.WaitIdle());
    EXPECT_EQ(descriptors, OpenDescriptors());
}

// Several threads load the library, let it report, and unload it, each at its own time.
TEST(Load, StaysWhenItIsUnloadedUnderLoad) {
    using Init = int (*)();
    using Conflict = int (*)(u16, void (*)(int, void*, void*));
    using Stop = int (*)(u16);
    static std::atomic<int> calls = 0;
    const ScriptedDaemon daemon;
    const auto threads = Threads();
    const auto descriptors = OpenDescriptors();
    std::vector<std::thread> users;
    for (const u16 family : {2, 10}) {
        users.emplace_back([family] {
            const char* const socket = family == 2 ? "ipc_ip_conflict" : "ipc_ipv6_conflict";
            for (int i = 0; i < 100; i++) {
                void* library = dlopen(VIMBRA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
                ASSERT_NE(nullptr, library) << dlerror();
                const auto init = reinterpret_cast<Init>(dlsym(library, "VimbraInit"));
                const auto start =
                    reinterpret_cast<Conflict>(dlsym(library, "VimbraIpConflictCheckStart"));
                const auto stop =
                    reinterpret_cast<Stop>(dlsym(library, "VimbraIpConflictCheckStop"));
                *static_cast<std::atomic<u32>*>(dlsym(library, "g_nVimbraLogSwitch")) = 0;
                EXPECT_EQ(0, init());
                EXPECT_EQ(0, start(family, [](int, void*, void*) { calls++; }));
                const int before = calls;
                EXPECT_TRUE(
                    Notify(socket, 1, Bytes(42, 1), {.size = {}, .flag = 0, .wait = i % 2 == 0}));
                EXPECT_TRUE(i % 2 != 0 || calls > before);
                EXPECT_EQ(0, stop(family));
                EXPECT_EQ(0, dlclose(library));
            }
        });
    }
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_TRUE(daemon.WaitIdle());
    EXPECT_EQ(descriptors, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
