// The road of a request to the daemon.
#include "transport.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

INSTANTIATE_TEST_SUITE_P(Both, Transport, testing::ValuesIn(kExchanges),
                         [](const auto& param) { return std::string(param.param.function); });

// ---- Requests ------------------------------------------------------------------------------

TEST_P(Transport, SendsHeaderAndBodyInOnePiece) {
    ScriptedDaemon daemon(SocketName());
    Capture log;
    std::vector<u8> reply = Untouched(4);
    const Bytes body = Pattern(5);
    EXPECT_EQ(0, GetParam().call(0x89abcdef, body.data(), 5, reply.data(), 4));
    ASSERT_EQ(1u, daemon.Requests().size());
    const Request request = daemon.Requests()[0];
    EXPECT_EQ(Pack().U32(0x89abcdef).U32(5).S32(0).Add(body), request.raw);
    EXPECT_EQ(1u, request.reads);
    EXPECT_TRUE(log.IsSilent());
}

TEST_P(Transport, RequestWithoutBodyIsTwelveBytes) {
    ScriptedDaemon daemon(SocketName());
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(0, GetParam().call(kType, nullptr, 0, reply.data(), 4));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Pack().U32(kType).U32(0).S32(0), daemon.Requests()[0].raw);
    EXPECT_EQ(std::vector<u8>(4, 0), reply);
}

TEST_P(Transport, SendsTheLargestBody) {
    ScriptedDaemon daemon(SocketName());
    std::vector<u8> reply = Untouched(4);
    const Bytes body = Pattern(3072);
    EXPECT_EQ(0, Call(body, reply));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(3072u, daemon.Requests()[0].size);
    EXPECT_EQ(body, daemon.Requests()[0].body);
}

TEST_P(Transport, RefusesALargerBodyWithoutOpeningASocket) {
    ScriptedDaemon daemon(SocketName());
    Capture log;
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(-1, Call(Pattern(3073), reply));
    EXPECT_TRUE(
        Wrote(log, {Err(Function(), "the send buf is too long:3073,the max capacity is 3072!")}));
    EXPECT_EQ(0u, daemon.Connections());
    EXPECT_EQ(Untouched(4), reply);
}

TEST_P(Transport, OpensOneConnectionPerRequest) {
    ScriptedDaemon daemon(SocketName());
    std::vector<u8> reply = Untouched(4);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(0, Call(Pattern(8), reply));
    }
    EXPECT_TRUE(daemon.WaitIdle());
    EXPECT_EQ(3u, daemon.Connections());
}

TEST_P(Transport, DoesNotWaitForAReplyThatIsNotWanted) {
    ScriptedDaemon daemon(SocketName());
    daemon.Default(Answer::Nothing());
    Capture log;
    const Bytes body = Pattern(20);
    EXPECT_EQ(0, GetParam().call(kType, body.data(), 20, nullptr, 0));
    EXPECT_TRUE(daemon.WaitRequests(1));
    EXPECT_TRUE(daemon.WaitIdle()) << "the connection is not closed";
    EXPECT_EQ(body, daemon.Requests()[0].body);
    EXPECT_TRUE(log.IsSilent());
}

// ---- Arguments -----------------------------------------------------------------------------

TEST_P(Transport, RefusesABufferWithoutLengthAndALengthWithoutBuffer) {
    ScriptedDaemon daemon(SocketName());
    Capture log;
    u8 buffer[8] = {};
    struct Pair {
        void* buffer;
        s32 length;
    };
    const Pair bad[] = {
        {buffer, 0}, {nullptr, 4}, {buffer, -1}, {nullptr, -1}, {buffer, INT32_MIN}};
    const Pair good[] = {{buffer, 4}, {nullptr, 0}};
    for (const Pair& wrong : bad) {
        for (const Pair& right : good) {
            log.Clear();
            EXPECT_EQ(
                -1, GetParam().call(kType, wrong.buffer, wrong.length, right.buffer, right.length));
            EXPECT_TRUE(Wrote(log, {Err(Function(), "the parameters is invalid")}));
            log.Clear();
            EXPECT_EQ(
                -1, GetParam().call(kType, right.buffer, right.length, wrong.buffer, wrong.length));
            EXPECT_TRUE(Wrote(log, {Err(Function(), "the parameters is invalid")}));
        }
    }
    EXPECT_EQ(0u, daemon.Connections());
}

TEST_P(Transport, ChecksThePairsBeforeTheLength) {
    Capture log;
    const Bytes body = Pattern(4000);
    EXPECT_EQ(-1, GetParam().call(kType, body.data(), 4000, nullptr, 4));
    EXPECT_TRUE(Wrote(log, {Err(Function(), "the parameters is invalid")}));
}

TEST_P(Transport, ChecksTheLengthBeforeTheDaemonIsLookedFor) {
    Capture log;
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(-1, Call(Pattern(4000), reply));
    EXPECT_TRUE(
        Wrote(log, {Err(Function(), "the send buf is too long:4000,the max capacity is 3072!")}));
}

