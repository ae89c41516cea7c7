// The road of a request to the daemon, and the addresses of sockets.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kType = 0x0107;
constexpr char kCallbackName[] = "ipc_ping";

Bytes Pattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; i++) {
        bytes[i] = static_cast<u8>(i * 7 + 1);
    }
    return bytes;
}

std::vector<u8> Untouched(size_t size) {
    return std::vector<u8>(size, 0xA5);
}

// The two exchanges differ in their socket and in some words.
struct Exchange {
    const char* function;
    const char* socketName;
    s32 (*call)(u32, const void*, s32, void*, s32);
    const char* connectText;
};

s32 ToCallback(u32 type, const void* body, s32 size, void* reply, s32 replySize) {
    return IpcCallbackSendAndRecv(kCallbackName, type, body, size, reply, replySize);
}

constexpr Exchange kExchanges[] = {
    {"IpcApiSendAndRecv", "api_daemon", IpcApiSendAndRecv, "MakeAddrClient error!"},
    {"IpcCallbackSendAndRecv", kCallbackName, ToCallback, "make_addr_client error!"},
};

void PrintTo(const Exchange& exchange, std::ostream* out) {
    *out << exchange.function;
}

class Transport : public testing::TestWithParam<Exchange> {
 protected:
    s32 Call(const Bytes& body, std::vector<u8>& reply) const {
        return GetParam().call(kType, body.data(), static_cast<s32>(body.size()), reply.data(),
                               static_cast<s32>(reply.size()));
    }
    std::string Function() const { return GetParam().function; }
    std::string SocketName() const { return GetParam().socketName; }
};

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

// ---- A backlog that is full ------------------------------------------------------------------

// A request in a thread of its own. Nothing can tell from outside that it has come to its wait but
// that it sleeps.
class Asking {
 public:
    explicit Asking(std::function<s32()> ask)
        : thread_([this, ask = std::move(ask)] {
              id_ = gettid();
              result_ = ask();
              done_ = true;
          }) {}
    ~Asking() { thread_.join(); }

    bool WaitAsleep() const {
        return WaitFor([this] {
            const std::string stat = ReadFile("/proc/self/task/" + std::to_string(id_) + "/stat");
            return id_ != 0 && stat.find(") S ") != std::string::npos;
        });
    }
    bool IsDone() const { return done_; }
    bool WaitDone() const {
        return WaitFor([this] { return done_.load(); });
    }
    s32 Result() const { return result_; }
    void Interrupt() { pthread_kill(thread_.native_handle(), SIGUSR1); }

 private:
    std::atomic<pid_t> id_{0};
    std::atomic<bool> done_{false};
    std::atomic<s32> result_{12345};
    std::thread thread_;
};

void OnSignal(int) {}

void TakeSignals(int flags) {
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = flags;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
}

// Takes connections until one has brought a request.
Bytes AnswerNext(DeafServer& server) {
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
    EXPECT_EQ(Message(kType, Pattern(4)), AnswerNext(server));
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
        EXPECT_FALSE(AnswerNext(server).empty());
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

// ---- IpcApiSendMsg, IpcApiRecvmsg ----------------------------------------------------------

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

// ---- MakeAddrClient ------------------------------------------------------------------------

class Address : public testing::Test {
 protected:
    void SetUp() override { fd_ = socket(AF_UNIX, SOCK_STREAM, 0); }
    void TearDown() override { close(fd_); }
    bool IsOpen() const { return fcntl(fd_, F_GETFD) >= 0; }

    int fd_ = -1;
    sockaddr_un address_ = {};
    socklen_t length_ = 0;
};

TEST_F(Address, ClientConnectsAndTellsTheAddress) {
    ScriptedDaemon daemon("ipc_stat");
    memset(&address_, 0xA5, sizeof(address_));
    Capture log;
    EXPECT_EQ(0, MakeAddrClient(fd_, "ipc_stat", &address_, &length_));
    EXPECT_EQ(AF_UNIX, address_.sun_family);
    EXPECT_STREQ("/tmp/ipc_stat", address_.sun_path);
    EXPECT_EQ(15u, length_);
    EXPECT_TRUE(WaitFor([&] { return daemon.Connections() == 1; }));
    EXPECT_TRUE(log.IsSilent());
}

TEST_F(Address, ClientFailsWhereNobodyListens) {
    Capture log;
    EXPECT_EQ(-1, MakeAddrClient(fd_, "nobody", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ENOENT)}));
    EXPECT_TRUE(IsOpen());
}

