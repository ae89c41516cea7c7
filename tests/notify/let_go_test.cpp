// A message that has been read when its listener is stopped: no callback is begun for it. Linked
// with -Wl,--wrap=recv, so that the listener can be held between the two.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>

#include "services.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// Holds whoever has received so many bytes at once; 0: nobody.
std::atomic<size_t> g_holdSize = 0;
Gate& g_gate = *new Gate;

}  // namespace

extern "C" ssize_t __real_recv(int fd, void* to, size_t size, int flags);
extern "C" ssize_t __wrap_recv(int fd, void* to, size_t size, int flags) {
    const ssize_t count = __real_recv(fd, to, size, flags);
    if (count > 0 && static_cast<size_t>(count) == g_holdSize) {
        g_gate.Pass();
    }
    return count;
}

namespace {

class LetGo : public testing::TestWithParam<NotifyService> {};

// Statistics and the two conflict watches; the others wait for their listener.
INSTANTIATE_TEST_SUITE_P(Services, LetGo, testing::Values(kServices[0], kServices[1], kServices[2]),
                         [](const auto& which) { return std::string(which.param.name); });

TEST_P(LetGo, NoCallbackIsBegunForAMessageThatWasReadBeforeTheStop) {
    const NotifyService& service = GetParam();
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraInit());
    const size_t threads = Threads();
    ASSERT_EQ(0, service.start());
    const Bytes message = GoodMessage(service);
    g_holdSize = message.size();
    Connection connection(service.socket);
    ASSERT_TRUE(connection.Send(message));
    ASSERT_TRUE(g_gate.WaitArrived());
    g_holdSize = 0;
    EXPECT_EQ(0, service.stop());
    g_gate.Open();
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(0, g_calls);
    // It can be used again.
    ASSERT_EQ(0, service.start());
    ASSERT_TRUE(Post(service.socket, message));
    EXPECT_TRUE(WaitFor([] { return g_calls == 1; }));
    EXPECT_EQ(0, service.stop());
}

}  // namespace
}  // namespace vimbra::tests
