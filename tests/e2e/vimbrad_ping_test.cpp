// Echo tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "diag.hpp"
#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// One record of an echo test.
struct Probe {
    u32 event, id, ttl, time;
    s32 number, over;
};

Probe ProbeOf(const Told& message) {
    EXPECT_EQ(20u, message.size);
    EXPECT_EQ(20u, message.body.size());
    return {message.type,        message.body.U32(0),  message.body.U32(4),
            message.body.U32(8), message.body.S32(12), message.body.S32(16)};
}

// Event, number, last.
using Brief = std::tuple<u32, s32, s32>;
std::vector<Brief> BriefOf(const std::vector<Told>& messages) {
    std::vector<Brief> briefs;
    for (const Told& each : messages) {
        const Probe probe = ProbeOf(each);
        briefs.emplace_back(probe.event, probe.number, probe.over);
    }
    return briefs;
}

class VimbradPing : public VimbradDiag {
 protected:
    void ExpectReplies(const std::string& host, u32 ttl) {
        Daemon daemon;
        Listener listener(kPingSocket);
        ASSERT_EQ(0, Ping(7, host, {.count = 3}));
        const std::vector<Told> messages = listener.Wait(3);
        EXPECT_THAT(BriefOf(messages),
                    testing::ElementsAre(Brief{0, 1, 0}, Brief{0, 2, 0}, Brief{0, 3, 1}));
        for (const Told& each : messages) {
            const Probe probe = ProbeOf(each);
            EXPECT_EQ(7u, probe.id);
            EXPECT_EQ(ttl, probe.ttl);
            // Microseconds: on such a link a unit that is much larger would give 0.
            EXPECT_GT(probe.time, 0u);
            EXPECT_LT(probe.time, 30'000'000u);
        }
    }
};

TEST_F(VimbradPing, RepliesComeFromTheHost) {
    ExpectReplies("10.2.0.1", 63);
}

TEST_F(VimbradPing, RepliesComeFromTheV6Host) {
    ExpectReplies("fd02::1", 63);
}

TEST_F(VimbradPing, HostThatIsDownTimesOut) {
    far_.Shell("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    Daemon daemon;
    Listener listener(kPingSocket);
    ASSERT_EQ(0, Ping(1, "10.2.0.1", {.timeout = 200, .count = 2}));
    EXPECT_THAT(BriefOf(listener.Wait(2)), testing::ElementsAre(Brief{1, 1, 0}, Brief{1, 2, 1}));
    EXPECT_EQ(0u, ProbeOf(listener.Messages()[0]).time);
    EXPECT_EQ(0u, ProbeOf(listener.Messages()[0]).ttl);
    // As it does where nobody has said for how long to wait.
    ASSERT_EQ(0, Ping(1, "10.2.0.1", {.timeout = 0, .count = 1}));
    EXPECT_EQ((Brief{1, 1, 1}), BriefOf(listener.Wait(3))[2]);
}

TEST_F(VimbradPing, HostThatIsNotThereIsUnreachable) {
    Daemon daemon;
    Listener listener(kPingSocket);
    // Nobody on the link answers for it: first this host finds that out, then the router.
    ASSERT_EQ(0, Ping(1, "10.1.0.9", {.timeout = 15000, .count = 1}));
    EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{2, 1, 1}));
    listener.Forget();
    ASSERT_EQ(0, Ping(1, "10.2.0.9", {.timeout = 15000, .count = 1}));
    EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{2, 1, 1}));
    listener.Forget();
    ASSERT_EQ(0, Ping(1, "fd02::9", {.timeout = 15000, .count = 1}));
    EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{2, 1, 1}));
}

TEST_F(VimbradPing, MissingRouteIsUnreachable) {
    Daemon daemon;
    Listener listener(kPingSocket);
    // This host has none.
    ASSERT_EQ(0, Ping(1, "10.9.0.1", {.count = 2}));
    EXPECT_THAT(BriefOf(listener.Wait(2)), testing::ElementsAre(Brief{2, 1, 0}, Brief{2, 2, 1}));
    listener.Forget();
    ASSERT_EQ(0, Ping(1, "fd09::1", {.count = 1}));
    EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{2, 1, 1}));
    // The router has none.
    Shell("ip route add 10.9.0.0/24 via 10.1.0.254 && ip route add fd09::/64 via fd01::fe");
    listener.Forget();
    ASSERT_EQ(0, Ping(1, "10.9.0.1", {.count = 1}));
    EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{2, 1, 1}));
    listener.Forget();
    ASSERT_EQ(0, Ping(1, "fd09::1", {.count = 1}));
    EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{2, 1, 1}));
}

TEST_F(VimbradPing, TtlThatIsTooSmallIsTold) {
    Daemon daemon;
    Listener listener(kPingSocket);
    for (const char* host : {"10.2.0.1", "fd02::1"}) {
        listener.Forget();
        ASSERT_EQ(0, Ping(1, host, {.ttl = 1, .count = 1}));
        EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{3, 1, 1})) << host;
        listener.Forget();
        ASSERT_EQ(0, Ping(1, host, {.ttl = 2, .count = 1}));
        EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{0, 1, 1})) << host;
    }
}