TEST_F(Address, ClientTakes96CharactersAndRefuses97) {
    const std::string longest(96, 'n');
    ScriptedDaemon daemon(longest);
    EXPECT_EQ(0, MakeAddrClient(fd_, longest.c_str(), &address_, &length_));
    EXPECT_EQ("/tmp/" + longest, address_.sun_path);
    EXPECT_EQ(103u, length_);

    Capture log;
    for (const size_t size : {size_t{97}, size_t{102}, size_t{5000}}) {
        log.Clear();
        EXPECT_EQ(-1, MakeAddrClient(fd_, std::string(size, 'n').c_str(), &address_, &length_));
        EXPECT_TRUE(Wrote(log, {Err("MakeAddrClient", "the name is too long!")}));
    }
}

TEST_F(Address, ClientRefusesNullArguments) {
    EXPECT_EQ(-1, MakeAddrClient(fd_, nullptr, &address_, &length_));
    EXPECT_EQ(-1, MakeAddrClient(fd_, "name", nullptr, &length_));
    EXPECT_EQ(-1, MakeAddrClient(fd_, "name", &address_, nullptr));
}

TEST_F(Address, ClientFailsOnWhatIsNoSocket) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    Capture log;
    EXPECT_EQ(-1, MakeAddrClient(ends[0], "ipc_stat", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ENOTSOCK)}));
    close(ends[0]);
    close(ends[1]);
    log.Clear();
    for (const int fd : {ends[0], -1}) {
        EXPECT_EQ(-1, MakeAddrClient(fd, "ipc_stat", &address_, &length_));
    }
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", EBADF),
                            Perr("MakeAddrClient", "connect error", EBADF)}));
}

class AddressOfFullPeer : public Address {
 protected:
    s32 Connect() { return MakeAddrClient(fd_, "ipc_stat", &address_, &length_); }
    timeval SendTimeout() const {
        timeval timeout = {};
        socklen_t size = sizeof(timeout);
        EXPECT_EQ(0, getsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &timeout, &size));
        return timeout;
    }
    void SetSendTimeout(const timeval& timeout) const {
        ASSERT_EQ(0, setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)));
    }

    DeafServer server_{"ipc_stat"};
    FullBacklog full_{"ipc_stat"};
    Capture log_;
};

TEST_F(AddressOfFullPeer, ClientThatDoesNotBlockTriesOnce) {
    ASSERT_EQ(0, fcntl(fd_, F_SETFL, O_NONBLOCK));
    EXPECT_EQ(-1, Connect());
    EXPECT_TRUE(Wrote(log_, {Perr("MakeAddrClient", "connect error", EAGAIN)}));
    EXPECT_NE(0, fcntl(fd_, F_GETFL) & O_NONBLOCK);
    server_.AcceptOne();
    EXPECT_EQ(0, Connect());
}

TEST_F(AddressOfFullPeer, ClientThatBlocksWaitsAndStaysAsItWas) {
    const int flags = fcntl(fd_, F_GETFL);
    Asking connecting([this] { return Connect(); });
    EXPECT_TRUE(connecting.WaitAsleep());
    EXPECT_FALSE(connecting.IsDone());
    server_.AcceptOne();
    EXPECT_TRUE(connecting.WaitDone());
    EXPECT_EQ(0, connecting.Result());
    EXPECT_EQ(flags, fcntl(fd_, F_GETFL));
    const timeval timeout = SendTimeout();
    EXPECT_FALSE(timerisset(&timeout));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(AddressOfFullPeer, ClientsOwnTimeoutHoldsAndStays) {
    SetSendTimeout({0, 200000});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, Connect());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(190));
    EXPECT_TRUE(Wrote(log_, {Perr("MakeAddrClient", "connect error", EAGAIN)}));
    EXPECT_EQ(200000, SendTimeout().tv_usec);

    SetSendTimeout({100, 0});
    server_.AcceptOne();
    EXPECT_EQ(0, Connect());
    EXPECT_EQ(100, SendTimeout().tv_sec);
}

// ---- MakeAddrServer ------------------------------------------------------------------------

