// The listener engine: connections that fail or come to nothing, and messages.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <vector>
#include <vimbra/bed.hpp>

#include "engine.hpp"
#include "lib/ipc/listener.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_F(Engine, SocketThatCannotBeMadeEndsIt) {
    g_socketError = EMFILE;
    Start();
    g_socketError = 0;
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "socket error"));
    EXPECT_EQ(Bound::kSocketFailed, probe_.bounds[0]);
    EXPECT_EQ(Ended::kNotBound, probe_.ends[0]);
    EXPECT_EQ(0u, handle_);
}

TEST_F(Engine, FailedAcceptEnds) {
    size_t times = 0;
    for (const int error : {EMFILE, ECONNABORTED, ENOMEM, EBADF, EINVAL}) {
        log_.Clear();
        Start();
        g_acceptError = error;
        Connection connection(kSocket);
        EXPECT_TRUE(probe_.HasEnded(++times));
        g_acceptError = 0;
        EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "accept error"));
        EXPECT_EQ(Ended::kAcceptFailed, probe_.ends.back());
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
}

TEST_F(Engine, FailureOfAcceptThatPassesIsWaitedOut) {
    service_.acceptFailure = AcceptFailure::kMayBePassing;
    Start();
    size_t messages = 0;
    for (const int error : {EMFILE, ENFILE, ECONNABORTED, ENOMEM, ENOBUFS, EPROTO, EPERM}) {
        log_.Clear();
        const int before = g_accepts;
        g_acceptError = error;
        const auto begin = std::chrono::steady_clock::now();
        Connection connection(kSocket);
        ASSERT_TRUE(connection.Send(bed::Message(1, kBody)));
        // It tries again, but not all the time.
        EXPECT_TRUE(WaitFor([=] { return g_accepts >= before + 3; }));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
        g_acceptError = 0;
        EXPECT_TRUE(connection.WaitPeerClosed());
        EXPECT_EQ(++messages, probe_.Messages());
        EXPECT_GE(log_.Count(Kind::kPerror, kFunction, "accept error"), 3);
    }
}

TEST_F(Engine, DeadSocketEndsAlsoWhoWouldWaitOut) {
    service_.acceptFailure = AcceptFailure::kMayBePassing;
    size_t times = 0;
    for (const int error : {EBADF, EINVAL, ENOTSOCK}) {
        Start();
        g_acceptError = error;
        Connection connection(kSocket);
        EXPECT_TRUE(probe_.HasEnded(++times));
        g_acceptError = 0;
        EXPECT_EQ(Ended::kAcceptFailed, probe_.ends.back());
    }
}

TEST_F(Engine, KillCutsThePause) {
    service_.acceptFailure = AcceptFailure::kMayBePassing;
    Start();
    const int before = g_accepts;
    g_acceptError = EMFILE;
    Connection connection(kSocket);
    EXPECT_TRUE(WaitFor([=] { return g_accepts > before; }));
    EXPECT_EQ(0, KillListener(slot_).result);
    EXPECT_TRUE(probe_.HasEnded());
    g_acceptError = 0;
    EXPECT_EQ(Ended::kKilled, probe_.ends[0]);
}

