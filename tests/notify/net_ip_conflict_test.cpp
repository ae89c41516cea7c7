// Address conflicts: the legacy calls.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/net_ip_conflict.h>

#include <cstring>
#include <utility>
#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"
#include "ip_conflict.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class Legacy : public testing::Test {
 protected:
    Legacy() { EXPECT_EQ(0, VimbraInit()); }
    ScriptedDaemon daemon_;
};

TEST_F(Legacy, PlainCallbackGetsTypeMacAndAddress) {
    EXPECT_EQ(0, NetIpConflictCallBackReg(TakePlain));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Pack().U16(2)), daemon_.Requests()[0].raw);
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_TRUE(Notify(kSockets[0], 2, Conflict()));
    const auto plain = g_plain.Events();
    ASSERT_EQ(2u, plain.size());
    for (u32 type = 1; type <= 2; type++) {
        EXPECT_EQ(type, plain[type - 1].type);
        EXPECT_EQ(kMac, plain[type - 1].mac);
        EXPECT_EQ(Pack().In4("192.0.2.7").Get(), AsBytes(plain[type - 1].address));
    }
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

TEST_F(Legacy, ExtendedCallbackGoesFirstAndAlwaysSaysIpConflict) {
    Capture log;
    EXPECT_EQ(0, NetIpConflictCallBackRegEx(TakeExtended));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict("eth2")));
    EXPECT_TRUE(Notify(kSockets[0], 2, Conflict("eth2")));
    const auto extended = g_extended.Events();
    ASSERT_EQ(2u, extended.size());
    for (const Extended& one : extended) {
        EXPECT_EQ(1u, one.type);
        EXPECT_EQ(2u, one.info.byEthId);
        EXPECT_EQ(0, memcmp(kMac.data(), one.info.abyMacAddr, 6));
    }
    EXPECT_EQ(Pack().In4("192.0.2.7").Get(), AsBytes(extended[0].info.dwIpaddr));
    EXPECT_EQ(0u, extended[1].info.dwIpaddr);
    EXPECT_EQ(2, log.Count(Kind::kPrint, "IpConflictCBThread", "compatibility with 1.x"));
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

TEST_F(Legacy, ExtendedCallbackTakesTheEventsOfACurrentWatchToo) {
    EXPECT_EQ(0, VimbraIpConflictCheckStart(2, NoConflict));
    EXPECT_EQ(-1, NetIpConflictCallBackRegEx(TakeExtended));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_EQ(1u, g_extended.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

TEST_F(Legacy, ExtendedCallbackHasNoPartInIpv6) {
    EXPECT_EQ(0, NetIpConflictCallBackRegEx(TakeExtended));
    EXPECT_EQ(0, VimbraIpConflictCheckStart(10, TakeConflict));
    EXPECT_TRUE(Notify(kSockets[1], 1, Conflict("eth0", 10, "2001:db8::1")));
    EXPECT_EQ(0u, g_extended.Count());
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
    EXPECT_EQ(0, VimbraIpConflictCheckStop(10));
}

TEST_F(Legacy, InterfaceNumberIsReadFromTheName) {
    EXPECT_EQ(0, NetIpConflictCallBackRegEx(TakeExtended));
    const std::pair<const char*, u32> names[] = {
        {"br0", 65535},
        {"wlan1", 1},
        {"eth0.5", 0},
        {"eth0", 0},
        {"eth12", 12},
        {"eth", 0},
        {"veth7", 7},
        {"xwlan3", 3},
        {"wlan2eth9", 9},
        {"", 65535},
        {"0123456789eth777", 777},
        {"0123456789abceth", 0},
        {"ethx", 0},
        {"aaaaaaaaaaaaaaaa", 65535},
    };
    size_t count = 0;
    for (const auto& [name, number] : names) {
        EXPECT_TRUE(Notify(kSockets[0], 1, Conflict(name)));
        ASSERT_EQ(++count, g_extended.Count());
        EXPECT_EQ(number, g_extended.Events().back().info.byEthId) << name;
    }
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

TEST_F(Legacy, SecondRegistrationFailsButItsCallbackCounts) {
    EXPECT_EQ(0, NetIpConflictCallBackReg([](u32, u8*, u32) { ADD_FAILURE() << "replaced"; }));
    EXPECT_EQ(-1, NetIpConflictCallBackReg(TakePlain));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_EQ(1u, g_plain.Count());
    EXPECT_EQ(-1, NetIpConflictCallBackRegEx(TakeExtended));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_EQ(1u, g_extended.Count());
    EXPECT_EQ(-1, NetIpConflictCallBackRegEx(nullptr));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_EQ(2u, g_plain.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

TEST_F(Legacy, NullCallbackIsSilent) {
    EXPECT_EQ(0, NetIpConflictCallBackReg(nullptr));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_TRUE(Notify(kSockets[0], 2, Conflict()));
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

TEST_F(Legacy, OnceConflictedIsAlwaysFalse) {
    EXPECT_EQ(0, NetIpConflictCallBackReg(TakePlain));
    EXPECT_TRUE(Notify(kSockets[0], 1, Conflict()));
    EXPECT_EQ(1u, g_plain.Count());
    EXPECT_EQ(0u, NetIpOnceConflicted());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
}

}  // namespace
}  // namespace vimbra::tests
