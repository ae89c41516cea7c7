// Address checks and interface ioctls.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <vimbra/iface_check.h>
#include <vimbra/types.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "expect_log.hpp"
#include "links.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- Checks --------------------------------------------------------------------------------

TEST(CheckMask, TakesEveryRunOfOnesFromTheTop) {
    for (u32 ones = 0; ones <= 32; ones++) {
        const u32 mask = ones == 0 ? 0 : 0xffffffffu << (32 - ones);
        EXPECT_EQ(0, check_mask(htonl(mask))) << ones;
    }
}

TEST(CheckMask, RefusesHolesAndRunsFromTheBottom) {
    for (const char* mask : {"255.0.255.0", "0.255.255.255", "0.0.0.1", "127.255.255.255",
                             "255.255.255.253", "255.254.255.0", "128.0.0.1", "0.255.0.0"}) {
        EXPECT_EQ(-1, check_mask(Word(mask))) << mask;
    }
}

TEST(CheckMask, TakesTheNamedMasks) {
    for (const char* mask : {"0.0.0.0", "255.255.255.255", "255.255.255.0"}) {
        EXPECT_EQ(0, check_mask(inet_addr(mask))) << mask;
    }
}

TEST(CheckIp, TellsTheClass) {
    struct {
        const char* ip;
        s32 code;
    } const cases[] = {
        {"0.0.0.0", 1305},         {"0.0.0.1", 1305},         {"0.255.255.255", 1305},
        {"1.0.0.0", 1301},         {"10.1.2.3", 1301},        {"126.255.255.255", 1301},
        {"127.0.0.0", 1305},       {"127.0.0.1", 1305},       {"127.255.255.255", 1305},
        {"128.0.0.0", 1302},       {"191.255.255.255", 1302}, {"192.0.0.0", 1303},
        {"223.255.255.255", 1303}, {"224.0.0.0", 1304},       {"239.255.255.255", 1304},
        {"240.0.0.0", 1305},       {"240.0.0.1", 1305},       {"255.255.255.255", 1305},
    };
    Capture log;
    for (const auto& one : cases) {
        EXPECT_EQ(one.code, check_ip(Word(one.ip))) << one.ip;
    }
    EXPECT_TRUE(log.IsSilent());
}

TEST(CheckSameNet, ZeroGatewayFitsEveryAddress) {
    for (const char* ip : {"0.0.0.0", "192.168.1.10", "255.255.255.255"}) {
        EXPECT_EQ(0, check_ip_mask_gateway_the_same_net(Word(ip), Word("255.255.255.0"), 0)) << ip;
        EXPECT_EQ(0, check_ip_mask_gateway_the_same_net(Word(ip), 0xffffffff, 0)) << ip;
    }
}

TEST(CheckSameNet, ComparesUnderTheMask) {
    const u32 ip = Word("192.168.1.10");
    const u32 mask = Word("255.255.255.0");
    Capture log;
    EXPECT_EQ(0, check_ip_mask_gateway_the_same_net(ip, mask, Word("192.168.1.1")));
    EXPECT_EQ(1111, check_ip_mask_gateway_the_same_net(ip, mask, Word("192.168.2.1")));
    EXPECT_EQ(0, check_ip_mask_gateway_the_same_net(ip, Word("255.255.0.0"), Word("192.168.2.1")));
    EXPECT_EQ(0, check_ip_mask_gateway_the_same_net(ip, 0, Word("10.0.0.1")));
    EXPECT_EQ(1111, check_ip_mask_gateway_the_same_net(ip, 0xffffffff, Word("192.168.1.11")));
    EXPECT_EQ(0, check_ip_mask_gateway_the_same_net(ip, 0xffffffff, ip));
    EXPECT_TRUE(log.IsSilent());
}

TEST(CheckIntranetIp, RefusesNetworkAndBroadcastAddress) {
    const u32 mask = Word("255.255.255.0");
    Capture log;
    EXPECT_EQ(-1, check_intranet_ip(Word("192.168.1.0"), mask));
    EXPECT_EQ(-1, check_intranet_ip(Word("192.168.1.255"), mask));
    EXPECT_EQ(0, check_intranet_ip(Word("192.168.1.1"), mask));
    EXPECT_EQ(0, check_intranet_ip(Word("192.168.1.254"), mask));
    EXPECT_TRUE(log.IsSilent());
}

