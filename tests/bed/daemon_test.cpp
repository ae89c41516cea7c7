// The bed's own tests: the scripted daemon and the listeners' peer.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr uint32_t kType = 0x0105;

// One exchange of a well-behaved client.
Bytes Ask(uint32_t type, const Bytes& body, size_t replySize) {
    Connection client("api_daemon");
    EXPECT_TRUE(client.Connected());
    EXPECT_TRUE(client.Send(Message(type, body)));
    return client.Receive(replySize);
}

Bytes Result(uint32_t type, int32_t code) {
    return Message(type, Pack().S32(code));
}

// A listening socket as the library makes them.
class Listener {
 public:
    explicit Listener(const std::string& name) : descriptor_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, ("/tmp/" + name).c_str());
        unlink(address.sun_path);
        EXPECT_EQ(0, bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    ~Listener() { Close(); }

    void Listen() const { EXPECT_EQ(0, listen(descriptor_, 100)); }
    [[nodiscard]] int Accept() const { return accept(descriptor_, nullptr, nullptr); }
    void Close() {
        if (descriptor_ >= 0) {
            close(descriptor_);
            descriptor_ = -1;
        }
    }

 private:
    int descriptor_;
};

TEST(ScriptedDaemon, AnswersWithSuccessUntilToldOtherwise) {
    ScriptedDaemon daemon;
    EXPECT_EQ(Result(0x0702, 0), Ask(0x0702, Pack().U32(3), 16));
    ASSERT_TRUE(daemon.WaitIdle());
    ASSERT_EQ(1u, daemon.Requests().size());
    const Request request = daemon.Requests()[0];
    EXPECT_EQ(0x0702u, request.type);
    EXPECT_EQ(4u, request.size);
    EXPECT_EQ(0, request.flag);
    EXPECT_EQ(Pack().U32(3), request.body);
    EXPECT_EQ(Message(0x0702, Pack().U32(3)), request.raw);
    EXPECT_EQ(1u, request.reads);
    EXPECT_TRUE(request.complete);
}

TEST(ScriptedDaemon, RecordsARequestWithoutABodyAndItsFlag) {
    ScriptedDaemon daemon;
    Connection client("api_daemon");
    ASSERT_TRUE(client.Send(Message(7, {}, -5)));
    ASSERT_TRUE(daemon.WaitRequests(1));
    EXPECT_EQ(0u, daemon.Requests()[0].size);
    EXPECT_EQ(-5, daemon.Requests()[0].flag);
    EXPECT_EQ(12u, daemon.Requests()[0].raw.size());
    EXPECT_TRUE(daemon.Requests()[0].body.empty());
}

TEST(ScriptedDaemon, SeesARequestThatComesInPieces) {
    ScriptedDaemon daemon;
    Connection client("api_daemon");
    ASSERT_TRUE(client.SendInPieces(Message(7, Bytes(100)), {5, 12, 40}));
    ASSERT_TRUE(daemon.WaitRequests(1));
    EXPECT_EQ(4u, daemon.Requests()[0].reads);
    EXPECT_TRUE(daemon.Requests()[0].complete);
}

TEST(Connection, TellsWhetherAPeerThatHasClosedReadAll) {
    auto daemon = std::make_unique<ScriptedDaemon>();
    daemon->Next(Answer::Close()).Next(Answer::LeaveUnread());
    Connection read("api_daemon");
    ASSERT_TRUE(read.Send(Message(7, {})));
    ASSERT_TRUE(read.WaitPeerClosed());
    EXPECT_TRUE(read.WaitRead());
    Connection unread("api_daemon");
    ASSERT_TRUE(unread.Send(Message(7, {})));
    ASSERT_TRUE(WaitFor([&] { return daemon->Connections() == 2; }));
    daemon.reset();
    ASSERT_TRUE(unread.WaitPeerClosed());
    EXPECT_FALSE(unread.WaitRead());
}

