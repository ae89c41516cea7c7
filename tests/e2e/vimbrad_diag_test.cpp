// Echo tests and traces: two hosts and a router between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kPingStart = 3073;
constexpr u32 kPingStop = 3074;
constexpr u32 kTraceStart = 3329;
constexpr u32 kTraceStop = 3330;
constexpr char kPingSocket[] = "ipc_ping";
constexpr char kTraceSocket[] = "ipc_traceroute";

u16 FamilyOf(const std::string& address) {
    return address.find(':') == std::string::npos ? 2 : 10;
}

Bytes Address(const std::string& text) {
    return Pack().Address(FamilyOf(text), text.c_str());
}

struct Options {
    s32 size = 0;
    s32 timeout = 30000;  // longer than any machine is busy
    s32 ttl = 0;
    s32 count = 0;
};

s32 Ping(s32 id, const std::string& host, const Options& options) {
    return Ask(kPingStart, Pack()
                               .Add(Address(host))
                               .S32(options.size)
                               .S32(options.timeout)
                               .S32(options.ttl)
                               .S32(options.count)
                               .S32(id));
}

s32 PingStop(s32 id) {
    return Ask(kPingStop, Pack().S32(id));
}

s32 Trace(s32 id, const std::string& host, u32 hops = 0) {
    return Ask(kTraceStart, Pack().Add(Address(host)).U32(hops).S32(id));
}

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

// This host 10.1.0.1 -- 10.1.0.254 router 10.2.0.254 -- 10.2.0.1 another host, and the same with
// fd01:: and fd02::.
class VimbradDiag : public testing::Test {
 protected:
    void SetUp() override {
        // Addresses are there at once.
        const std::string noDetection =
            "echo 0 > /proc/sys/net/ipv6/conf/default/accept_dad;"
            "echo 0 > /proc/sys/net/ipv6/conf/default/dad_transmits";
        Shell(noDetection);
        router_.Shell(noDetection);
        far_.Shell(noDetection);
        Connect("eth0", router_);
        Shell("ip link add left type veth peer name right && ip link set left netns " +
              std::to_string(router_.Pid()) + " name eth1 && ip link set right netns " +
              std::to_string(far_.Pid()) + " name eth0");
        router_.Shell("ip link set eth1 up");
        far_.Shell("ip link set eth0 up");
        router_.Shell(
            "echo 1 > /proc/sys/net/ipv4/ip_forward;"
            "echo 1 > /proc/sys/net/ipv6/conf/all/forwarding");
        Address("10.1.0.1/24", "10.1.0.254/24", "10.2.0.254/24", "10.2.0.1/24");
        Address("fd01::1/64", "fd01::fe/64", "fd02::fe/64", "fd02::1/64");
        Shell("ip route add 10.2.0.0/24 via 10.1.0.254 && ip route add fd02::/64 via fd01::fe");
        far_.Shell(
            "ip route add 10.1.0.0/24 via 10.2.0.254 && ip route add fd01::/64 via fd02::fe");
        // The first packet of a path waits for its neighbours, on a busy machine for too long.
        for (const char* host : {"10.2.0.1", "fd02::1"}) {
            Shell(std::string("for i in 1 2 3 4 5 6 7 8; do ping -c 1 -W 2 ") + host +
                  " >/dev/null && exit 0; done; exit 1");
        }
    }

    void Address(const std::string& ours, const std::string& near, const std::string& off,
                 const std::string& theirs) {
        const std::string nodad = ours.find(':') == std::string::npos ? "" : " nodad";
        Shell("ip address add " + ours + " dev eth0" + nodad);
        router_.Shell("ip address add " + near + " dev eth0" + nodad);
        router_.Shell("ip address add " + off + " dev eth1" + nodad);
        far_.Shell("ip address add " + theirs + " dev eth0" + nodad);
    }

    Host router_;
    Host far_;
};

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
    EXPECT_TRUE(WaitFor([&] { return open() == before; })) << open() << " was " << before;
}

struct Hop {
    u32 event;
    std::string address;
    u32 ttl;
    s32 type, code, over;
    bool operator==(const Hop&) const = default;
};
void PrintTo(const Hop& hop, std::ostream* out) {
    *out << hop.ttl << " " << hop.address << " event " << hop.event << " " << hop.type << "/"
         << hop.code << (hop.over != 0 ? " over" : "");
}

Hop HopOf(const Told& message) {
    EXPECT_EQ(48u, message.size);
    EXPECT_EQ(48u, message.body.size());
    EXPECT_EQ(0u, message.body.U32(32)) << "the room of a pointer";
    std::string address;
    const u16 family = message.body.U16(0);
    for (const char* known :
         {"0.0.0.0", "10.1.0.1", "10.1.0.254", "10.2.0.1", "::", "fd01::fe", "fd02::1"}) {
        if (FamilyOf(known) == family &&
            message.body.Slice(0, 20) == Pack().Address(family, known)) {
            address = known;
        }
    }
    return {message.type,         address,
            message.body.U32(20), message.body.S32(36),
            message.body.S32(40), message.body.S32(44)};
}