TEST(CheckIntranetIp, WithAFullMaskNothingIsLeft) {
    for (const char* ip : {"0.0.0.0", "10.0.0.1", "192.168.1.1", "255.255.255.255"}) {
        EXPECT_EQ(-1, check_intranet_ip(Word(ip), 0xffffffff)) << ip;
    }
}

TEST(CheckIntranetIp, WithoutMaskOnlyTheEndsAreRefused) {
    EXPECT_EQ(-1, check_intranet_ip(0, 0));
    EXPECT_EQ(-1, check_intranet_ip(0xffffffff, 0));
    EXPECT_EQ(0, check_intranet_ip(Word("0.0.0.1"), 0));
}

// ---- interface_name ------------------------------------------------------------------------

TEST(InterfaceName, NamesThreeInterfaces) {
    Capture log;
    for (u32 number = 0; number <= 2; number++) {
        char name[16];
        memset(name, 0xA5, sizeof(name));
        EXPECT_EQ(0, interface_name(number, name, sizeof(name)));
        EXPECT_EQ(Pack().Text("eth" + std::to_string(number), 16), Bytes(AsBytes(name)));
    }
    EXPECT_TRUE(log.IsSilent());
}

TEST(InterfaceName, RefusesOtherNumbers) {
    struct {
        u32 number;
        const char* text;
    } const cases[] = {
        {3, "Eth:3 does not exist and max interface NO:2"},
        {0x7fffffff, "Eth:2147483647 does not exist and max interface NO:2"},
        {0xffffffff, "Eth:-1 does not exist and max interface NO:2"},
    };
    for (const auto& one : cases) {
        Capture log;
        char name[16];
        memset(name, 0xA5, sizeof(name));
        EXPECT_EQ(1201, interface_name(one.number, name, sizeof(name)));
        EXPECT_EQ(Bytes(16, 0xA5), Bytes(AsBytes(name)));
        EXPECT_TRUE(Wrote(log, {Err("interface_name", one.text)}));
    }
}

TEST(InterfaceName, WritesNoFurtherThanItsLength) {
    for (s32 length = 0; length <= 8; length++) {
        char name[8];
        memset(name, 0xA5, sizeof(name));
        EXPECT_EQ(0, interface_name(1, name, length));
        const size_t written = static_cast<size_t>(length);
        EXPECT_EQ(Pack().Text(std::string("eth1").substr(0, written), written),
                  Bytes(AsBytes(name)).Slice(0, written));
        EXPECT_EQ(Bytes(8 - written, 0xA5), Bytes(AsBytes(name)).Slice(written, 8 - written));
    }
}

TEST(InterfaceName, RefusesNoBufferAndNegativeLength) {
    char name[16] = "untouched";
    EXPECT_EQ(-1, interface_name(0, nullptr, 16));
    EXPECT_EQ(-1, interface_name(0, name, -1));
    EXPECT_STREQ("untouched", name);
    EXPECT_EQ(1201, interface_name(3, nullptr, 16)) << "the number is looked at first";
}

// ---- SocketIoctl ---------------------------------------------------------------------------

TEST(SocketIoctl, IssuesTheRequest) {
    ifreq request = {};
    strcpy(request.ifr_name, "lo");
    Capture log;
    const auto before = OpenDescriptors();
    EXPECT_EQ(0, SocketIoctl(SIOCGIFINDEX, reinterpret_cast<char*>(&request)));
    EXPECT_EQ(static_cast<int>(if_nametoindex("lo")), request.ifr_ifindex);
    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(before, OpenDescriptors());
}