TEST_F(VimbradPing, PayloadHasTheSizeThatWasAskedFor) {
    Daemon daemon;
    Listener listener(kPingSocket);
    const auto received = [&] {
        std::istringstream fields(far_.Shell("cat /proc/self/net/dev | grep eth0"));
        std::string name;
        u64 bytes = 0;
        fields >> name >> bytes;
        return bytes;
    };
    u64 last = received();
    for (const s32 size : {1, 1400, 4000, 60000}) {
        listener.Forget();
        ASSERT_EQ(0, Ping(1, "10.2.0.1", {.size = size, .timeout = 5000, .count = 1}));
        EXPECT_THAT(BriefOf(listener.Wait(1)), testing::ElementsAre(Brief{0, 1, 1})) << size;
        EXPECT_GE(received() - last, static_cast<u64>(size + 28));
        last = received();
    }
}

TEST_F(VimbradPing, ImpossibleOptionsAreRefused) {
    Daemon daemon;
    for (const Options& options : {Options{.size = -1}, Options{.size = 65508},
                                   Options{.timeout = -1}, Options{.timeout = 3'600'001},
                                   Options{.ttl = -1}, Options{.ttl = 256}, Options{.count = -1}}) {
        EXPECT_EQ(EINVAL, Ping(1, "10.2.0.1", options));
    }
    EXPECT_EQ(EINVAL, Ask(kPingStart, Pack().U16(11).Zeros(18).Zeros(16).S32(1)));
    EXPECT_EQ(0, Ping(1, "10.2.0.1", {.size = 65507, .timeout = 3'600'000, .ttl = 255}));
}

TEST_F(VimbradPing, WithoutCountItGoesOnUntilStopped) {
    Daemon daemon;
    Listener listener(kPingSocket);
    EXPECT_EQ(0, PingStop(1));
    ASSERT_EQ(0, Ping(1, "10.2.0.1", {}));
    const std::vector<Told> messages = listener.Wait(6);
    EXPECT_EQ((Brief{0, 6, 0}), BriefOf(messages)[5]);
    EXPECT_EQ(0, PingStop(1));
    EXPECT_EQ(0, PingStop(1));
    listener.Forget();
    ASSERT_EQ(0, Ping(2, "10.2.0.1", {.count = 3}));
    EXPECT_THAT(BriefOf(listener.Wait(3)),
                testing::ElementsAre(Brief{0, 1, 0}, Brief{0, 2, 0}, Brief{0, 3, 1}));
}

TEST_F(VimbradPing, TenAtOnceAreToldApart) {
    Daemon daemon;
    Listener listener(kPingSocket);
    const std::vector<std::string> hosts = {"10.2.0.1", "10.1.0.254", "fd02::1", "10.9.0.1",
                                            "127.0.0.1"};
    for (s32 id = 1; id <= 10; ++id) {
        ASSERT_EQ(0, Ping(id, hosts[static_cast<size_t>(id) % hosts.size()], {.count = 3}));
    }
    std::map<u32, std::vector<Brief>> tests;
    for (const Told& each : listener.Wait(30)) {
        const Probe probe = ProbeOf(each);
        tests[probe.id].emplace_back(probe.event, probe.number, probe.over);
    }
    ASSERT_EQ(10u, tests.size());
    for (const auto& [id, briefs] : tests) {
        const u32 event = hosts[id % hosts.size()] == "10.9.0.1" ? 2 : 0;
        EXPECT_THAT(briefs, testing::ElementsAre(Brief{event, 1, 0}, Brief{event, 2, 0},
                                                 Brief{event, 3, 1}))
            << id;
    }
}

TEST_F(VimbradPing, LateRepliesOfOneNeitherDelayNorEndAnother) {
    far_.Shell("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    Daemon daemon;
    Listener listener(kPingSocket);
    ASSERT_EQ(0, Ping(1, "10.2.0.1", {.timeout = 8000, .count = 3}));
    ASSERT_EQ(0, Ping(2, "10.1.0.254", {.count = 1}));
    const std::vector<Told> messages = listener.Wait(4);
    EXPECT_EQ(2u, ProbeOf(messages[0]).id);
    EXPECT_THAT(BriefOf({messages.begin() + 1, messages.end()}),
                testing::ElementsAre(Brief{1, 1, 0}, Brief{1, 2, 0}, Brief{1, 3, 1}));
}

TEST_F(VimbradPing, ApplicationThatIsGoneEndsItsTests) {
    Daemon daemon;
    ASSERT_EQ(0, Ping(1, "10.2.0.1", {}));
    EXPECT_TRUE(daemon.WaitLog("messages dropped"));
    Listener listener(kPingSocket);
    ASSERT_EQ(0, Ping(2, "10.2.0.1", {.count = 3}));
    for (const Told& each : listener.Wait(3)) {
        EXPECT_EQ(2u, ProbeOf(each).id);
    }
}

TEST_F(VimbradPing, ManyStartsAndStopsLeaveNothingBehind) {
    Daemon daemon({"--log-level=0"});
    Listener listener(kPingSocket);
    const auto open = [&] {
        return std::stoi(
            Shell("ls /proc/" + std::to_string(daemon.Process().Pid()) + "/fd | wc -l"));
    };
    ASSERT_EQ(0, Ping(1, "10.2.0.1", {.count = 1}));
    listener.Wait(1);
    const int before = open();
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(0, Ping(i % 7 + 1, i % 2 == 0 ? "10.2.0.1" : "fd02::1", {}));
        ASSERT_EQ(0, PingStop(i % 7 + 1));
    }
    // What answered the first may not have been closed yet when it was counted.
    EXPECT_TRUE(WaitFor([&] { return open() <= before; })) << open() << " was " << before;
}

}  // namespace
}  // namespace vimbra::tests