TEST(ScriptedDaemon, KeepsWhatAnInterruptedClientSent) {
    ScriptedDaemon daemon;
    Connection client("api_daemon");
    ASSERT_TRUE(client.Send(Message(7, Bytes(100)).Slice(0, 40)));
    client.Close();
    ASSERT_TRUE(daemon.WaitRequests(1));
    EXPECT_FALSE(daemon.Requests()[0].complete);
    EXPECT_EQ(100u, daemon.Requests()[0].size);
    EXPECT_EQ(28u, daemon.Requests()[0].body.size());
    EXPECT_TRUE(daemon.WaitIdle());
}

TEST(ScriptedDaemon, ASilentConnectionIsNoRequest) {
    ScriptedDaemon daemon;
    Connection("api_daemon").Close();
    ASSERT_TRUE(WaitFor([&] { return daemon.Connections() == 1; }));
    ASSERT_TRUE(daemon.WaitIdle());
    EXPECT_TRUE(daemon.Requests().empty());
}

TEST(ScriptedDaemon, ChoosesTheAnswerInTheStatedOrder) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(1)).On(kType, Answer::Code(2));
    daemon.Next(Answer::Code(3)).Next(Answer::Code(4)).Next(kType, Answer::Code(5));
    EXPECT_EQ(Result(kType, 5), Ask(kType, {}, 16));
    EXPECT_EQ(Result(9, 3), Ask(9, {}, 16));
    EXPECT_EQ(Result(kType, 4), Ask(kType, {}, 16));
    EXPECT_EQ(Result(kType, 2), Ask(kType, {}, 16));
    EXPECT_EQ(Result(9, 1), Ask(9, {}, 16));
    EXPECT_EQ(5u, daemon.Requests().size());
    EXPECT_EQ(3u, daemon.Requests(kType).size());
    daemon.Forget();
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_EQ(5u, daemon.Connections());
}

TEST(ScriptedDaemon, AnswersWithRecordsAndForgedHeaders) {
    struct Record {
        int32_t code;
        uint16_t number;
        uint16_t other;
    };
    ScriptedDaemon daemon;
    daemon.Next(Answer::Record(Record{-1, 2, 3}));
    daemon.Next(Answer::Code(0).Size(8).Type(1).Flag(-2));
    daemon.Next(Answer::Raw({1, 2, 3}));
    daemon.Next(Answer::By([](const Request& request) { return Answer::Body(request.body); }));
    EXPECT_EQ(Message(kType, Pack().S32(-1).U16(2).U16(3)), Ask(kType, {}, 20));
    EXPECT_EQ(Pack().U32(1).U32(8).S32(-2).S32(0), Ask(kType, {}, 16));
    EXPECT_EQ(Bytes({1, 2, 3}), Ask(kType, {}, 3));
    EXPECT_EQ(Message(kType, {7, 8}), Ask(kType, {7, 8}, 14));
}

TEST(ScriptedDaemon, SendsAReplyInPieces) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(5).InPieces({12}));
    Connection client("api_daemon");
    ASSERT_TRUE(client.Send(Message(kType, {})));
    EXPECT_EQ(Pack().U32(kType).U32(4).S32(0), client.Receive(12));
    EXPECT_EQ(Pack().S32(5), client.Receive(4));
}

TEST(ScriptedDaemon, AReaderInAHurryGetsOnlyTheFirstPiece) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Code(5).InPieces({12}));
    const sockaddr_un address{AF_UNIX, "/tmp/api_daemon"};
    const int client = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    const Bytes request = Message(kType, {});
    ASSERT_EQ(12, write(client, request.data(), request.size()));
    uint8_t reply[16];
    EXPECT_EQ(12, read(client, reply, sizeof reply));
    close(client);
    EXPECT_TRUE(daemon.WaitIdle());
}

TEST(ScriptedDaemon, ClosesWithoutAnAnswer) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Close());
    Connection client("api_daemon");
    ASSERT_TRUE(client.Send(Message(kType, {})));
    EXPECT_TRUE(client.Receive(1).empty());
    EXPECT_TRUE(client.WaitPeerClosed());
    EXPECT_EQ(1u, daemon.Requests().size());
}

