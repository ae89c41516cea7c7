// Are two addresses of the same subnet?
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <vimbra/common.h>
#include <vimbra/log.h>

#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TVimbraAddr OfFamily(u16 family) {
    TVimbraAddr address = {};
    address.wSinFamily = family;
    return address;
}

constexpr char kSame4[] = "the two ipv4 address is the same net!";
constexpr char kOther4[] = "the two ipv4 address is not the same net!";
constexpr char kSame6[] = "the two ipv6 address is the same net!";
constexpr char kOther6[] = "the two ipv6 address is not the same net!";

TEST(SameNet, Ipv4) {
    const TVimbraAddr ip = Address("192.168.1.10");
    const TVimbraAddr gateway = Address("192.168.2.1");
    Capture log;
    EXPECT_EQ(1111, VimbraCheckIsSameNet(ip, 24, gateway));
    EXPECT_EQ(0, VimbraCheckIsSameNet(ip, 16, gateway));
    EXPECT_EQ(-1, VimbraCheckIsSameNet(ip, 33, gateway));
    EXPECT_TRUE(
        Wrote(log, {Err("VimbraCheckIsSameNet", kOther4), Prt("VimbraCheckIsSameNet", kSame4),
                    Err("VimbraCheckIsSameNet", "the dwPrefix is 33 more than 128!")}));
}

TEST(SameNet, Ipv4ComparesThePrefixAndNoMore) {
    VimbraDebugLevelSet(0);
    const TVimbraAddr ip = Address("170.85.204.51");
    for (u32 bit = 0; bit < 32; bit++) {
        TVimbraAddr gateway = ip;
        gateway.tV4Addr.s_addr ^= htonl(0x80000000u >> bit);
        for (u32 prefix = 1; prefix <= 32; prefix++) {
            EXPECT_EQ(prefix > bit ? 1111 : 0, VimbraCheckIsSameNet(ip, prefix, gateway))
                << "bit " << bit << " prefix " << prefix;
        }
    }
}

TEST(SameNet, Ipv4WithoutGatewayIsTheSame) {
    Capture log;
    EXPECT_EQ(0, VimbraCheckIsSameNet(Address("192.168.1.10"), 24, Address("0.0.0.0")));
    EXPECT_EQ(0, VimbraCheckIsSameNet(Address("192.168.1.10"), 32, Address("0.0.0.0")));
    EXPECT_TRUE(log.IsSilent());
}

TEST(SameNet, Ipv4LooksAtThePrefixBeforeTheGateway) {
    Capture log;
    EXPECT_EQ(-1, VimbraCheckIsSameNet(Address("192.168.1.10"), 33, Address("0.0.0.0")));
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", "the dwPrefix is 33 more than 128!")}));
}

TEST(SameNet, Ipv6ComparesThePrefixAndNoMore) {
    VimbraDebugLevelSet(0);
    const TVimbraAddr ip = Address("2001:db8:a5a5:5a5a:1234:5678:9abc:def0");
    for (u32 bit = 0; bit < 128; bit++) {
        TVimbraAddr gateway = ip;
        gateway.tV6Addr.s6_addr[bit / 8] ^= static_cast<u8>(0x80 >> (bit % 8));
        for (u32 prefix = 1; prefix <= 128; prefix++) {
            EXPECT_EQ(prefix > bit ? 1111 : 0, VimbraCheckIsSameNet(ip, prefix, gateway))
                << "bit " << bit << " prefix " << prefix;
        }
    }
}

TEST(SameNet, Ipv6Messages) {
    const TVimbraAddr ip = Address("2001:db8::1");
    Capture log;
    EXPECT_EQ(0, VimbraCheckIsSameNet(ip, 128, ip));
    EXPECT_EQ(0, VimbraCheckIsSameNet(ip, 64, Address("2001:db8::ffff")));
    EXPECT_EQ(1111, VimbraCheckIsSameNet(ip, 128, Address("2001:db8::2")));
    EXPECT_EQ(1111, VimbraCheckIsSameNet(ip, 20, Address("fe80::1")));
    EXPECT_EQ(-1, VimbraCheckIsSameNet(ip, 129, ip));
    EXPECT_TRUE(
        Wrote(log, {Prt("VimbraCheckIsSameNet", kSame6), Prt("VimbraCheckIsSameNet", kSame6),
                    Err("VimbraCheckIsSameNet", kOther6), Err("VimbraCheckIsSameNet", kOther6),
                    Err("VimbraCheckIsSameNet", "the dwPrefix is 129 more than 128!")}));
}

TEST(SameNet, Ipv6GatewayOfZerosIsAnAddressLikeOthers) {
    EXPECT_EQ(1111, VimbraCheckIsSameNet(Address("2001:db8::1"), 64, Address("::")));
    EXPECT_EQ(0, VimbraCheckIsSameNet(Address("::1"), 64, Address("::")));
}

TEST(SameNet, RefusesTwoFamilies) {
    Capture log;
    EXPECT_EQ(1105, VimbraCheckIsSameNet(Address("10.0.0.1"), 24, Address("::1")));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(2), 24, OfFamily(0)));
    const std::string text = "the tIpAddr and the tGateway's wSinFamily is different!";
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", text), Err("VimbraCheckIsSameNet", text)}));
}

TEST(SameNet, RefusesPrefixZero) {
    Capture log;
    EXPECT_EQ(1105, VimbraCheckIsSameNet(Address("10.0.0.1"), 0, Address("0.0.0.0")));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(Address("::1"), 0, Address("::1")));
    const std::string text = "the param dwPrefix is Zero!";
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", text), Err("VimbraCheckIsSameNet", text)}));
}

TEST(SameNet, RefusesOtherFamilies) {
    for (const u16 family : {u16{0}, u16{1}, u16{11}, u16{65535}}) {
        Capture log;
        EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(family), 24, OfFamily(family)));
        EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet",
                                    "the wSinFamily " + std::to_string(family) + " is invalid!")}));
    }
}

TEST(SameNet, PrefixIsUnsigned) {
    Capture log;
    EXPECT_EQ(-1, VimbraCheckIsSameNet(Address("10.0.0.1"), 0xffffffff, Address("10.0.0.1")));
    EXPECT_EQ(-1, VimbraCheckIsSameNet(Address("::1"), 0x80000000, Address("::1")));
    EXPECT_TRUE(
        Wrote(log, {Err("VimbraCheckIsSameNet", "the dwPrefix is -1 more than 128!"),
                    Err("VimbraCheckIsSameNet", "the dwPrefix is -2147483648 more than 128!")}));
}

// Families that differ, then prefix zero, then the family, then the prefix's range.
TEST(SameNet, OrderOfChecks) {
    Capture log;
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(2), 0, OfFamily(11)));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(11), 0, OfFamily(11)));
    EXPECT_EQ(1105, VimbraCheckIsSameNet(OfFamily(11), 500, OfFamily(11)));
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet",
                                "the tIpAddr and the tGateway's wSinFamily is different!"),
                            Err("VimbraCheckIsSameNet", "the param dwPrefix is Zero!"),
                            Err("VimbraCheckIsSameNet", "the wSinFamily 11 is invalid!")}));
}

}  // namespace
}  // namespace vimbra::tests
