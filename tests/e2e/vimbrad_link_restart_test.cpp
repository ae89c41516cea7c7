// MTU and MAC address of an interface over the ends of the daemon that set them.
#include <gtest/gtest.h>
#include <vimbra/iface.h>

#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "lives.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

char g_eth0[] = "eth0";
char g_eth1[] = "eth1";

constexpr char kMac[] = "02:11:22:33:44:55";

Json LinkOf(const std::string& iface, const char* what) {
    return Ip("link show dev " + iface).at(0).at(what);
}

class VimbradLinkRestart : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        mac_ = LinkOf("eth0", "address");
    }

    static void SetBoth() {
        TVimbraIfaceMac mac{{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}};
        ASSERT_EQ(0, VimbraIfaceSetMac(g_eth0, &mac));
        ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1400));
    }
    static void ExpectBothSet() {
        EXPECT_EQ(kMac, LinkOf("eth0", "address"));
        EXPECT_EQ(1400, LinkOf("eth0", "mtu"));
    }
    void ExpectBothAsBefore() const {
        EXPECT_EQ(mac_, LinkOf("eth0", "address"));
        EXPECT_EQ(1500, LinkOf("eth0", "mtu"));
    }

    Json mac_;
};

TEST_F(VimbradLinkRestart, EndPutsBackWhatWasBefore) {
    Lives daemon;
    SetBoth();
    ExpectBothSet();
    daemon.End();
    ExpectBothAsBefore();
}

TEST_F(VimbradLinkRestart, WhatWasBeforeTheFirstRequestIsPutBack) {
    Lives daemon;
    for (const u32 mtu : {1300u, 1200u, 1400u}) {
        ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, mtu));
    }
    daemon.End();
    EXPECT_EQ(1500, LinkOf("eth0", "mtu"));
}

TEST_F(VimbradLinkRestart, ALaterLifeKnowsWhatWasBefore) {
    Lives daemon;
    SetBoth();
    daemon.KillAndBegin();
    ExpectBothSet();
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1300));
    daemon.KillAndBegin();
    daemon.End();
    ExpectBothAsBefore();
}

TEST_F(VimbradLinkRestart, KeepLeavesThem) {
    Lives daemon({"--keep"});
    SetBoth();
    daemon.End();
    ExpectBothSet();
}

TEST_F(VimbradLinkRestart, ForgettingLeavesThem) {
    Lives daemon;
    SetBoth();
    daemon.KillAndBegin({"--forget"});
    daemon.End();
    ExpectBothSet();
}

TEST_F(VimbradLinkRestart, WhatSomebodyElseHasSetSinceStays) {
    Lives daemon;
    SetBoth();
    Shell("ip link set eth0 mtu 1450 address 02:00:00:00:00:77");
    daemon.End();
    EXPECT_EQ("02:00:00:00:00:77", LinkOf("eth0", "address"));
    EXPECT_EQ(1450, LinkOf("eth0", "mtu"));
}

TEST_F(VimbradLinkRestart, WhatSomebodyElseSetBetweenTwoRequestsIsPutBack) {
    Lives daemon;
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1400));
    Shell("ip link set eth0 mtu 1450");
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1300));
    daemon.End();
    EXPECT_EQ(1450, LinkOf("eth0", "mtu"));
}

TEST_F(VimbradLinkRestart, AnotherInterfaceOfTheNameIsLeftAlone) {
    MakeIface("eth1");
    Lives daemon;
    SetBoth();
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth1, 2, 1400));
    Shell("ip link del eth0");
    MakeIface("eth0");
    Shell("ip link set eth0 mtu 1400");
    Shell("ip link set eth1 down && ip link set eth1 name lan0");
    daemon.End();
    EXPECT_EQ(1400, LinkOf("eth0", "mtu"));
    EXPECT_EQ(1500, LinkOf("lan0", "mtu"));
}

}  // namespace
}  // namespace vimbra::tests