TEST(IpcCallbackSendAndRecv, RefusesNoName) {
    Capture log;
    EXPECT_EQ(-1, IpcCallbackSendAndRecv(nullptr, 1, nullptr, 0, nullptr, 0));
    EXPECT_TRUE(Wrote(log, {Err("IpcCallbackSendAndRecv", "the parameters is invalid")}));
}

TEST(IpcCallbackSendAndRecv, TakesANameOf96Characters) {
    const std::string name(96, 'n');
    ScriptedDaemon daemon(name);
    u8 reply[4] = {};
    EXPECT_EQ(0, IpcCallbackSendAndRecv(name.c_str(), 1, nullptr, 0, reply, 4));
    EXPECT_EQ(1u, daemon.Requests().size());
}

TEST(IpcCallbackSendAndRecv, RefusesANameOf97Characters) {
    Capture log;
    u8 reply[4] = {};
    EXPECT_EQ(-1, IpcCallbackSendAndRecv(std::string(97, 'n').c_str(), 1, nullptr, 0, reply, 4));
    EXPECT_TRUE(Wrote(log, {Err("MakeAddrClient", "the name is too long!"),
                            Err("IpcCallbackSendAndRecv", "make_addr_client error!")}));
}

// ---- Connecting ----------------------------------------------------------------------------

TEST_P(Transport, FailsWhereThereIsNoDaemon) {
    Capture log;
    std::vector<u8> reply = Untouched(4);
    const auto before = OpenDescriptors();
    EXPECT_EQ(-1, Call(Pattern(4), reply));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ENOENT),
                            Err(Function(), GetParam().connectText)}));
    EXPECT_EQ(Untouched(4), reply);
    EXPECT_EQ(before, OpenDescriptors());
}

TEST_P(Transport, FailsWhereOnlyTheSocketFileIsLeft) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, ("/tmp/" + SocketName()).c_str());
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    close(fd);
    Capture log;
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(-1, Call(Pattern(4), reply));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ECONNREFUSED),
                            Err(Function(), GetParam().connectText)}));
}

// ---- Replies -------------------------------------------------------------------------------

TEST_P(Transport, HandsOverTheReply) {
    ScriptedDaemon daemon(SocketName());
    const Bytes answer = Pattern(456);
    daemon.On(kType, Answer::Body(answer));
    Capture log;
    std::vector<u8> reply = Untouched(456 + 8);
    EXPECT_EQ(0, GetParam().call(kType, "abc", 3, reply.data(), 456));
    EXPECT_EQ(answer, Bytes(reply).Slice(0, 456));
    EXPECT_EQ(Bytes(Untouched(8)), Bytes(reply).Slice(456, 8));
    EXPECT_TRUE(log.IsSilent());
    EXPECT_TRUE(daemon.WaitIdle()) << "the connection is not closed";
}

TEST_P(Transport, DoesNotLookAtTypeAndFlagOfTheReply) {
    ScriptedDaemon daemon(SocketName());
    daemon.On(kType, Answer::Code(77).Type(0xffffffff).Flag(-1));
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(0, Call(Pattern(4), reply));
    EXPECT_EQ(77, Bytes(reply).S32(0));
}

TEST_P(Transport, RefusesAReplyWithAnotherSizeInItsHeader) {
    ScriptedDaemon daemon(SocketName());
    for (const u32 size : {0u, 3u, 5u, 0x7fffffffu, 0x80000004u, 0xffffffffu}) {
        daemon.On(kType, Answer::Code(77).Size(size));
        Capture log;
        std::vector<u8> reply = Untouched(4);
        EXPECT_EQ(16, Call(Pattern(4), reply)) << size;
        EXPECT_TRUE(Wrote(log, {Err(Function(), "received message's head is error!")}));
        EXPECT_EQ(Untouched(4), reply);
    }
}

TEST_P(Transport, RefusesALongerReply) {
    ScriptedDaemon daemon(SocketName());
    daemon.On(kType, Answer::Body(Pattern(8)));
    Capture log;
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(16, Call(Pattern(4), reply));
    EXPECT_TRUE(Wrote(log, {Err(Function(), "received message's head is error!")}));
    EXPECT_EQ(Untouched(4), reply);
}

TEST_P(Transport, RefusesAShorterReply) {
    ScriptedDaemon daemon(SocketName());
    daemon.On(kType, Answer::Code(0));
    Capture log;
    std::vector<u8> reply = Untouched(8);
    EXPECT_EQ(16, Call(Pattern(4), reply));
    EXPECT_TRUE(Wrote(log, {Err(Function(), "fail to receive message!")}));
    EXPECT_EQ(Untouched(8), reply);
}