TEST_F(Address, ServerListensAndTellsTheAddress) {
    memset(&address_, 0xA5, sizeof(address_));
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_EQ(AF_UNIX, address_.sun_family);
    EXPECT_STREQ("/tmp/ipc_stat", address_.sun_path);
    EXPECT_EQ(15u, length_);
    EXPECT_TRUE(HasListener("ipc_stat"));
    EXPECT_TRUE(log.IsSilent());
}

// The two address lengths name the same file.
TEST_F(Address, ClientReachesServer) {
    ASSERT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    u8 byte = 0;
    EXPECT_EQ(0, IpcCallbackSendAndRecv("ipc_stat", 1, "x", 1, nullptr, 0));
    const int peer = accept(fd_, nullptr, nullptr);
    ASSERT_GE(peer, 0);
    EXPECT_EQ(1, recv(peer, &byte, 1, 0));
    EXPECT_EQ(1, byte);
    close(peer);
}

TEST_F(Address, ServerKeepsAHundredWaiting) {
    ASSERT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    std::vector<int> clients;
    for (;;) {
        const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        clients.push_back(client);
        if (connect(client, reinterpret_cast<sockaddr*>(&address_), sizeof(address_)) != 0) {
            EXPECT_EQ(EAGAIN, errno);
            break;
        }
    }
    EXPECT_EQ(102u, clients.size());  // the kernel lets one more wait than it is told
    for (const int client : clients) {
        close(client);
    }
}

TEST_F(Address, ServerReplacesAStaleSocketFile) {
    ASSERT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    close(fd_);
    ASSERT_FALSE(HasListener("ipc_stat"));
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(HasListener("ipc_stat"));
    EXPECT_TRUE(log.IsSilent());
}

TEST_F(Address, ServerReplacesAnyFileAndABrokenLink) {
    WriteFile("/tmp/ipc_stat", "text");
    chmod("/tmp/ipc_stat", 0);
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(HasListener("ipc_stat"));

    close(fd_);
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, symlink("/tmp/nowhere", "/tmp/ipc_other"));
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_other", &address_, &length_));
    EXPECT_TRUE(HasListener("ipc_other"));
}

TEST_F(Address, ServerThatCannotBindClosesTheSocketAndSucceeds) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_stat", 0700));
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrServer", "bind error", EADDRINUSE)}));
    EXPECT_FALSE(IsOpen());
    EXPECT_LT(accept(fd_, nullptr, nullptr), 0);
    fd_ = -1;
}

TEST_F(Address, ServerThatCannotListenClosesTheSocketAndRemovesTheFile) {
    close(fd_);
    fd_ = socket(AF_UNIX, SOCK_DGRAM, 0);
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrServer", "listen error!", EOPNOTSUPP)}));
    EXPECT_FALSE(IsOpen());
    EXPECT_NE(0, access("/tmp/ipc_stat", F_OK));
    fd_ = -1;
}

TEST_F(Address, ServerTakes96CharactersAndRefuses97) {
    const std::string longest(96, 'n');
    EXPECT_EQ(0, MakeAddrServer(fd_, longest.c_str(), &address_, &length_));
    EXPECT_EQ("/tmp/" + longest, address_.sun_path);
    EXPECT_EQ(103u, length_);
    EXPECT_TRUE(HasListener(longest));

    const int other = socket(AF_UNIX, SOCK_STREAM, 0);
    Capture log;
    for (const size_t size : {size_t{97}, size_t{102}, size_t{5000}}) {
        log.Clear();
        EXPECT_EQ(-1, MakeAddrServer(other, std::string(size, 'n').c_str(), &address_, &length_));
        EXPECT_TRUE(Wrote(log, {Err("MakeAddrServer", "the name is too long!")}));
    }
    EXPECT_GE(fcntl(other, F_GETFD), 0) << "the socket was closed";
    close(other);
}

TEST_F(Address, ServerRefusesNullArguments) {
    EXPECT_EQ(-1, MakeAddrServer(fd_, nullptr, &address_, &length_));
    EXPECT_EQ(-1, MakeAddrServer(fd_, "name", nullptr, &length_));
    EXPECT_EQ(-1, MakeAddrServer(fd_, "name", &address_, nullptr));
    EXPECT_TRUE(IsOpen());
}

}  // namespace
}  // namespace vimbra::tests