std::vector<Hop> HopsOf(const std::vector<Told>& messages) {
    std::vector<Hop> hops;
    for (const Told& each : messages) {
        hops.push_back(HopOf(each));
    }
    return hops;
}

class VimbradTraceroute : public VimbradDiag {
 protected:
    // The hops of a trace up to its last.
    std::vector<Hop> HopsTo(const std::string& host, u32 hops = 0) {
        const Listener listener(kTraceSocket);
        EXPECT_EQ(0, Trace(5, host, hops));
        EXPECT_TRUE(WaitFor([&] {
            const auto messages = listener.Messages();
            return !messages.empty() && HopOf(messages.back()).over != 0;
        }));
        for (const Told& each : listener.Messages()) {
            EXPECT_EQ(5, each.body.S32(24));
            EXPECT_EQ(HopOf(each).address == "0.0.0.0", each.body.S32(28) == 0) << "time";
        }
        return HopsOf(listener.Messages());
    }

    Daemon daemon_;
};

TEST_F(VimbradTraceroute, HopsAreTheRealOnes) {
    EXPECT_THAT(HopsTo("10.2.0.1"), testing::ElementsAre(Hop{101, "10.1.0.254", 1, 11, 0, 0},
                                                         Hop{102, "10.2.0.1", 2, 0, 0, 1}));
    EXPECT_THAT(HopsTo("10.1.0.254"), testing::ElementsAre(Hop{102, "10.1.0.254", 1, 0, 0, 1}));
    EXPECT_THAT(HopsTo("fd02::1"), testing::ElementsAre(Hop{101, "fd01::fe", 1, 3, 0, 0},
                                                        Hop{102, "fd02::1", 2, 0, 0, 1}));
}

TEST_F(VimbradTraceroute, HighestHopBeforeTheHostIsTold) {
    EXPECT_THAT(HopsTo("10.2.0.1", 1), testing::ElementsAre(Hop{105, "10.1.0.254", 1, 11, 0, 1}));
    EXPECT_THAT(HopsTo("10.2.0.1", 2), testing::ElementsAre(Hop{101, "10.1.0.254", 1, 11, 0, 0},
                                                            Hop{102, "10.2.0.1", 2, 0, 0, 1}));
}

TEST_F(VimbradTraceroute, HostThatIsDownIsSilent) {
    far_.Shell("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    EXPECT_THAT(HopsTo("10.2.0.1", 3), testing::ElementsAre(Hop{101, "10.1.0.254", 1, 11, 0, 0},
                                                            Hop{103, "0.0.0.0", 2, 0, 0, 0},
                                                            Hop{103, "0.0.0.0", 3, 0, 0, 1}));
}

TEST_F(VimbradTraceroute, RouterThatKnowsNoFurtherEndsIt) {
    Shell("ip route add 10.9.0.0/24 via 10.1.0.254");
    EXPECT_THAT(HopsTo("10.9.0.1"), testing::ElementsAre(Hop{104, "10.1.0.254", 1, 3, 0, 1}));
}

TEST_F(VimbradTraceroute, MissingRouteOfOurOwnEndsIt) {
    EXPECT_THAT(HopsTo("10.9.0.1"),
                testing::ElementsAre(Hop{106, "0.0.0.0", 1, 0, ENETUNREACH, 1}));
}

TEST_F(VimbradTraceroute, SeveralAtOnceAreToldApart) {
    Listener listener(kTraceSocket);
    for (s32 id = 1; id <= 10; ++id) {
        ASSERT_EQ(0, Trace(id, id % 2 == 0 ? "10.2.0.1" : "10.1.0.254"));
    }
    std::map<s32, std::vector<Hop>> traces;
    for (const Told& each : listener.Wait(15)) {
        traces[each.body.S32(24)].push_back(HopOf(each));
    }
    ASSERT_EQ(10u, traces.size());
    for (const auto& [id, hops] : traces) {
        EXPECT_EQ(id % 2 == 0 ? 2u : 1u, hops.size());
        EXPECT_EQ(102u, hops.back().event);
        EXPECT_EQ(1, hops.back().over);
    }
}

TEST_F(VimbradTraceroute, StopEndsItAndMayBeRepeated) {
    far_.Shell("echo 1 > /proc/sys/net/ipv4/icmp_echo_ignore_all");
    Listener listener(kTraceSocket);
    EXPECT_EQ(0, Ask(kTraceStop, Pack().S32(1)));
    ASSERT_EQ(0, Trace(1, "10.2.0.1"));
    listener.Wait(1);
    EXPECT_EQ(0, Ask(kTraceStop, Pack().S32(1)));
    EXPECT_EQ(0, Ask(kTraceStop, Pack().S32(1)));
    listener.Forget();
    ASSERT_EQ(0, Trace(2, "10.1.0.254"));
    EXPECT_EQ(2, listener.Wait(1)[0].body.S32(24));
}

TEST_F(VimbradTraceroute, ImpossibleRequestsAreRefused) {
    EXPECT_EQ(EINVAL, Trace(1, "10.2.0.1", 256));
    EXPECT_EQ(EINVAL, Ask(kTraceStart, Pack().U16(11).Zeros(18).U32(0).S32(1)));
}

}  // namespace
}  // namespace vimbra::tests
