// What clients send that no well-behaved library would, and how many they may be.
#include <gtest/gtest.h>
#include <vimbra/iface.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kMtuGet = 274;
char g_lo[] = "lo";

// The reply to one message, whole; empty when the daemon closes without one.
Bytes Exchange(const Bytes& message) {
    Connection connection("api_daemon");
    EXPECT_TRUE(connection.Connected());
    connection.Send(message);
    Bytes reply = connection.Receive(12);
    if (reply.size() == 12) {
        const Bytes body = connection.Receive(reply.U32(4));
        reply.insert(reply.end(), body.begin(), body.end());
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    return reply;
}

Bytes Refusal(u32 type, int error) {
    return Message(type, Pack().S32(error));
}

void ExpectServing() {
    u32 mtu = 0;
    EXPECT_EQ(0, VimbraIfaceGetMtu(g_lo, &mtu));
    EXPECT_EQ(65536u, mtu);
}

TEST(VimbradProtocol, ReplyHasTheRequestsTypeAndIsExact) {
    const Daemon daemon;
    EXPECT_EQ(Message(kMtuGet, Pack().S32(0).U32(65536)),
              Exchange(Message(kMtuGet, Pack().Text("lo", 16))));
}

TEST(VimbradProtocol, FailureOfADataRequestFillsItsWholeRecord) {
    const Daemon daemon;
    EXPECT_EQ(Message(kMtuGet, Pack().S32(ENODEV).U32(0)),
              Exchange(Message(kMtuGet, Pack().Text("nowhere0", 16))));
    EXPECT_EQ(Message(277, Pack().S32(ENODEV).Zeros(452)),
              Exchange(Message(277, Pack().U16(2).Text("nowhere0", 16))));
}

TEST(VimbradProtocol, UnknownRequestIsRefusedInFourBytes) {
    Daemon daemon;
    EXPECT_EQ(Refusal(0x0199, ENOSYS), Exchange(Message(0x0199, {})));
    EXPECT_EQ(Refusal(0xffffffff, ENOSYS), Exchange(Message(0xffffffff, Pack().Zeros(100))));
    EXPECT_TRUE(daemon.WaitLog("warning: request 0x0199 with 0 bytes: nobody serves it (by "));
    ExpectServing();
}

TEST(VimbradProtocol, BodyOfAnotherSizeIsRefusedInFourBytes) {
    Daemon daemon;
    for (const u32 type :
         {257, 259, 260,    261,    262, 263, 267,  269,  271,  272,  273,    274, 275,
          276, 277, 278,    283,    284, 285, 288,  289,  291,  292,  0x0702, 279, 280,
          281, 282, 0x0703, 0x0704, 769, 770, 3073, 3074, 3329, 3330, 3842}) {
        for (const size_t size : {1, 15, 17, 19, 45, 81, 205, 471, 3072}) {
            EXPECT_EQ(Refusal(type, EINVAL), Exchange(Message(type, Pack().Zeros(size))))
                << type << " with " << size;
        }
    }
    EXPECT_TRUE(daemon.WaitLog("mtu get: a body of 3072 bytes is not one of its"));
    ExpectServing();
}

TEST(VimbradProtocol, BodyBeyondTheLimitIsRefusedUnread) {
    const Daemon daemon;
    EXPECT_EQ(Refusal(kMtuGet, EMSGSIZE), Exchange(Pack().U32(kMtuGet).U32(3073).S32(0)));
    EXPECT_EQ(Refusal(kMtuGet, EMSGSIZE),
              Exchange(Pack().U32(kMtuGet).U32(0xffffffff).S32(0).Zeros(2000)));
    ExpectServing();
}

TEST(VimbradProtocol, RequestMayComeInPieces) {
    const Daemon daemon;
    Connection connection("api_daemon");
    ASSERT_TRUE(connection.SendInPieces(Message(kMtuGet, Pack().Text("lo", 16)), {1, 11, 12, 27}));
    EXPECT_EQ(Message(kMtuGet, Pack().S32(0).U32(65536)), connection.Receive(20));
}

TEST(VimbradProtocol, WhatFollowsARequestIsNotARequest) {
    const Daemon daemon;
    Connection connection("api_daemon");
    const Bytes request = Message(kMtuGet, Pack().Text("lo", 16));
    connection.Send(Pack().Add(request).Add(request).Add(request));
    EXPECT_EQ(20u, connection.Receive(60).size());
    EXPECT_TRUE(connection.WaitPeerClosed());
}

TEST(VimbradProtocol, UnfinishedRequestIsDropped) {
    Daemon daemon;
    for (const size_t length : {1, 11, 12, 20}) {
        Connection connection("api_daemon");
        connection.Send(Message(kMtuGet, Pack().Text("lo", 16)).Slice(0, length));
        connection.EndSending();
        EXPECT_EQ(0u, connection.Receive(1).size());
    }
    EXPECT_TRUE(daemon.WaitLog("a client closed after 11 bytes of a request"));
    ExpectServing();
}

TEST(VimbradProtocol, ClientThatDoesNotWaitForItsReplyDoesNoHarm) {
    Daemon daemon;
    for (int i = 0; i < 200; ++i) {
        Connection connection("api_daemon");
        connection.Send(Message(277, Pack().U16(2).Text("lo", 16)));
        connection.Close();
    }
    ExpectServing();
    EXPECT_TRUE(daemon.Running());
}

TEST(VimbradProtocol, NameWithoutTerminatorIsNoInterface) {
    Daemon daemon;
    const std::string name(16, 'x');
    EXPECT_EQ(Message(kMtuGet, Pack().S32(ENODEV).U32(0)),
              Exchange(Message(kMtuGet, Pack().Text(name, 16))));
    // The bytes behind the name are not part of it.
    EXPECT_EQ(Refusal(273, ENODEV), Exchange(Message(273, Pack().Text(name, 16).U32(0x78787878))));
    EXPECT_TRUE(daemon.WaitLog("no interface " + name + " ("));
}

TEST(VimbradProtocol, BytesOfAClientCannotForgeALogLine) {
    Daemon daemon;
    Exchange(Message(kMtuGet, Pack().Text("a\nvimbrad: ok", 16)));
    EXPECT_TRUE(daemon.WaitLog("no interface a?vimbrad: ok ("));
}

TEST(VimbradProtocol, SilentClientsHoldUpNobody) {
    Daemon daemon;
    std::vector<std::unique_ptr<Connection>> silent;
    for (int i = 0; i < 300; ++i) {
        silent.push_back(std::make_unique<Connection>("api_daemon"));
    }
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        ExpectServing();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience);
    // A descriptor for each of the few that are left, and some of its own.
    const std::string pid = std::to_string(daemon.Process().Pid());
    EXPECT_LT(std::stoi(Shell("ls /proc/" + pid + "/fd | wc -l")), 200);
}

