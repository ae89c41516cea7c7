// A message on a socket that the application has: IpcApiSendMsg and IpcApiRecvmsg.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <algorithm>
#include <cerrno>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "transport.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class SendMsg : public testing::Test {
 protected:
    void SetUp() override { ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends_)); }
    void TearDown() override {
        close(ends_[0]);
        close(ends_[1]);
    }

    Bytes Received(size_t size) const {
        Bytes bytes(size);
        bytes.resize(static_cast<size_t>(
            std::max<ssize_t>(0, recv(ends_[1], bytes.data(), size, MSG_WAITALL))));
        return bytes;
    }
    bool NothingMore() const {
        char byte;
        return recv(ends_[1], &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
    }

    int ends_[2] = {-1, -1};
};

TEST_F(SendMsg, SendsHeaderWithFlagAndBody) {
    Capture log;
    Bytes body = Pattern(6);
    EXPECT_EQ(0, IpcApiSendMsg(ends_[0], 0x0c01, body.data(), 6, -5));
    EXPECT_EQ(Pack().U32(0x0c01).U32(6).S32(-5).Add(body), Received(18));
    EXPECT_TRUE(NothingMore());
    EXPECT_TRUE(log.IsSilent());
}

TEST_F(SendMsg, SendsTwelveBytesWithoutBody) {
    EXPECT_EQ(0, IpcApiSendMsg(ends_[0], kType, nullptr, 0, 1));
    EXPECT_EQ(Pack().U32(kType).U32(0).S32(1), Received(12));
    EXPECT_TRUE(NothingMore());
}

TEST_F(SendMsg, PutsNoLimitOnTheBody) {
    for (const size_t size : {size_t{3073}, size_t{20000}}) {
        Bytes body = Pattern(size);
        EXPECT_EQ(0, IpcApiSendMsg(ends_[0], kType, body.data(), static_cast<s32>(size), 0));
        EXPECT_EQ(Pack().U32(kType).U32(static_cast<u32>(size)).S32(0).Add(body),
                  Received(12 + size));
    }
}

TEST_F(SendMsg, LeavesTheSocketOpen) {
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(0, IpcApiSendMsg(ends_[0], kType, nullptr, 0, i));
        EXPECT_EQ(i, Received(12).S32(8));
    }
}

TEST_F(SendMsg, RefusesBufferAndLengthThatDoNotMatch) {
    Capture log;
    char byte = 1;
    struct {
        void* buffer;
        s32 length;
    } const bad[] = {{&byte, 0}, {nullptr, 1}, {&byte, -1}, {nullptr, -1}};
    for (const auto& pair : bad) {
        log.Clear();
        EXPECT_EQ(-1, IpcApiSendMsg(ends_[0], kType, pair.buffer, pair.length, 0));
        EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "the parameters is invalid")}));
    }
    EXPECT_TRUE(NothingMore());
}

TEST_F(SendMsg, ChecksTheBufferBeforeTheSocket) {
    Capture log;
    EXPECT_EQ(-1, IpcApiSendMsg(-1, kType, nullptr, 1, 0));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "the parameters is invalid")}));
}

TEST_F(SendMsg, FailsOnADescriptorThatIsNone) {
    constexpr int kClosed = 60;
    ASSERT_LT(fcntl(kClosed, F_GETFD), 0);
    for (const int fd : {-1, INT32_MIN, kClosed, INT32_MAX}) {
        Capture log;
        EXPECT_EQ(-1, IpcApiSendMsg(fd, kType, nullptr, 0, 0));
        EXPECT_TRUE(Wrote(log, {Perr("IpcApiSendMsg", "select error", EBADF)})) << fd;
    }
}

TEST_F(SendMsg, PeerThatIsGoneDoesNotKillTheApplication) {
    ASSERT_NE(SIG_ERR, signal(SIGPIPE, SIG_DFL));
    shutdown(ends_[1], SHUT_RDWR);
    Capture log;
    EXPECT_EQ(-1, IpcApiSendMsg(ends_[0], kType, nullptr, 0, 0));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "fail to send message!")}));
    EXPECT_GE(fcntl(ends_[0], F_GETFD), 0) << "the socket was closed";
}

TEST_F(SendMsg, ShortWriteFails) {
    const int flags = fcntl(ends_[0], F_GETFL);
    ASSERT_EQ(0, fcntl(ends_[0], F_SETFL, flags | O_NONBLOCK));
    Bytes body = Pattern(4 << 20);
    Capture log;
    EXPECT_EQ(-1, IpcApiSendMsg(ends_[0], kType, body.data(), 4 << 20, 0));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "fail to send message!")}));
}

TEST(IpcApiRecvmsg, AlwaysFailsAndSaysNothing) {
    ScriptedDaemon daemon;
    Connection connection("api_daemon");
    Capture log;
    char buffer[4] = {};
    EXPECT_EQ(-1, IpcApiRecvmsg(0, kType, buffer, sizeof(buffer), 0));
    EXPECT_EQ(-1, IpcApiRecvmsg(-1, 0, nullptr, 0, 0));
    EXPECT_EQ(-1, IpcApiRecvmsg(1, 1, nullptr, -1, -1));
    EXPECT_TRUE(log.IsSilent());
}

}  // namespace
}  // namespace vimbra::tests
