// MAC address and MTU of an interface.
#include <gtest/gtest.h>
#include <vimbra/iface.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "iface.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- MAC address -----------------------------------------------------------------------------

TEST(IfaceSetMac, DoesNotLookAtTheValue) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u8 byte : {u8{0}, u8{0xff}}) {
        TVimbraIfaceMac mac;
        memset(mac.abyMacAddr, byte, 6);
        EXPECT_EQ(0, VimbraIfaceSetMac(name, &mac));
        EXPECT_EQ(Pack().Text("eth0", 16).Add(Bytes(6, byte)), daemon.Requests().back().body);
    }
}

TEST(IfaceSetMac, ChecksItsArgumentsInOrder) {
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceSetMac(longName.data(), nullptr));
    EXPECT_EQ(1105, VimbraIfaceSetMac(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetMac", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceSetMac", "ptNetIfaceMac is NULL!")}));
}

TEST(IfaceGetMac, HandsTheAddressOver) {
    ScriptedDaemon daemon;
    daemon.On(263, Answer::Body(Bytes(Pack().S32(0).Add(AsBytes(kMac)).U8(0xEE).U8(0xEE))));
    char name[] = "eth0";
    struct {
        TVimbraIfaceMac mac;
        u8 guard[2];
    } output = {{}, {0xA5, 0xA5}};
    EXPECT_EQ(0, VimbraIfaceGetMac(name, &output.mac));
    EXPECT_EQ(Pack().Add(AsBytes(kMac)).U8(0xA5).U8(0xA5), Bytes(AsBytes(output)));
}

TEST(IfaceGetMac, ChecksItsArgumentsInOrder) {
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceGetMac(longName.data(), nullptr));
    EXPECT_EQ(1105, VimbraIfaceGetMac(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceGetMac", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceGetMac", "ptNetIfaceIp is NULL!")}));
}

// ---- MTU -------------------------------------------------------------------------------------

TEST(IfaceSetMtu, HasALeastValuePerFamilyAndNoGreatest) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    struct {
        u16 family;
        u32 mtu;
        s32 result;
    } const cases[] = {
        {2, 500, 0},        {2, 499, 1105},     {2, 0, 1105},        {2, 0x7fffffff, 0},
        {2, 0x80000000, 0}, {2, 0xffffffff, 0}, {10, 1280, 0},       {10, 1279, 1105},
        {10, 500, 1105},    {10, 0, 1105},      {10, 0xffffffff, 0},
    };
    size_t sent = 0;
    for (const auto& one : cases) {
        Capture log;
        EXPECT_EQ(one.result, VimbraIfaceSetMtu(name, one.family, one.mtu)) << one.mtu;
        const std::string mtu = std::to_string(static_cast<s32>(one.mtu));
        if (one.result == 0) {
            sent++;
            ASSERT_EQ(sent, daemon.Requests().size());
            EXPECT_EQ(Pack().Text("eth0", 16).U32(one.mtu), daemon.Requests().back().body);
            EXPECT_TRUE(Wrote(log, {Dbg("VimbraIfaceSetMtu",
                                        "VimbraIfaceSetMtu interface : eth0, mtu : " + mtu)}));
        } else {
            EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetMtu", "dwMtu " + mtu + " is invalid")}));
        }
    }
    EXPECT_EQ(sent, daemon.Connections());
}

TEST(IfaceSetMtu, RefusesOtherFamiliesWhateverTheValue) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u16 family : {u16{11}, u16{0}, u16{1}, u16{3}, u16{9}, u16{12}, u16{65535}}) {
        for (const u32 mtu : {0u, 499u, 500u, 1280u, 1500u, 0xffffffffu}) {
            Capture log;
            EXPECT_EQ(1105, VimbraIfaceSetMtu(name, family, mtu));
            EXPECT_TRUE(
                Wrote(log, {Err("VimbraIfaceSetMtu",
                                "the wSinFamily " + std::to_string(family) + " is invalid!")}));
        }
    }
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(IfaceSetMtu, LooksAtTheNameFirst) {
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceSetMtu(longName.data(), 11, 0));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceSetMtu", "pchIfaceName is invalid!")}));
}

TEST(IfaceGetMtu, HandsTheValueOver) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    for (const u32 mtu : {0u, 1500u, 0xffffffffu}) {
        daemon.On(274, Answer::Body(Bytes(Pack().S32(0).U32(mtu))));
        u32 result = 77;
        EXPECT_EQ(0, VimbraIfaceGetMtu(name, &result));
        EXPECT_EQ(mtu, result);
    }
}

// Unlike the other calls.
TEST(IfaceGetMtu, MissingOutputIsMinusOne) {
    ScriptedDaemon daemon;
    char name[] = "eth0";
    std::string longName = kSeventeen;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceGetMtu(longName.data(), nullptr));
    EXPECT_EQ(-1, VimbraIfaceGetMtu(name, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceGetMtu", "pchIfaceName is invalid!"),
                            Err("VimbraIfaceGetMtu", "pdwMtu is invalid!")}));
    EXPECT_EQ(0u, daemon.Connections());
}

}  // namespace
}  // namespace vimbra::tests
