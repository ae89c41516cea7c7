// Cancellation and owners: a thread that is to be cancelled finishes its call and loses nothing.
#include "lib/base/cancel.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>
#include <vimbra/ipc.h>
#include <vimbra/process.h>

#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vimbra/bed.hpp>

#include "lib/base/fd.hpp"
#include "lib/base/lock.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

bool IsCancellable() {
    int state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    pthread_setcancelstate(state, nullptr);
    return state == PTHREAD_CANCEL_ENABLE;
}

// ---- Guards ------------------------------------------------------------------------------------

TEST(CancelGuard, LastsForItsScope) {
    EXPECT_TRUE(IsCancellable());
    {
        const CancelGuard guard;
        EXPECT_FALSE(IsCancellable());
        {
            const CancelGuard inner;
            EXPECT_FALSE(IsCancellable());
        }
        EXPECT_FALSE(IsCancellable());
    }
    EXPECT_TRUE(IsCancellable());
}

TEST(CancelGuard, LastsUntilTheLastOneHoweverTheyEnd) {
    std::optional<CancelGuard> first(std::in_place);
    std::optional<CancelGuard> second(std::in_place);
    first.reset();
    EXPECT_FALSE(IsCancellable());
    std::optional<CancelGuard> third(std::in_place);
    second.reset();
    EXPECT_FALSE(IsCancellable());
    third.reset();
    EXPECT_TRUE(IsCancellable());
}

TEST(CancelGuard, KeepsAThreadThatIsNotToBeCancelledSo) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    { const CancelGuard guard; }
    EXPECT_FALSE(IsCancellable());
}

TEST(CancelGuard, HoldsAgainAfterACallbackHasLiftedIt) {
    const CancelGuard guard;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    {
        const CancelGuard inner;
        EXPECT_FALSE(IsCancellable());
    }
    EXPECT_FALSE(IsCancellable());
}

TEST(CancelGuard, IsEachThreadsOwn) {
    const CancelGuard guard;
    std::thread([] { EXPECT_TRUE(IsCancellable()); }).join();
    EXPECT_FALSE(IsCancellable());
}

// ---- Owners ------------------------------------------------------------------------------------

TEST(Fd, CannotBeCancelledWhileItIsThere) {
    {
        const Fd fd(open, "/dev/null", O_RDONLY);
        EXPECT_TRUE(fd);
        EXPECT_FALSE(IsCancellable());
    }
    EXPECT_TRUE(IsCancellable());
}

int OpenWithinGuard(const char* path) {
    EXPECT_FALSE(IsCancellable()) << "a cancellation may come between the call and its owner";
    return open(path, O_RDONLY | O_CLOEXEC);
}

TEST(Fd, IsThereBeforeItsDescriptor) {
    const Fd fd(OpenWithinGuard, "/dev/null");
    EXPECT_TRUE(fd);
}

Fd Opened(pthread_mutex_t& mutex) {
    const Lock lock(mutex);
    Fd fd;
    fd.Reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return fd;
}

// The lock's guard is older than the owner's and ends before it.
TEST(Fd, CannotBeCancelledAfterItWasHandedOutOfALock) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    {
        const Fd fd = Opened(mutex);
        EXPECT_FALSE(IsCancellable());
    }
    EXPECT_TRUE(IsCancellable());
}

TEST(Fd, MovesWithoutALapse) {
    {
        std::optional<Fd> from(Fd(open, "/dev/null", O_RDONLY));
        const int number = from->Get();
        Fd to(std::move(*from));
        EXPECT_EQ(-1, from->Get());
        from.reset();
        EXPECT_EQ(number, to.Get());
        EXPECT_GE(fcntl(number, F_GETFD), 0);
        EXPECT_FALSE(IsCancellable());
        Fd last;
        last = std::move(to);
        EXPECT_EQ(number, last.Get());
        EXPECT_FALSE(IsCancellable());
    }
    EXPECT_TRUE(IsCancellable());
}

// ---- Calls -------------------------------------------------------------------------------------

struct Call {
    const char* name;
    std::function<void()> call;
};

void PrintTo(const Call& call, std::ostream* out) {
    *out << call.name;
}

char g_lo[16] = "lo";
char g_none[16] = "none0";

void MakeServerOf(const char* name) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    socklen_t length;
    MakeAddrServer(fd, name, &address, &length);
    if (fcntl(fd, F_GETFD) >= 0) {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        close(fd);
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    }
}

void Connect(const char* name) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    socklen_t length;
    MakeAddrClient(fd, name, &address, &length);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    close(fd);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
}

const Call kCalls[] = {
    {"SocketIoctl",
     [] {
         char request[64] = "lo";
         SocketIoctl(0x8913, request);
     }},
    {"IfethGetFlags",
     [] {
         u32 flags;
         IfethGetFlags(g_lo, &flags);
     }},
    {"IfethGetFlagsOfNone",
     [] {
         u32 flags;
         IfethGetFlags(g_none, &flags);
     }},
    {"IfethSetFlags", [] { IfethSetFlags(g_none, 0); }},
    {"IfethGetLineStatus",
     [] {
         u32 status;
         IfethGetLineStatus(g_lo, &status);
     }},
    {"IfethGetHwAddr",
     [] {
         u8 mac[6];
         IfethGetHwAddr(g_lo, mac, nullptr);
     }},
    {"IfethGetIpAddr",
     [] {
         in_addr address;
         IfethGetIpAddr(g_lo, &address);
     }},
    {"VimbraIfaceShutdown", [] { VimbraIfaceShutdown(g_none); }},
    {"VimbraGetIfaceState",
     [] {
         u32 state;
         VimbraGetIfaceState(g_lo, &state);
     }},
    {"MakeAddrServer", [] { MakeServerOf("ipc_stat"); }},
    {"MakeAddrServerThatCannotBind", [] { MakeServerOf("a_directory"); }},
    {"MakeAddrClient", [] { Connect("api_daemon"); }},
    {"MakeAddrClientOfNobody", [] { Connect("nobody"); }},
    {"IpcApiSendAndRecv",
     [] {
         u32 reply;
         IpcApiSendAndRecv(1, "body", 4, &reply, sizeof(reply));
     }},
    {"IpcCallbackSendAndRecv", [] { IpcCallbackSendAndRecv("nobody", 1, "body", 4, nullptr, 0); }},
    {"VimbraLogSwitch", [] { VimbraLogSwitch(5); }},
};

class PendingCancellation : public testing::TestWithParam<Call> {};

INSTANTIATE_TEST_SUITE_P(Calls, PendingCancellation, testing::ValuesIn(kCalls),
                         [](const auto& param) { return std::string(param.param.name); });

struct Rounds {
    const std::function<void()>& call;
    int done = 0;
};

void* CallTenTimes(void* argument) {
    auto* rounds = static_cast<Rounds*>(argument);
    pthread_cancel(pthread_self());
    for (; rounds->done < 10; rounds->done++) {
        rounds->call();
    }
    pthread_testcancel();
    return nullptr;
}

TEST_P(PendingCancellation, CutsNoCallAndLosesNoDescriptor) {
    ASSERT_EQ(0, mkdir("/tmp/a_directory", 0700));
    ScriptedDaemon daemon;
    Capture log;
    const auto before = OpenDescriptors();
    Rounds rounds{GetParam().call};
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, CallTenTimes, &rounds));
    void* result = nullptr;
    ASSERT_EQ(0, pthread_join(thread, &result));
    EXPECT_EQ(10, rounds.done);
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_EQ(before, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
