// What a daemon would never send: every service is left in the state that it is meant to be in.
#include <gtest/gtest.h>
#include <vimbra/log.h>

#include <random>
#include <thread>
#include <vector>

#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class Malformed : public testing::TestWithParam<NotifyService> {
 protected:
    Malformed() {
        EXPECT_EQ(0, VimbraInit());
        threads_ = Threads();
        descriptors_ = OpenDescriptors();
    }
    ~Malformed() override {
        EXPECT_TRUE(WaitFor([this] { return Threads() == threads_; }));
        EXPECT_EQ(descriptors_, OpenDescriptors());
    }

    // After a message that was no good: the service goes on, or its place is free again.
    void ExpectState() {
        const NotifyService& service = GetParam();
        if (!service.survivesBadMessage) {
            EXPECT_TRUE(WaitForNoListener(service.socket));
            EXPECT_NE(0, service.stop());
            ASSERT_EQ(0, service.start());
        }
        ExpectServing();
    }
    void ExpectServing() {
        const int before = g_calls;
        ASSERT_TRUE(Post(GetParam().socket, GoodMessage(GetParam())));
        EXPECT_TRUE(WaitFor([=] { return g_calls == before + 1; }));
    }

    Capture log_;
    ScriptedDaemon daemon_;
    size_t threads_;
    std::map<int, std::string> descriptors_;
};

INSTANTIATE_TEST_SUITE_P(Services, Malformed, testing::ValuesIn(kServices),
                         [](const auto& which) { return std::string(which.param.name); });

TEST_P(Malformed, EveryLength) {
    const NotifyService& service = GetParam();
    ASSERT_EQ(0, service.start());
    Bytes bytes = GoodMessage(service);
    const size_t whole = bytes.size();
    bytes.resize(2000, 0x5a);
    for (size_t length = 0; length <= 2000; length += length < 100 ? 1 : 61) {
        const int before = g_calls;
        Connection connection(service.socket);
        ASSERT_TRUE(connection.Send(bytes.Slice(0, length)));
        connection.EndSending();
        if (length >= whole) {
            // What stands behind a message is not looked at.
            EXPECT_TRUE(WaitFor([=] { return g_calls == before + 1; })) << length;
        } else {
            EXPECT_TRUE(connection.WaitPeerClosed()) << length;
            EXPECT_EQ(before, g_calls) << length;
            ExpectState();
        }
    }
    EXPECT_EQ(0, service.stop());
}

TEST_P(Malformed, WrongSizeField) {
    const NotifyService& service = GetParam();
    ASSERT_EQ(0, service.start());
    const u32 right = static_cast<u32>(service.bodySize);
    for (const u32 size :
         {0U, 1U, right - 1, right + 1, right + 12, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        const int before = g_calls;
        EXPECT_TRUE(
            Notify(service.socket, service.type, Bytes(service.bodySize, 1), {.size = size}));
        EXPECT_EQ(before, g_calls);
        ExpectState();
    }
    EXPECT_EQ(0, service.stop());
}

TEST_P(Malformed, OneByteAtATime) {
    const NotifyService& service = GetParam();
    ASSERT_EQ(0, service.start());
    Connection connection(service.socket);
    const Bytes bytes = GoodMessage(service);
    connection.SendInPieces(bytes, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_EQ(0, g_calls);
    ExpectState();
    EXPECT_EQ(0, service.stop());
}

TEST_P(Malformed, PeerThatResets) {
    const NotifyService& service = GetParam();
    ASSERT_EQ(0, service.start());
    for (int i = 0; i < 20; i++) {
        const int fd = Connect(service.socket);
        if (fd >= 0) {
            const linger hard = {1, 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
            close(fd);
        }
        ExpectState();
    }
    EXPECT_EQ(0, service.stop());
}

TEST_P(Malformed, RandomBytes) {
    const NotifyService& service = GetParam();
    VimbraDebugLevelSet(0);
    ASSERT_EQ(0, service.start());
    std::mt19937 random(4711);
    for (int i = 0; i < 300; i++) {
        Bytes bytes(random() % 700);
        for (u8& byte : bytes) {
            byte = static_cast<u8>(random());
        }
        if (random() % 2 == 0 && bytes.size() >= 12) {
            // A header that is nearly right leads further.
            const u32 head[2] = {static_cast<u32>(random() % 4),
                                 static_cast<u32>(service.bodySize)};
            memcpy(bytes.data(), head, sizeof(head));
        }
        if (!Post(service.socket, bytes)) {
            // It has ended, as it should; the next start finds its place free.
            WaitFor([&] { return service.start() == 0; });
        }
    }
    service.stop();
    EXPECT_TRUE(WaitForNoListener(service.socket));
    ASSERT_EQ(0, service.start());
    ExpectServing();
    EXPECT_EQ(0, service.stop());
}

TEST_P(Malformed, AThousandConnectionsAtOnce) {
    const NotifyService& service = GetParam();
    ASSERT_EQ(0, service.start());
    const Bytes bytes = GoodMessage(service);
    std::vector<std::thread> senders;
    for (int i = 0; i < 20; i++) {
        senders.emplace_back([&] {
            for (int k = 0; k < 50; k++) {
                EXPECT_TRUE(Post(service.socket, bytes));
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    EXPECT_TRUE(WaitFor([] { return g_calls == 1000; }));
    EXPECT_EQ(0, service.stop());
}

TEST_P(Malformed, ManySilentConnectionsHoldNothingBack) {
    const NotifyService& service = GetParam();
    ASSERT_EQ(0, service.start());
    std::vector<int> silent;
    for (int i = 0; i < 90; i++) {
        silent.push_back(Connect(service.socket));
        ASSERT_GE(silent.back(), 0);
    }
    // The listener waits for the first of them; stopping does not.
    EXPECT_EQ(0, service.stop());
    EXPECT_TRUE(WaitForNoListener(service.socket));
    for (const int fd : silent) {
        close(fd);
    }
}

}  // namespace
}  // namespace vimbra::tests