TEST(VimbradProtocol, SilentClientIsClosedAfterAWhile) {
    Daemon daemon;
    Connection silent("api_daemon");
    EXPECT_TRUE(silent.WaitPeerClosed());
    EXPECT_TRUE(daemon.WaitLog("a client sent no whole request in time: closed"));
}

// Clients that send far too much, one after the other, without a look at the reply.
class Flood {
 public:
    Flood() {
        for (int i = 0; i < 4; ++i) {
            flooders_.emplace_back([this] {
                while (!over_) {
                    Connection connection("api_daemon");
                    connection.Send(Bytes(200'000, 0xee));
                }
            });
        }
    }
    ~Flood() {
        over_ = true;
        for (std::thread& each : flooders_) {
            each.join();
        }
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

 private:
    std::atomic<bool> over_ = false;
    std::vector<std::thread> flooders_;
};

TEST(VimbradProtocol, FloodOfBytesHoldsUpNobody) {
    const Daemon daemon;
    const Flood flood;
    for (int i = 0; i < 100; ++i) {
        ExpectServing();
    }
}

// Who waits for a place in the daemon at that moment finds nobody.
TEST(VimbradProtocol, EndsInTheMiddleOfAFlood) {
    for (int i = 0; i < 10; ++i) {
        Daemon daemon;
        const Flood flood;
        for (int k = 0; k < 10; ++k) {
            ExpectServing();
        }
        EXPECT_EQ(0, daemon.Stop()) << daemon.Log();
    }
}

TEST(VimbradProtocol, ManyClientsAtOnceAreAllServed) {
    const Daemon daemon;
    std::atomic<int> served = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 16; ++i) {
        clients.emplace_back([&served] {
            for (int k = 0; k < 100; ++k) {
                u32 mtu = 0;
                char lo[] = "lo";
                served += VimbraIfaceGetMtu(lo, &mtu) == 0 && mtu == 65536 ? 1 : 0;
            }
        });
    }
    for (std::thread& each : clients) {
        each.join();
    }
    EXPECT_EQ(1600, served);
}

// Bodies of the right size with anything in them, and anything else.
TEST(VimbradProtocol, RandomRequestsDoNoHarm) {
    Daemon daemon({"--log-level=0"});
    MakeIface("eth0");
    std::mt19937 random(20261121);
    const u32 types[] = {257, 259, 260, 261, 262, 263, 267, 269, 271, 272, 273, 274,
                         275, 276, 277, 278, 283, 284, 285, 288, 289, 291, 292, 0x0702};
    const size_t sizes[] = {0, 2, 4, 16, 18, 20, 22, 36, 40, 44, 64, 80, 84, 204, 470};
    for (const u32 type : types) {
        for (const size_t size : sizes) {
            for (int variant = 0; variant < 6; ++variant) {
                Bytes body(size);
                for (u8& each : body) {
                    each = static_cast<u8>(variant < 3 ? random() : random() % 4 * 2);
                }
                // Half of them name an interface that is there.
                const size_t name = size == 18 || size == 22 || size == 470 ? 2 : 0;
                if (variant % 2 == 0 && size >= name + 16) {
                    const Bytes eth0 = Pack().Text("eth0", 16);
                    std::copy(eth0.begin(), eth0.end(),
                              body.begin() + static_cast<std::ptrdiff_t>(name));
                }
                const Bytes reply = Exchange(Message(type, body));
                ASSERT_GE(reply.size(), 16u) << type << " with " << size;
            }
        }
    }
    EXPECT_TRUE(daemon.Running());
    ExpectServing();
}

}  // namespace
}  // namespace vimbra::tests