TEST(ScriptedDaemon, ClosesBeforeReading) {
    ScriptedDaemon daemon;
    daemon.Next(Answer::CloseUnread());
    Connection client("api_daemon");
    EXPECT_TRUE(client.WaitPeerClosed());
    EXPECT_FALSE(client.Send(Message(kType, {})));
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_EQ(Result(kType, 0), Ask(kType, {}, 16));
}

TEST(ScriptedDaemon, SaysNothingUntilReleased) {
    ScriptedDaemon daemon;
    daemon.Next(Answer::Nothing()).Next(Answer::LeaveUnread());
    Connection first("api_daemon");
    ASSERT_TRUE(first.Send(Message(kType, {})));
    ASSERT_TRUE(daemon.WaitRequests(1));
    Connection second("api_daemon");
    ASSERT_TRUE(second.Send(Message(kType, {})));
    EXPECT_FALSE(first.WaitPeerClosed(std::chrono::milliseconds(50)));
    EXPECT_TRUE(WaitFor([&] { return daemon.OpenConnections() == 2; }));
    EXPECT_EQ(1u, daemon.Requests().size());
    daemon.Release();
    EXPECT_TRUE(daemon.WaitIdle());
    EXPECT_TRUE(first.WaitPeerClosed());
    EXPECT_TRUE(second.WaitPeerClosed());
}

TEST(ScriptedDaemon, NoticesThatAHeldClientLeft) {
    ScriptedDaemon daemon;
    daemon.Default(Answer::Nothing());
    Connection client("api_daemon");
    ASSERT_TRUE(client.Send(Message(kType, {})));
    ASSERT_TRUE(daemon.WaitRequests(1));
    client.Close();
    EXPECT_TRUE(daemon.WaitIdle());
}

TEST(ScriptedDaemon, HoldsOneClientAtAGateWhileItServesAnother) {
    const Gate gate;
    ScriptedDaemon daemon;
    daemon.On(1, Answer::Code(1).Behind(gate));
    Connection waiting("api_daemon");
    ASSERT_TRUE(waiting.Send(Message(1, {})));
    ASSERT_TRUE(gate.WaitArrived());
    EXPECT_EQ(Result(2, 0), Ask(2, {}, 16));
    EXPECT_TRUE(waiting.Receive(1, std::chrono::milliseconds(20)).empty());
    gate.Open();
    EXPECT_EQ(Result(1, 1), waiting.Receive(16));
    EXPECT_EQ(1u, gate.Arrived());
}

TEST(ScriptedDaemon, RunsAHookBetweenRequestAndAnswer) {
    ScriptedDaemon daemon;
    std::atomic<size_t> seen{0};
    daemon.Default(Answer::Code(0).After(
        [&](const Request& request) { seen = request.body.size() + daemon.Requests().size(); }));
    Ask(kType, Bytes(10), 16);
    EXPECT_EQ(11u, seen);
}

