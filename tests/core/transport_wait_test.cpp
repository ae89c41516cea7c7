// A request's waits: for a place in the backlog, and for as long as they may last.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "transport.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- A backlog that is full ------------------------------------------------------------------

// Takes those that fill the backlog, who say nothing, and answers the request behind them.
Bytes AnswerNext(DeafServer& server, const FullBacklog& full) {
    for (size_t i = 0; i < full.Count(); i++) {
        EXPECT_EQ(Bytes(), server.AcceptOne());
    }
    Bytes request;
    WaitFor([&] {
        request = server.AcceptOne(Message(kType, Pack().S32(7)));
        return !request.empty();
    });
    return request;
}

TEST_P(Transport, BacklogThatEmptiesInTimeLetsTheRequestGoOn) {
    DeafServer server(SocketName());
    const FullBacklog full(SocketName());
    Capture log;
    std::vector<u8> reply = Untouched(4);
    Asking asking([&] { return Call(Pattern(4), reply); });
    EXPECT_TRUE(asking.WaitAsleep());
    EXPECT_FALSE(asking.IsDone());
    EXPECT_EQ(Message(kType, Pattern(4)), AnswerNext(server, full));
    EXPECT_TRUE(asking.WaitDone());
    EXPECT_EQ(0, asking.Result());
    EXPECT_EQ(7, Bytes(reply).S32(0));
    EXPECT_TRUE(log.IsSilent());
}

TEST_P(Transport, SignalDoesNotEndTheWaitForAPlaceInTheBacklog) {
    for (const int flags : {0, SA_RESTART}) {
        TakeSignals(flags);
        DeafServer server(SocketName());
        const FullBacklog full(SocketName());
        Capture log;
        std::vector<u8> reply = Untouched(4);
        Asking asking([&] { return Call(Pattern(4), reply); });
        for (int i = 0; i < 20; i++) {
            EXPECT_TRUE(asking.WaitAsleep());
            asking.Interrupt();
        }
        EXPECT_FALSE(asking.IsDone());
        EXPECT_FALSE(AnswerNext(server, full).empty());
        EXPECT_TRUE(asking.WaitDone());
        EXPECT_EQ(0, asking.Result());
        EXPECT_TRUE(log.IsSilent());
    }
}

TEST_P(Transport, PeerThatEndsWithAFullBacklogIsAFailedConnect) {
    DeafServer server(SocketName());
    const FullBacklog full(SocketName());
    Capture log;
    std::vector<u8> reply = Untouched(4);
    Asking asking([&] { return Call(Pattern(4), reply); });
    EXPECT_TRUE(asking.WaitAsleep());
    server.Close();
    EXPECT_TRUE(asking.WaitDone());
    EXPECT_EQ(-1, asking.Result());
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ECONNREFUSED),
                            Err(Function(), GetParam().connectText)}));
    EXPECT_EQ(Untouched(4), reply);
}

// Who posts it may be the thread that would have to take it.
TEST_P(Transport, MessageWithoutReplyDoesNotWaitForAPlaceInTheBacklog) {
    const DeafServer server(SocketName());
    const FullBacklog full(SocketName());
    Capture log;
    const auto before = OpenDescriptors();
    EXPECT_EQ(-1, GetParam().call(kType, "abc", 3, nullptr, 0));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", EAGAIN),
                            Err(Function(), GetParam().connectText)}));
    EXPECT_EQ(before, OpenDescriptors());
}

// ---- Time-outs in real time ----------------------------------------------------------------

TEST(TransportSlow, DaemonThatNeverAnswersIsGivenUpAfterSixtySeconds) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::LeaveUnread());
    Capture log;
    u32 reply = 0xA5A5A5A5;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(1102, IpcApiSendAndRecv(kType, "abc", 3, &reply, sizeof(reply)));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(59));
    EXPECT_LE(took, std::chrono::seconds(100));
    EXPECT_EQ(0xA5A5A5A5, reply);
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendAndRecv", "wait time out for reading!")}));
}

TEST(TransportSlow, FullBacklogIsGivenUpAfterSixtySeconds) {
    const DeafServer server("api_daemon");
    const FullBacklog full("api_daemon");
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    Capture log;
    const auto start = std::chrono::steady_clock::now();
    sockaddr_un address;
    socklen_t length;
    Asking connecting([&] { return MakeAddrClient(fd, "api_daemon", &address, &length); });
    u32 reply = 0;
    EXPECT_EQ(-1, IpcApiSendAndRecv(kType, "abc", 3, &reply, sizeof(reply)));
    EXPECT_TRUE(connecting.WaitDone());
    EXPECT_EQ(-1, connecting.Result());
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(59));
    EXPECT_LE(took, std::chrono::seconds(100));
    EXPECT_EQ(2, log.Count(Kind::kPerror, "MakeAddrClient", "connect error"));
    EXPECT_EQ(1, log.Count(Kind::kError, "IpcApiSendAndRecv", "MakeAddrClient error!"));
    timeval timeout = {1, 1};
    length = sizeof(timeout);
    EXPECT_EQ(0, getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, &length));
    EXPECT_FALSE(timerisset(&timeout));
    close(fd);
}

// The wait for a place in the backlog and the wait for the reply are paid from one purse.
TEST(TransportSlow, AllWaitsTogetherTakeSixtySeconds) {
    DeafServer server("api_daemon");
    const FullBacklog full("api_daemon");
    Capture log;
    u32 reply = 0;
    const auto start = std::chrono::steady_clock::now();
    Asking asking([&] { return IpcApiSendAndRecv(kType, "abc", 3, &reply, sizeof(reply)); });
    std::this_thread::sleep_for(std::chrono::seconds(50));
    EXPECT_FALSE(asking.IsDone());
    server.AcceptOne();
    EXPECT_TRUE(WaitFor([&] { return asking.IsDone(); }, std::chrono::seconds(100)));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(59));
    EXPECT_LE(took, std::chrono::seconds(100));
    EXPECT_EQ(1102, asking.Result());
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendAndRecv", "wait time out for reading!")}));
}

TEST(TransportSlow, FullSocketIsGivenUpAfterSixtySeconds) {
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends));
    const std::vector<char> block(4096);
    while (send(ends[0], block.data(), block.size(), MSG_NOSIGNAL) > 0) {
    }
    Capture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(1103, IpcApiSendMsg(ends[0], kType, nullptr, 0, 0));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(59));
    EXPECT_TRUE(Wrote(log, {Err("IpcApiSendMsg", "wait time out for writing!")}));
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
}  // namespace vimbra::tests
