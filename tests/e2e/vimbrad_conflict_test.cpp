// Watch for conflicts: a second host on the link takes what is ours.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kStart = 281;
constexpr u32 kStop = 282;
constexpr char kSocket[] = "ipc_ip_conflict";
constexpr char kSocketV6[] = "ipc_ipv6_conflict";
constexpr u32 kIpConflict = 1;
constexpr u32 kMacConflict = 2;

constexpr char kOurMac[] = "02:00:00:00:00:01";
constexpr char kTheirMac[] = "02:00:00:00:00:02";

s32 Start(u16 family) {
    return Ask(kStart, Pack().U16(family));
}

s32 Stop(u16 family) {
    return Ask(kStop, Pack().U16(family));
}

Bytes Mac(const std::string& text) {
    Pack pack;
    for (size_t i = 0; i < 6; ++i) {
        pack.U8(static_cast<u8>(std::stoi(text.substr(3 * i, 2), nullptr, 16)));
    }
    return pack;
}

// The body of a notification.
Bytes Body(const char* iface, u16 family, const char* address, const char* mac) {
    return Pack().Text(iface, 16).Address(family, address).Add(Mac(mac));
}

class VimbradConflict : public testing::Test {
 protected:
    void SetUp() override {
        Connect("eth0", other_);
        // Only what a test does is to be seen on the link.
        const std::string quiet = "ip link set eth0 down && ip link set eth0 addrgenmode none";
        Shell(quiet);
        other_.Shell(quiet);
        Shell(std::string("ip link set eth0 address ") + kOurMac + " up");
        other_.Shell(std::string("ip link set eth0 address ") + kTheirMac + " up");
        Shell("ip address add 192.0.2.1/24 dev eth0");
        Shell("ip address add fd00::1/64 dev eth0 nodad");
        other_.Shell("ip address add 192.0.2.2/24 dev eth0");
        other_.Shell("ip address add fd00::2/64 dev eth0 nodad");
    }

    Host other_;
};

TEST_F(VimbradConflict, SilentHostWithOurAddressIsFound) {
    other_.Shell("ip address add 192.0.2.1/32 dev eth0");
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start(2));
    const Told message = listener.Wait(1)[0];
    EXPECT_EQ(kIpConflict, message.type);
    EXPECT_EQ(42u, message.size);
    EXPECT_EQ(Body("eth0", 2, "192.0.2.1", kTheirMac), message.body);
}

TEST_F(VimbradConflict, HostThatTakesOurAddressIsFound) {
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start(2));
    other_.Shell("ip address add 192.0.2.1/24 dev eth0");
    other_.ShellStatus("arping -q -c 1 -w 1 -U -I eth0 192.0.2.1");
    const Told message = listener.Wait(1)[0];
    EXPECT_EQ(kIpConflict, message.type);
    EXPECT_EQ(Body("eth0", 2, "192.0.2.1", kTheirMac), message.body);
}

TEST_F(VimbradConflict, AddressThatWeTakeIsLookedAt) {
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start(2));
    Shell("ip address add 192.0.2.2/24 dev eth0");
    EXPECT_EQ(Body("eth0", 2, "192.0.2.2", kTheirMac), listener.Wait(1)[0].body);
}

TEST_F(VimbradConflict, HostWithOurMacIsFound) {
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start(2));
    other_.Shell(std::string("ip link set eth0 address ") + kOurMac);
    other_.ShellStatus("arping -q -c 1 -w 1 -I eth0 192.0.2.9");
    const Told message = listener.Wait(1)[0];
    EXPECT_EQ(kMacConflict, message.type);
    EXPECT_EQ(Body("eth0", 2, "192.0.2.2", kOurMac), message.body);
}

TEST_F(VimbradConflict, OrdinaryNeighboursAreNoConflict) {
    Daemon daemon;
    Listener listener(kSocket);
    Listener listenerV6(kSocketV6);
    ASSERT_EQ(0, Start(2));
    ASSERT_EQ(0, Start(10));
    other_.Shell("ping -c 1 192.0.2.1 && ping -c 1 fd00::1");
    Shell("ping -c 1 192.0.2.2 && ping -c 1 fd00::2");
    // A host that asks for our address before it uses it gives way.
    other_.ShellStatus("arping -q -D -c 1 -w 1 -I eth0 192.0.2.1");
    // An address of ours under the MAC address of another interface of ours.
    MakeIface("eth1");
    Shell("ip address add 192.0.2.1/32 dev eth1");
    Shell("ip address add 192.0.2.3/24 dev peer-eth1");
    ShellStatus("arping -q -c 1 -w 1 -U -I eth1 192.0.2.1");
    ShellStatus("arping -q -c 1 -w 1 -U -I peer-eth1 192.0.2.3");
    // What follows comes first.
    other_.Shell("ip address add 192.0.2.1/24 dev eth0");
    other_.ShellStatus("arping -q -c 1 -w 1 -U -I eth0 192.0.2.1");
    EXPECT_EQ(Body("eth0", 2, "192.0.2.1", kTheirMac), listener.Wait(1)[0].body);
    EXPECT_TRUE(listenerV6.Messages().empty());
}