TEST(SocketIoctl, FailsAndLeavesNothingOpen) {
    ifreq request = {};
    strcpy(request.ifr_name, "nosuch0");
    Capture log;
    const auto before = OpenDescriptors();
    errno = 0;
    EXPECT_EQ(-1, SocketIoctl(SIOCGIFINDEX, reinterpret_cast<char*>(&request)));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", ENODEV)}));
    EXPECT_EQ(before, OpenDescriptors());
}

// ---- The interface calls -------------------------------------------------------------------

u32 FlagsOf(const char* name) {
    std::string copy = name;
    u32 flags = 0;
    EXPECT_EQ(0, IfethGetFlags(copy.data(), &flags));
    return flags;
}

TEST(IfethGetFlags, ReadsTheFlags) {
    char name[] = "lo";
    u32 flags = 0xffffffff;
    Capture log;
    EXPECT_EQ(0, IfethGetFlags(name, &flags));
    EXPECT_EQ(static_cast<u32>(IFF_UP | IFF_LOOPBACK | IFF_RUNNING), flags);
    EXPECT_TRUE(log.IsSilent());
}

// MULTICAST is the highest flag that the kernel tells here, and the 16th bit is never a sign.
TEST(IfethGetFlags, TellsFlagsAsUnsigned) {
    MakeLink("eth0", "far0");
    EXPECT_EQ(static_cast<u32>(IFF_BROADCAST | IFF_MULTICAST), FlagsOf("eth0"));
}

TEST(IfethGetFlags, RefusesNullArguments) {
    char name[] = "lo";
    u32 flags = 0;
    Capture log;
    EXPECT_EQ(-1, IfethGetFlags(nullptr, &flags));
    EXPECT_EQ(-1, IfethGetFlags(name, nullptr));
    EXPECT_EQ(-1, IfethGetFlags(nullptr, nullptr));
    EXPECT_TRUE(
        Wrote(log, {Err("IfethGetFlags", "ifname is null!"), Err("IfethGetFlags", "flag is null!"),
                    Err("IfethGetFlags", "ifname is null!")}));
}

TEST(IfethGetFlags, FailsForAMissingInterface) {
    char name[] = "nosuch0";
    u32 flags = 77;
    Capture log;
    EXPECT_EQ(-1, IfethGetFlags(name, &flags));
    EXPECT_EQ(77u, flags);
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", ENODEV),
                            Perr("IfethGetFlags", "ioctl error", ENODEV)}));
}

TEST(IfethSetFlags, BringsUpAndDown) {
    MakeLink("eth0", "far0");
    char name[] = "eth0";
    const u32 flags = FlagsOf(name);
    Capture log;
    EXPECT_EQ(0, IfethSetFlags(name, flags | IFF_UP));
    EXPECT_EQ(static_cast<u32>(IFF_UP), FlagsOf(name) & IFF_UP);
    EXPECT_EQ(0, IfethSetFlags(name, flags));
    EXPECT_EQ(0u, FlagsOf(name) & IFF_UP);
    EXPECT_TRUE(log.IsSilent());
}

TEST(IfethSetFlags, RefusesANullName) {
    Capture log;
    EXPECT_EQ(-1, IfethSetFlags(nullptr, 0));
    EXPECT_TRUE(Wrote(log, {Err("IfethSetFlags", "ifname is null!")}));
}

TEST(IfethSetFlags, FailureIsLoggedOnce) {
    char name[] = "nosuch0";
    Capture log;
    EXPECT_EQ(-1, IfethSetFlags(name, IFF_UP));
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", ENODEV)}));
}

// No length is checked: a longer name acts on the interface of its first 15 characters.
TEST(Ifeth, LongNameActsOnItsFirst15Characters) {
    MakeLink("abcdefghijklmno", "far0");
    for (std::string name : {"abcdefghijklmno", "abcdefghijklmnop", "abcdefghijklmnopqrstuvwxyz"}) {
        u32 flags = 0;
        EXPECT_EQ(0, IfethGetFlags(name.data(), &flags)) << name;
        EXPECT_EQ(0, IfethSetFlags(name.data(), flags | IFF_UP)) << name;
        u8 mac[6] = {};
        EXPECT_EQ(0, IfethGetHwAddr(name.data(), mac, nullptr)) << name;
    }
    EXPECT_EQ(static_cast<u32>(IFF_UP), FlagsOf("abcdefghijklmno") & IFF_UP);
}

