// Every service that reports back at the real limits of a process: no descriptor, no room for a
// thread, a full backlog, a peer that says nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <cstring>
#include <map>
#include <set>
#include <thread>

#include "../ground/prepared.hpp"
#include "answerer.hpp"
#include "exhausted.hpp"
#include "reporting.hpp"

namespace vimbra::tests {
namespace {

using bed::Bytes;
using bed::Gate;
using bed::WaitFor;
using testing::Contains;

// What the headers say of a service.
struct Promise {
    std::set<s32> startWithoutDescriptor;
    s32 stopWithoutDescriptor;
    s32 startWithoutThread;
    s32 stopWithoutThread;
    bool outlivesFailedAccept;
    s32 stopAfterFailedAccept;
    bool outlivesSilence;
    s32 stopAfterSilence;
    bool stopWaits;  // for a callback
};

const std::map<std::string, Promise> kPromises = {
    {"Statistics", {{-1}, -1, 0, -1, false, -1, true, 0, false}},
    {"Conflict", {{0, -1}, -1, -1, -1, false, -1, true, 0, false}},
    {"RouterAdvertisement", {{-1}, -1, -1, -1, false, 0, false, -1, true}},
    {"DhcpClient", {{1109}, -1, -1, -1, false, 0, false, 0, true}},
    {"DhcpClientIpv6", {{1109}, -1, -1, -1, false, 0, true, 0, true}},
    {"Pppoe", {{1109}, -1, -1, 0, true, 0, true, 0, true}},
    {"Ntp", {{-1}, -1, -1, 0, true, 0, false, 0, true}},
    {"Ping", {{-1}, 1303, 1301, 1305, false, 0, false, 1305, false}},
    {"Traceroute", {{-1}, 1403, -1, 0, false, 0, false, 0, false}},
};

class ListenerLimit : public testing::TestWithParam<Reporting> {
 protected:
    void SetUp() override { PrepareSilently(); }

    [[nodiscard]] static const Promise& Promised() {
        const auto own = kPromises.find(GetParam().name);
        return own != kPromises.end() ? own->second : kPromises.at(GetParam().service);
    }

    static void ExpectCallback(const std::function<void()>& cause) {
        const unsigned long calls = g_callbacks;
        cause();
        EXPECT_TRUE(WaitFor([&] { return g_callbacks > calls; }));
    }

    // Starts, is told something, stops.
    static void ExpectWorks() {
        ASSERT_EQ(0, GetParam().start());
        ExpectCallback([] { EXPECT_TRUE(Report(GetParam())); });
        EXPECT_EQ(0, GetParam().stop());
    }

    const bench::Answerer daemon_;
};

TEST_P(ListenerLimit, WithoutDescriptorsCallsFailAndWorkLater) {
    const Level before;
    {
        const NoDescriptors none;
        EXPECT_THAT(Promised().startWithoutDescriptor, Contains(GetParam().start()));
    }
    ASSERT_EQ(0, GetParam().start());
    {
        const NoDescriptors none;
        EXPECT_EQ(Promised().stopWithoutDescriptor, GetParam().stop());
    }
    ExpectCallback([] { EXPECT_TRUE(Report(GetParam())); });
    EXPECT_EQ(0, GetParam().stop());
    ExpectWorks();
    before.ExpectNoMore();
}

// A socket from the time when there still was a descriptor for one.
class EarlySocket {
 public:
    ~EarlySocket() { close(fd_); }

    // A listener that cannot accept may close while it is sent to.
    bool Send(const Reporting& reporting) const {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, ("/tmp/" + reporting.socket).c_str());
        const Bytes message = bed::Message(reporting.type, reporting.body);
        const int connected =
            connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        send(fd_, message.data(), message.size(), MSG_NOSIGNAL);
        return connected == 0;
    }