TEST_P(Transport, ReplyInTwoPiecesIsAShortOne) {
    ScriptedDaemon daemon(SocketName());
    for (const size_t first : {size_t{1}, size_t{12}, size_t{14}, size_t{15}}) {
        daemon.On(kType, Answer::Code(0).InPieces({first}));
        Capture log;
        std::vector<u8> reply = Untouched(4);
        EXPECT_EQ(static_cast<s32>(first), Call(Pattern(4), reply));
        EXPECT_TRUE(Wrote(log, {Err(Function(), "fail to receive message!")}));
        EXPECT_EQ(Untouched(4), reply);
    }
}

TEST_P(Transport, DaemonThatClosesWithoutAnAnswerGivesZero) {
    ScriptedDaemon daemon(SocketName());
    daemon.On(kType, Answer::Close());
    Capture log;
    std::vector<u8> reply = Untouched(4);
    EXPECT_EQ(0, Call(Pattern(4), reply));
    EXPECT_TRUE(Wrote(log, {Err(Function(), "fail to receive message!")}));
    EXPECT_EQ(Untouched(4), reply);
}

// The daemon is gone before or after the request is written, as the threads run; the application
// lives in either case.
TEST_P(Transport, DaemonThatIsGoneDoesNotKillTheApplication) {
    ASSERT_NE(SIG_ERR, signal(SIGPIPE, SIG_DFL));
    ScriptedDaemon daemon(SocketName());
    daemon.Default(Answer::CloseUnread());
    Capture log;
    for (int i = 0; i < 200; i++) {
        std::vector<u8> reply = Untouched(4);
        const s32 result = Call(Pattern(4), reply);
        EXPECT_TRUE(result == 1101 || result == -1 || result == 0) << result;
        EXPECT_EQ(Untouched(4), reply);
    }
}

TEST_P(Transport, LeavesNothingOpen) {
    ScriptedDaemon daemon(SocketName());
    Capture log;
    const auto before = OpenDescriptors();
    for (const Answer& answer :
         {Answer::Code(0), Answer::Code(5), Answer::Code(0).Size(9), Answer::Close(),
          Answer::Code(0).InPieces({12}), Answer::Raw(Pattern(3))}) {
        daemon.Next(answer);
        std::vector<u8> reply = Untouched(4);
        Call(Pattern(4), reply);
        EXPECT_TRUE(daemon.WaitIdle());
        EXPECT_EQ(before, OpenDescriptors());
    }
}

TEST_P(Transport, ServesManyThreadsAtOnce) {
    ScriptedDaemon daemon(SocketName());
    daemon.Default(Answer::By([](const Request& request) { return Answer::Body(request.body); }));
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (u32 id = 0; id < 6; id++) {
        threads.emplace_back([&, id] {
            for (u32 round = 0; round < 30; round++) {
                const std::array<u32, 2> body = {id, round};
                std::array<u32, 2> reply = {};
                const s32 result = GetParam().call(kType, body.data(), 8, reply.data(), 8);
                wrong += result != 0 || reply != body ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(180u, daemon.Requests().size());
    EXPECT_EQ(180u, daemon.Connections());
}

// ---- Signals and cancellation --------------------------------------------------------------

TEST_P(Transport, InterruptedWaitIsAFailedSelect) {
    TakeSignals(SA_RESTART);
    ScriptedDaemon daemon(SocketName());
    daemon.Default(Answer::Nothing());
    Capture log;
    std::atomic<bool> done{false};
    s32 result = 0;
    std::thread thread([&] {
        std::vector<u8> reply = Untouched(4);
        result = Call(Pattern(4), reply);
        done = true;
    });
    ASSERT_TRUE(daemon.WaitRequests(1));
    EXPECT_TRUE(WaitFor([&] {
        if (!done) {
            pthread_kill(thread.native_handle(), SIGUSR1);
        }
        return done.load();
    }));
    daemon.Release();
    thread.join();
    EXPECT_EQ(-1, result);
    EXPECT_TRUE(Wrote(log, {Perr(Function(), "select error", EINTR)}));
    EXPECT_TRUE(daemon.WaitIdle());
}

struct Cancelled {
    s32 (*call)(u32, const void*, s32, void*, s32);
    std::atomic<bool> returned{false};
};

void* AskAndStop(void* argument) {
    auto* cancelled = static_cast<Cancelled*>(argument);
    u8 reply[4];
    cancelled->call(kType, nullptr, 0, reply, sizeof(reply));
    cancelled->returned = true;
    pthread_testcancel();
    return nullptr;
}

// The buffers and the socket belong to frames that a cancellation would not unwind.
TEST_P(Transport, CancelledThreadFinishesItsRequest) {
    ScriptedDaemon daemon(SocketName());
    Gate gate;
    daemon.Default(Answer::Code(0).Behind(gate));
    Cancelled cancelled{GetParam().call};
    pthread_t thread;
    const auto before = OpenDescriptors();
    ASSERT_EQ(0, pthread_create(&thread, nullptr, AskAndStop, &cancelled));
    ASSERT_TRUE(gate.WaitArrived());
    pthread_cancel(thread);
    gate.Open();
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_TRUE(cancelled.returned);
    EXPECT_TRUE(daemon.WaitIdle());
    EXPECT_EQ(before, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
