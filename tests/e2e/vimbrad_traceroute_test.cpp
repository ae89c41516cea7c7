// Traces.
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
