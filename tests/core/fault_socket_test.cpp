// The calls for an application's own socket, each of whose calls fails.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/un.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "expect_log.hpp"
#include "fault.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- IpcApiSendMsg ---------------------------------------------------------------------------

class FaultOfSendMsg : public testing::Test {
 protected:
    void SetUp() override { ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends_)); }
    void TearDown() override {
        close(ends_[0]);
        close(ends_[1]);
    }
    s32 Call() {
        char body[] = "body";
        return IpcApiSendMsg(ends_[0], 1, body, 4, 0);
    }

    int ends_[2] = {-1, -1};
};

TEST_F(FaultOfSendMsg, EveryCallFailsInTurn) {
    struct {
        const char* call;
        Said said;
    } const cases[] = {{"fcntl", Perr("IpcApiSendMsg", "select error", EBADF)},
                       {"calloc", Perr("IpcApiSendMsg", "XMALLOC error", ENOMEM)},
                       {"select", Perr("IpcApiSendMsg", "select error", EINTR)},
                       {"send", Err("IpcApiSendMsg", "fail to send message!")}};
    for (const bool forGood : {false, true}) {
        size_t number = 0;
        for (const auto& one : cases) {
            Capture log;
            Injector injector;
            injector.FailAt(++number, forGood);
            EXPECT_EQ(-1, Call());
            injector.Stop();
            EXPECT_EQ(one.call, injector.Failed());
            EXPECT_TRUE(Wrote(log, {one.said}));
            EXPECT_EQ(0u, injector.Blocks());
            EXPECT_GE(fcntl(ends_[0], F_GETFD), 0) << "the socket was closed";
            EXPECT_EQ(0, Call());
        }
    }
}

TEST_F(FaultOfSendMsg, MakesTheseCallsAndNoOthers) {
    Injector injector;
    EXPECT_EQ(0, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"fcntl", "calloc", "select", "send"}), injector.Calls());
    EXPECT_EQ(std::vector<size_t>{16}, injector.Sizes());
}

TEST_F(FaultOfSendMsg, TimeOutIs1103) {
    Capture log;
    Injector injector;
    injector.onSelect = [](int, fd_set* read, fd_set* write, fd_set*, timeval* time) {
        EXPECT_EQ(nullptr, read);
        EXPECT_NE(nullptr, write);
        EXPECT_EQ(60, time->tv_sec);
        EXPECT_EQ(0, time->tv_usec);
        return 0;
    };
    EXPECT_EQ(1103, Call());
    injector.Stop();
    EXPECT_EQ((Calls{"fcntl", "calloc", "select"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "wait time out for writing!")}));
    EXPECT_EQ(0u, injector.Blocks());
}

TEST_F(FaultOfSendMsg, ShortWriteFails) {
    Capture log;
    for (const ssize_t written : {ssize_t{0}, ssize_t{15}}) {
        log.Clear();
        Injector injector;
        injector.onSend = [=](int, const void*, size_t) { return written; };
        EXPECT_EQ(-1, Call());
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "fail to send message!")}));
    }
}

// The set is as large as the descriptor needs, and one bit of it is set.
TEST_F(FaultOfSendMsg, SetFitsTheDescriptor) {
    for (const int fd : {0, 31, 32, 63, 64, 1022, 1023, 1024, 1055, 1056, 3000, 70000}) {
        Injector injector;
        bool good = false;
        injector.onFcntl = [](int, int, long) { return 0; };
        injector.onSelect = [&](int count, fd_set*, fd_set* write, fd_set*, timeval*) {
            good = count == fd + 1 && IsOnly(write, fd, count);
            return 0;
        };
        EXPECT_EQ(1103, IpcApiSendMsg(fd, 1, nullptr, 0, 0));
        injector.Stop();
        EXPECT_TRUE(good) << fd;
        EXPECT_EQ(fd < 1024 ? 1u : 2u, injector.Sizes().size());
        EXPECT_EQ(0u, injector.Blocks());
    }
}

// Nothing is allocated for a number that is no descriptor's, however large.
TEST_F(FaultOfSendMsg, DescriptorThatIsNoneCostsNothing) {
    for (const int fd : {-1, 60, 70000, INT32_MAX - 1, INT32_MAX}) {
        Injector injector;
        EXPECT_EQ(-1, IpcApiSendMsg(fd, 1, nullptr, 0, 0));
        injector.Stop();
        EXPECT_EQ(Calls{"fcntl"}, injector.Calls()) << fd;
    }
}

TEST_F(FaultOfSendMsg, MissingMemoryForALargeSetIsTold) {
    for (const size_t number : {size_t{2}, size_t{3}}) {
        Capture log;
        Injector injector;
        injector.onFcntl = [](int, int, long) { return 0; };
        injector.FailAt(number);
        EXPECT_EQ(-1, IpcApiSendMsg(3000, 1, nullptr, 0, 0));
        injector.Stop();
        EXPECT_TRUE(Wrote(log, {Perr("IpcApiSendMsg", "XMALLOC error", ENOMEM)}));
        EXPECT_EQ(0u, injector.Blocks());
    }
}

// ---- MakeAddrServer --------------------------------------------------------------------------

TEST(FaultOfMakeAddrServer, EveryCallFailsInTurn) {
    const std::vector<Said> bindFails = {Perr("MakeAddrServer", "bind error", EROFS)};
    const std::vector<Said> listenFails = {Perr("MakeAddrServer", "listen error!", EADDRINUSE)};
    struct {
        bool stale;
        size_t number;
        const char* call;
        std::vector<Said> said;
        bool listens;
    } const cases[] = {
        {true, 1, "access", {}, true},        {true, 2, "unlink", {}, true},
        {true, 3, "access", {}, true},        {true, 4, "unlink", {}, true},
        {true, 5, "bind", bindFails, false},  {true, 6, "listen", listenFails, false},
        {false, 1, "access", {}, true},       {false, 2, "unlink", {}, true},
        {false, 3, "bind", bindFails, false}, {false, 4, "listen", listenFails, false},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.call + std::string(one.stale ? " on a stale file" : ""));
        unlink("/tmp/ipc_stat");
        if (one.stale) {
            WriteFile("/tmp/ipc_stat", "stale");
        }
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address;
        socklen_t length;
        Capture log;
        Injector injector;
        injector.FailAt(one.number);
        EXPECT_EQ(0, MakeAddrServer(fd, "ipc_stat", &address, &length));
        injector.Stop();
        EXPECT_EQ(one.call, injector.Failed());
        EXPECT_TRUE(Wrote(log, one.said));
        EXPECT_EQ(one.listens, HasListener("ipc_stat"));
        EXPECT_EQ(one.listens, fcntl(fd, F_GETFD) >= 0);
        EXPECT_EQ(one.listens, access("/tmp/ipc_stat", F_OK) == 0);
        if (one.listens) {
            close(fd);
        }
    }
}

TEST(FaultOfMakeAddrServer, FileThatCannotBeRemovedDoesNotHoldItUp) {
    WriteFile("/tmp/ipc_stat", "stale");
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    socklen_t length;
    Capture log;
    Injector injector;
    injector.FailAt(2, true);
    EXPECT_EQ(0, MakeAddrServer(fd, "ipc_stat", &address, &length));
    injector.Stop();
    EXPECT_EQ((Calls{"access", "unlink", "unlink", "bind", "unlink", "close"}), injector.Calls());
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrServer", "bind error", EROFS)}));
}

}  // namespace
}  // namespace vimbra::tests