 private:
    const int fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

// Where the listener goes on, what came meanwhile is served when there are descriptors again; where
// it ends, the stop tells.
TEST_P(ListenerLimit, WithoutADescriptorAtAccept) {
    const bed::Capture log;
    VimbraDebugLevelSet(5);
    const Level before;
    ASSERT_EQ(0, GetParam().start());
    const unsigned long calls = g_callbacks;
    {
        const EarlySocket peer;
        const NoDescriptors none;
        ASSERT_TRUE(peer.Send(GetParam()));
        EXPECT_TRUE(log.WaitFor(bed::Kind::kPerror, bed::kAny, "accept error"));
        EXPECT_EQ(calls, g_callbacks);
    }
    if (Promised().outlivesFailedAccept) {
        EXPECT_TRUE(WaitFor([&] { return g_callbacks > calls; }));
        EXPECT_EQ(0, GetParam().stop());
    } else {
        EXPECT_TRUE(bed::WaitForNoListener(GetParam().socket));
        EXPECT_EQ(Promised().stopAfterFailedAccept, GetParam().stop());
    }
    // Elsewhere the service stays started, without a listener.
    if (Promised().stopAfterFailedAccept == 0) {
        ExpectWorks();
    }
    before.ExpectNoMore();
}

TEST_P(ListenerLimit, WithoutRoomForAThread) {
    ASSERT_EQ(0, chmod(bench::kDaemonPath, 0777));
    const Level before;
    {
        const NoRoomForThreads none;
        EXPECT_EQ(Promised().startWithoutThread, GetParam().start());
    }
    if (std::string_view(GetParam().service) == "Ntp") {
        return;  // Further starts wait until the process ends.
    }
    EXPECT_EQ(Promised().stopWithoutThread, GetParam().stop());
    // Statistics are taken for started.
    if (Promised().startWithoutThread != 0) {
        ExpectWorks();
    }
    before.ExpectNoMore();
}

// Everybody waits for one callback: the peers in the backlog, which is full, and whoever stops.
TEST_P(ListenerLimit, FullBacklog) {
    const Level before;
    static const Gate* gate = nullptr;
    const Gate calling;
    gate = &calling;
    ASSERT_EQ(0, GetParam().start());
    g_inCallback = [] { gate->Pass(); };
    EXPECT_TRUE(Report(GetParam()));
    ASSERT_TRUE(calling.WaitArrived());
    {
        const bed::FullBacklog full(GetParam().socket);
        std::thread stopper([] { EXPECT_EQ(0, GetParam().stop()); });
        if (Promised().stopWaits) {
            calling.Open();
        }
        stopper.join();
        calling.Open();
    }
    EXPECT_TRUE(EndCallbacks());
    ExpectWorks();
    before.ExpectNoMore();
}

// One that says nothing and one that stops half-way have five seconds each.
TEST_P(ListenerLimit, SilentPeers) {
    const Level before;
    const Bytes message = bed::Message(GetParam().type, GetParam().body);
    for (const size_t length : {size_t{0}, message.size() / 2}) {
        ASSERT_EQ(0, GetParam().start());
        {
            bed::Connection peer(GetParam().socket);
            peer.Send(message.Slice(0, length));
            EXPECT_TRUE(peer.WaitPeerClosed());
        }
        if (Promised().outlivesSilence) {
            ExpectCallback([] { EXPECT_TRUE(Report(GetParam())); });
        } else {
            EXPECT_TRUE(bed::WaitForNoListener(GetParam().socket));
        }
        EXPECT_EQ(Promised().stopAfterSilence, GetParam().stop());
    }
    ExpectWorks();
    before.ExpectNoMore();
}

const auto kName = [](const auto& which) { return std::string(which.param.name); };

std::vector<Reporting> WithSockets() {
    std::vector<Reporting> all = AllReporting();
    std::erase_if(all, [](const Reporting& reporting) { return reporting.socket.empty(); });
    return all;
}
INSTANTIATE_TEST_SUITE_P(Slow, ListenerLimit, testing::ValuesIn(WithSockets()), kName);

}  // namespace
}  // namespace vimbra::tests