TEST_F(VimbradConflict, LastingConflictIsToldOfOnceInAWhile) {
    other_.Shell("ip address add 192.0.2.1/32 dev eth0");
    Daemon daemon;
    Listener listener(kSocket);
    const auto before = std::chrono::steady_clock::now();
    ASSERT_EQ(0, Start(2));
    listener.Wait(1);
    for (int i = 0; i < 5; ++i) {
        other_.ShellStatus("arping -q -c 1 -w 1 -U -I eth0 192.0.2.1");
    }
    // That is ten seconds.
    const auto whiles = (std::chrono::steady_clock::now() - before) / std::chrono::seconds(10);
    EXPECT_LE(listener.Messages().size(), 1u + static_cast<size_t>(whiles));
}

TEST_F(VimbradConflict, SilentHostWithOurV6AddressIsFound) {
    other_.Shell("ip address add fd00::1/128 dev eth0 nodad");
    Daemon daemon;
    Listener listener(kSocketV6);
    ASSERT_EQ(0, Start(10));
    const Told message = listener.Wait(1)[0];
    EXPECT_EQ(kIpConflict, message.type);
    EXPECT_EQ(Body("eth0", 10, "fd00::1", kTheirMac), message.body);
}

TEST_F(VimbradConflict, V6AddressThatTheKernelFindsTakenIsToldOf) {
    Daemon daemon;
    Listener listener(kSocketV6);
    ASSERT_EQ(0, Start(10));
    Shell("ip address add fd00::2/64 dev eth0");
    const Told message = listener.Wait(1)[0];
    EXPECT_EQ(kIpConflict, message.type);
    EXPECT_EQ(Body("eth0", 10, "fd00::2", kTheirMac), message.body);
    EXPECT_TRUE(WaitFor([] {
        return Shell("ip -6 address show dev eth0").find("dadfailed") != std::string::npos;
    }));
}

TEST_F(VimbradConflict, HostWithOurMacIsFoundByItsV6Words) {
    Daemon daemon;
    Listener listener(kSocketV6);
    ASSERT_EQ(0, Start(10));
    other_.Shell(std::string("ip link set eth0 address ") + kOurMac);
    // It asks whether it may have the address.
    other_.Shell("ip address add fd00::7/64 dev eth0");
    const Told message = listener.Wait(1)[0];
    EXPECT_EQ(kMacConflict, message.type);
    EXPECT_EQ(Body("eth0", 10, "fd00::7", kOurMac), message.body);
}

TEST_F(VimbradConflict, FamiliesAreWatchedEachByItself) {
    other_.Shell("ip address add 192.0.2.1/32 dev eth0");
    other_.Shell("ip address add fd00::1/128 dev eth0 nodad");
    Daemon daemon;
    Listener listener(kSocket);
    Listener listenerV6(kSocketV6);
    ASSERT_EQ(0, Start(10));
    listenerV6.Wait(1);
    EXPECT_TRUE(listener.Messages().empty());
    EXPECT_EQ(0, Stop(10));
    ASSERT_EQ(0, Start(2));
    listener.Wait(1);
    EXPECT_EQ(1u, listenerV6.Messages().size());
}

TEST_F(VimbradConflict, StopEndsItAndMayBeRepeated) {
    Daemon daemon;
    Listener listener(kSocket);
    EXPECT_EQ(0, Stop(2));
    ASSERT_EQ(0, Start(2));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(2));
    other_.Shell("ip address add 192.0.2.1/24 dev eth0");
    other_.ShellStatus("arping -q -c 2 -w 2 -U -I eth0 192.0.2.1");
    EXPECT_TRUE(listener.Messages().empty());
    // A start while it is on begins anew.
    ASSERT_EQ(0, Start(2));
    listener.Wait(1);
    ASSERT_EQ(0, Start(2));
    listener.Wait(2);
}

TEST_F(VimbradConflict, OtherFamiliesAreRefused) {
    Daemon daemon;
    for (const u16 family : {0, 1, 11, 65535}) {
        EXPECT_EQ(EINVAL, Start(family));
        EXPECT_EQ(EINVAL, Stop(family));
    }
}

// Frames that are no ARP and no neighbour discovery, cut short or full of anything.
TEST_F(VimbradConflict, MalformedFramesDoNoHarm) {
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start(2));
    ASSERT_EQ(0, Start(10));
    WriteFile("/tmp/frames.py",
              "import random, socket\n"
              "random.seed(4)\n"
              "s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)\n"
              "s.bind(('eth0', 0))\n"
              "for i in range(3000):\n"
              "    arp = i % 2\n"
              "    head = b'\\xff' * 6 + b'\\x02\\0\\0\\0\\0\\x09' +"
              " (b'\\x08\\x06' if arp else b'\\x86\\xdd')\n"
              "    if arp:\n"
              "        body = b'\\0\\1\\x08\\0\\6\\4\\0\\1'\n"
              "    else:\n"
              "        body = b'\\x60\\0\\0\\0\\0\\x20\\x3a\\xff' + b'\\0' * 32 +"
              " bytes([random.randrange(130, 140)])\n"
              "    s.send(head + body + random.randbytes(random.randrange(0, 90)))\n");
    other_.Shell("python3 /tmp/frames.py");
    other_.Shell("ip address add 192.0.2.1/24 dev eth0");
    EXPECT_TRUE(WaitFor([&] {
        other_.ShellStatus("arping -q -c 1 -w 1 -U -I eth0 192.0.2.1");
        return std::ranges::any_of(listener.Messages(), [](const Told& each) {
            return each.body == Body("eth0", 2, "192.0.2.1", kTheirMac);
        });
    }));
    EXPECT_TRUE(daemon.Running());
}

}  // namespace
}  // namespace vimbra::tests