TEST(IfethGetHwAddr, ReadsAddressAndFamily) {
    MakeLink("eth0", "far0");
    Shell("ip link set eth0 address 02:11:22:33:44:55");
    char name[] = "eth0";
    u8 mac[8];
    memset(mac, 0xA5, sizeof(mac));
    u16 family = 0;
    Capture log;
    EXPECT_EQ(0, IfethGetHwAddr(name, mac, &family));
    EXPECT_EQ((Bytes{0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0xA5, 0xA5}), Bytes(AsBytes(mac)));
    EXPECT_EQ(1, family);
    EXPECT_TRUE(log.IsSilent());
}

TEST(IfethGetHwAddr, FamilyMayBeLeftOut) {
    char name[] = "lo";
    u8 mac[6];
    memset(mac, 0xA5, sizeof(mac));
    EXPECT_EQ(0, IfethGetHwAddr(name, mac, nullptr));
    EXPECT_EQ(Bytes(6, 0), Bytes(AsBytes(mac)));
    u16 family = 0;
    EXPECT_EQ(0, IfethGetHwAddr(name, mac, &family));
    EXPECT_EQ(772, family);
}

TEST(IfethGetHwAddr, RefusesNullArgumentsSilently) {
    char name[] = "lo";
    u8 mac[6] = {};
    u16 family = 7;
    Capture log;
    EXPECT_EQ(-1, IfethGetHwAddr(nullptr, mac, &family));
    EXPECT_EQ(-1, IfethGetHwAddr(name, nullptr, &family));
    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(7, family);
}

TEST(IfethGetHwAddr, FailureIsLoggedOnce) {
    char name[] = "nosuch0";
    u8 mac[6];
    memset(mac, 0xA5, sizeof(mac));
    u16 family = 7;
    Capture log;
    EXPECT_EQ(-1, IfethGetHwAddr(name, mac, &family));
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", ENODEV)}));
    EXPECT_EQ(Bytes(6, 0xA5), Bytes(AsBytes(mac)));
    EXPECT_EQ(7, family);
}

TEST(IfethGetIpAddr, ReadsTheAddress) {
    MakeLink("eth0", "far0");
    Shell("ip addr add 192.0.2.7/24 dev eth0");
    char name[16] = "eth0";
    in_addr address = {};
    Capture log;
    EXPECT_EQ(0, IfethGetIpAddr(name, &address));
    EXPECT_EQ(Word("192.0.2.7"), address.s_addr);
    EXPECT_TRUE(log.IsSilent());
}

TEST(IfethGetIpAddr, RefusesNullArgumentsSilently) {
    char name[16] = "lo";
    in_addr address = {};
    Capture log;
    EXPECT_EQ(-1, IfethGetIpAddr(nullptr, &address));
    EXPECT_EQ(-1, IfethGetIpAddr(name, nullptr));
    EXPECT_TRUE(log.IsSilent());
}

TEST(IfethGetIpAddr, FailsWithoutAnAddress) {
    MakeLink("eth0", "far0");
    char name[16] = "eth0";
    in_addr address = {77};
    Capture log;
    EXPECT_EQ(-1, IfethGetIpAddr(name, &address));
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", EADDRNOTAVAIL)}));
    EXPECT_EQ(77u, address.s_addr);
}

TEST(IfethGetLineStatus, RefusesNullArguments) {
    char name[] = "lo";
    u32 status = 0;
    Capture log;
    EXPECT_EQ(-1, IfethGetLineStatus(nullptr, &status));
    EXPECT_EQ(-1, IfethGetLineStatus(name, nullptr));
    EXPECT_EQ(-1, IfethGetLineStatus(nullptr, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("IfethGetLineStatus", "ifname is null!"),
                            Err("IfethGetLineStatus", "status is null!"),
                            Err("IfethGetLineStatus", "ifname is null!")}));
}

}  // namespace
}  // namespace vimbra::tests