TEST(ScriptedDaemon, ServesManyAtOnce) {
    ScriptedDaemon daemon;
    std::vector<std::thread> clients;
    for (uint32_t i = 0; i < 8; ++i) {
        clients.emplace_back([i] {
            for (int32_t round = 0; round < 10; ++round) {
                EXPECT_EQ(Result(i, 0), Ask(i, Bytes(3072), 16));
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(80u, daemon.Requests().size());
    EXPECT_TRUE(daemon.WaitIdle());
}

TEST(ScriptedDaemon, EndsWithClientsHeldAndGatesClosed) {
    const Gate gate;
    Connection* silent = nullptr;
    {
        ScriptedDaemon daemon;
        daemon.On(1, Answer::Nothing()).On(2, Answer::Code(0).Behind(gate));
        Connection held("api_daemon");
        ASSERT_TRUE(held.Send(Message(1, {})));
        Connection gated("api_daemon");
        ASSERT_TRUE(gated.Send(Message(2, {})));
        ASSERT_TRUE(gate.WaitArrived());
        silent = new Connection("api_daemon");
    }
    EXPECT_TRUE(silent->WaitPeerClosed());
    delete silent;
    EXPECT_NE(0, access("/tmp/api_daemon", F_OK));
    EXPECT_EQ(ENOENT, Connection("api_daemon").Error());
}

TEST(ScriptedDaemon, ReplacesAStaleSocketButNoLivingOne) {
    { Listener("other").Listen(); }
    ScriptedDaemon daemon("other");
    EXPECT_THROW(ScriptedDaemon("other"), std::runtime_error);
    EXPECT_TRUE(Connection("other").Connected());
}

TEST(ScriptedDaemon, LeavesNeitherThreadsNorDescriptorsBehind) {
    const auto descriptors = OpenDescriptors();
    const auto threads = ThreadNames();
    {
        ScriptedDaemon daemon;
        Ask(kType, {}, 16);
        Connection client("api_daemon");
        EXPECT_EQ(descriptors, OpenDescriptors());
        EXPECT_EQ(threads, ThreadNames());
    }
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(threads, ThreadNames());
}

TEST(Peer, TellsAListenerFromABoundNameAndFromAStaleOne) {
    EXPECT_FALSE(HasListener("ipc_test"));
    Listener listener("ipc_test");
    EXPECT_FALSE(HasListener("ipc_test"));
    EXPECT_EQ(ECONNREFUSED, Connection("ipc_test").Error());
    listener.Listen();
    EXPECT_TRUE(WaitForListener("ipc_test"));
    EXPECT_FALSE(HasListener("ipc_tes"));
    EXPECT_FALSE(WaitForNoListener("ipc_test", std::chrono::milliseconds(10)));
    listener.Close();
    EXPECT_TRUE(WaitForNoListener("ipc_test"));
    EXPECT_FALSE(WaitForListener("ipc_test", std::chrono::milliseconds(10)));
}

TEST(Peer, NotifiesAndWaitsUntilItIsDealtWith) {
    Listener listener("ipc_test");
    listener.Listen();
    std::atomic<bool> handled{false};
    Bytes received(20);
    std::thread thread([&] {
        const int client = listener.Accept();
        EXPECT_EQ(16, read(client, received.data(), received.size()));
        handled = true;
        close(client);
    });
    NotifyOptions options;
    options.size = 8;
    options.flag = 3;
    EXPECT_TRUE(Notify("ipc_test", 2, Pack().U32(9), options));
    EXPECT_TRUE(handled);
    thread.join();
    EXPECT_EQ(Pack().U32(2).U32(8).S32(3).U32(9).Zeros(4), received);
    EXPECT_FALSE(Notify("ipc_nobody", 2, {}));
}

TEST(Peer, FillsABacklogThatEmptiesOneByOne) {
    DeafServer server("ipc_test");
    EXPECT_TRUE(HasListener("ipc_test"));
    const FullBacklog full("ipc_test");
    EXPECT_EQ(1u, full.Count());
    EXPECT_EQ(Bytes(), server.AcceptOne());
    Connection client("ipc_test");
    client.Send({'h', 'i'});
    EXPECT_EQ(Bytes({'h', 'i'}), server.AcceptOne({'y', 'o'}));
    EXPECT_EQ(Bytes({'y', 'o'}), client.Receive(2));
    EXPECT_TRUE(client.WaitPeerClosed());
    server.Close();
    EXPECT_FALSE(HasListener("ipc_test"));
    EXPECT_THROW(FullBacklog("ipc_test"), std::system_error);
}

TEST(Peer, EndsItsSending) {
    Listener listener("ipc_test");
    listener.Listen();
    Connection client("ipc_test");
    const int server = listener.Accept();
    client.EndSending();
    char byte = 0;
    EXPECT_EQ(0, read(server, &byte, 1));
    EXPECT_EQ(1, write(server, "x", 1));
    EXPECT_EQ(Bytes({'x'}), client.Receive(1));
    close(server);
    EXPECT_TRUE(client.WaitPeerClosed());
}

}  // namespace
}  // namespace vimbra::tests