TEST_F(Engine, ConnectionThatIsGoneAgainIsNoFailure) {
    Start();
    g_acceptError = EAGAIN;
    const int before = g_accepts;
    Connection connection(kSocket);
    ASSERT_TRUE(connection.Send(bed::Message(1, kBody)));
    EXPECT_TRUE(WaitFor([=] { return g_accepts > before; }));
    g_acceptError = EINTR;
    EXPECT_TRUE(WaitFor([=] { return g_accepts > before + 10; }));
    g_acceptError = 0;
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_EQ(1u, probe_.Messages());
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Engine, UpToTakesWhatComes) {
    service_.reading = Reading::kUpTo;
    Start();
    const Bytes whole = bed::Message(7, kBody, 0);
    for (const size_t length : {0, 4, 12, 15, 20}) {
        Connection connection(kSocket);
        ASSERT_TRUE(connection.Send(whole.Slice(0, length)));
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    ASSERT_EQ(5u, probe_.Messages());
    EXPECT_EQ((std::vector<size_t>{0, 4, 12, 15, 20}), probe_.counts);
    EXPECT_EQ((std::vector<u32>{0, 7, 7, 7, 7}), probe_.types);
    EXPECT_EQ(Bytes(), probe_.bodies[2]);
    EXPECT_EQ(kBody.Slice(0, 3), probe_.bodies[3]);
    EXPECT_EQ(kBody, probe_.bodies[4]);
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Engine, HeadThenBodyTakesWhatTheHeadSays) {
    service_.reading = Reading::kHeadThenBody;
    service_.bodySize = 4096;
    Start();
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_TRUE(Notify(kSocket, 2, kBody));
    EXPECT_TRUE(Notify(kSocket, 3, Pack().Zeros(4096)));
    // The two may come apart.
    Connection connection(kSocket);
    ASSERT_TRUE(connection.SendInPieces(bed::Message(4, kBody), {12}));
    EXPECT_TRUE(connection.WaitPeerClosed());
    ASSERT_EQ(4u, probe_.Messages());
    EXPECT_EQ((std::vector<u32>{1, 2, 3, 4}), probe_.types);
    EXPECT_EQ(Bytes(), probe_.bodies[0]);
    EXPECT_EQ(kBody, probe_.bodies[1]);
    EXPECT_EQ(4096u, probe_.bodies[2].size());
    EXPECT_EQ(kBody, probe_.bodies[3]);
}

TEST_F(Engine, HeadThenBodyBoundsTheBody) {
    service_.reading = Reading::kHeadThenBody;
    service_.bodySize = 4096;
    Start();
    int refused = 0;
    for (const u32 size : {4097u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        EXPECT_TRUE(Notify(kSocket, 1, kBody, {.size = size}));
        EXPECT_EQ(++refused, log_.Count(Kind::kError, kFunction, "body too long"));
    }
    EXPECT_EQ(0u, probe_.Messages());
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_EQ(1u, probe_.Messages());
}

TEST_F(Engine, HeadThenBodyEndsOnAShortBody) {
    service_.reading = Reading::kHeadThenBody;
    Start();
    Connection connection(kSocket);
    ASSERT_TRUE(connection.Send(bed::Message(1, kBody).Slice(0, 19)));
    connection.EndSending();
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Ended::kBadMessage, probe_.ends[0]);
    EXPECT_TRUE(log_.Has(Kind::kError, kFunction, "short body"));
}

TEST_F(Engine, PeerThatSaysNothingKeepsNobodyWaitingForGood) {
    Start();
    const auto begin = std::chrono::steady_clock::now();
    Connection silent(kSocket);
    ASSERT_TRUE(silent.Connected());
    EXPECT_TRUE(Notify(kSocket, 1, kBody));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4500));
    EXPECT_TRUE(silent.WaitPeerClosed());
    EXPECT_EQ(1u, probe_.Messages());
    EXPECT_TRUE(log_.Has(Kind::kPerror, kFunction, "read message error"));
}

// The time is the whole message's, not each piece's.
TEST_F(Engine, PeerThatStopsInTheMiddleIsAShortReadInTime) {
    service_.reading = Reading::kHeadThenBody;
    Start();
    Connection half(kSocket);
    ASSERT_TRUE(half.Send(bed::Message(1, kBody).Slice(0, 12)));
    EXPECT_TRUE(half.WaitPeerClosed());
    EXPECT_TRUE(probe_.HasEnded());
    EXPECT_EQ(Ended::kBadMessage, probe_.ends[0]);
    EXPECT_TRUE(log_.Has(Kind::kError, kFunction, "short body"));
}

}  // namespace
}  // namespace vimbra::tests
