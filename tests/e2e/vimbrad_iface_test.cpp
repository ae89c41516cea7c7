// Addresses, MAC address, MTU and log level: what the library asks for is what the kernel has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>
#include <vimbra/net.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

char g_eth0[] = "eth0";
char g_nowhere[] = "nowhere0";

TVimbraIfaceIp Entry(const char* text, u32 prefix, EVimbraScopeType scope = VIMBRA_SCOPE_TYPE_DEF) {
    TVimbraIfaceIp entry{};
    entry.eScopeType = scope;
    entry.dwPrefix = prefix;
    entry.tIpAddr = Address(text);
    return entry;
}

TVimbraIfaceAllIp List(std::initializer_list<TVimbraIfaceIp> entries) {
    TVimbraIfaceAllIp list{};
    for (const TVimbraIfaceIp& each : entries) {
        list.atNetIfaceIp[list.dwIpNum++] = each;
    }
    return list;
}

std::string InWords(const TVimbraIfaceIp& entry) {
    static const char* const kScopes[] = {"default", "host", "link", "site", "global"};
    return TextOf(entry.tIpAddr) + "/" + std::to_string(entry.dwPrefix) + " " +
           kScopes[entry.eScopeType];
}

// As the library tells them, in order.
std::vector<std::string> Told(u16 family) {
    TVimbraIfaceAllIp list{};
    EXPECT_EQ(0, VimbraIfaceGetIp(g_eth0, family, &list));
    std::vector<std::string> told;
    for (u32 i = 0; i < list.dwIpNum; ++i) {
        told.push_back(InWords(list.atNetIfaceIp[i]));
    }
    return told;
}

std::vector<std::string> Sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

s32 Set(u16 family, std::initializer_list<TVimbraIfaceIp> entries) {
    TVimbraIfaceAllIp list = List(entries);
    return VimbraIfaceSetIp(g_eth0, family, &list);
}

s32 Add(const char* text, u32 prefix, EVimbraScopeType scope = VIMBRA_SCOPE_TYPE_DEF) {
    TVimbraIfaceIp entry = Entry(text, prefix, scope);
    return VimbraIfaceAddIp(g_eth0, &entry);
}

s32 Delete(const char* text, u32 prefix) {
    TVimbraIfaceIp entry = Entry(text, prefix);
    return VimbraIfaceDelIp(g_eth0, &entry);
}

// The number with which the daemon refused, as the library logs it.
testing::AssertionResult Refused(const Capture& log, const char* function, int error) {
    return log.Has(Kind::kError, function,
                   "send and recv msg error num : " + std::to_string(error) + "!");
}

class VimbradIface : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        // No kernel-made address: tests that want it turn it on.
        Shell("ip link set eth0 addrgenmode none && ip -6 address flush dev eth0");
    }

    Daemon daemon_;
};

// The kernel's announcements of addresses that come and go, while it lives.
class AddressMonitor {
 public:
    AddressMonitor() : program_({"ip", "-o", "monitor", "address"}, "/tmp/monitor") {
        // It listens once it reports this.
        WaitFor([this] {
            ShellStatus("ip address add 192.0.2.1/32 dev lo; ip address del 192.0.2.1/32 dev lo");
            return program_.Output().find("Deleted") != std::string::npos;
        });
    }

    // Everything announced so far.
    std::string Announced() {
        const std::string mark = "198.51.100." + std::to_string(++marks_);
        Shell("ip address add " + mark + "/32 dev lo");
        EXPECT_TRUE(program_.WaitOutput(" " + mark + "/32"));
        return program_.Output();
    }

    bool Lost(const std::string& address) {
        std::istringstream lines(Announced());
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("Deleted") &&
                line.find(" " + address + "/") != std::string::npos) {
                return true;
            }
        }
        return false;
    }

 private:
    Program program_;
    int marks_ = 0;
};

TEST_F(VimbradIface, AddedAddressIsInTheKernel) {
    EXPECT_EQ(0, Add("10.1.2.3", 24));
    EXPECT_EQ(0, Add("fd00::3", 64, VIMBRA_SCOPE_TYPE_GLOBAL));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.3/24 global"));
    EXPECT_THAT(KernelAddresses("eth0", 10), ElementsAre("fd00::3/64 global"));
    EXPECT_THAT(Told(11), ElementsAre("10.1.2.3/24 global", "fd00::3/64 global"));
}

TEST_F(VimbradIface, AddedAddressHasItsSubnetsBroadcastAddress) {
    EXPECT_EQ(0, Add("10.1.2.3", 20));
    EXPECT_EQ("10.1.15.255",
              Ip("address show dev eth0").at(0).at("addr_info").at(0).at("broadcast"));
    EXPECT_EQ(0, Add("10.9.0.1", 31));
    EXPECT_EQ(0, Add("10.9.0.9", 32));
    EXPECT_FALSE(Ip("address show dev eth0").at(0).at("addr_info").at(1).contains("broadcast"));
}

TEST_F(VimbradIface, AddingTwiceIsRefused) {
    EXPECT_EQ(0, Add("10.1.2.3", 24));
    EXPECT_EQ(0, Add("fd00::3", 64));
    const Capture log;
    EXPECT_EQ(-1, Add("10.1.2.3", 24));
    EXPECT_EQ(-1, Add("fd00::3", 64));
    EXPECT_TRUE(Refused(log, "ApicIpaddrAdd", EEXIST));
    EXPECT_TRUE(daemon_.WaitLog("address add: refused with 17: File exists"));
}

TEST_F(VimbradIface, PrefixBeyondTheAddressIsRefused) {
    const Capture log;
    EXPECT_EQ(-1, Add("10.1.2.3", 33));
    EXPECT_EQ(-1, Add("10.1.2.3", 0xffffff00));
    EXPECT_EQ(-1, Add("fd00::3", 129));
    EXPECT_TRUE(Refused(log, "ApicIpaddrAdd", EINVAL));
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
    EXPECT_EQ(0, Add("10.1.2.3", 32));
    EXPECT_EQ(0, Add("fd00::3", 128));
}

TEST_F(VimbradIface, UnknownInterfaceIsRefused) {
    const Capture log;
    TVimbraIfaceIp entry = Entry("10.1.2.3", 24);
    TVimbraIfaceAllIp list{};
    TVimbraIfaceMac mac{};
    u32 mtu = 0;
    EXPECT_EQ(-1, VimbraIfaceAddIp(g_nowhere, &entry));
    EXPECT_EQ(-1, VimbraIfaceDelIp(g_nowhere, &entry));
    EXPECT_EQ(-1, VimbraIfaceFlushIp(g_nowhere, 2));
    EXPECT_EQ(-1, VimbraIfaceSetIp(g_nowhere, 2, &list));
    EXPECT_EQ(-1, VimbraIfaceGetIp(g_nowhere, 2, &list));
    EXPECT_EQ(-1, VimbraIfaceSetMac(g_nowhere, &mac));
    EXPECT_EQ(-1, VimbraIfaceGetMac(g_nowhere, &mac));
    EXPECT_EQ(-1, VimbraIfaceSetMtu(g_nowhere, 2, 1400));
    EXPECT_EQ(-1, VimbraIfaceGetMtu(g_nowhere, &mtu));
    for (const char* function :
         {"ApicIpaddrAdd", "ApicIpaddrDel", "ApicIpaddrFlush", "ApicIpaddrSet", "ApicIpaddrGet",
          "ApicMacSet", "ApicMacGet", "ApicMtuSet", "ApicMtuGet"}) {
        EXPECT_TRUE(Refused(log, function, ENODEV)) << function;
    }
}

TEST_F(VimbradIface, NameOfSixteenCharactersIsNoInterface) {
    // Its first 15 characters are one.
    MakeIface("e123456789");
    Shell("ip link set e123456789 down && ip link set e123456789 name abcdefghijklmno");
    char name[] = "abcdefghijklmnop";
    u32 mtu = 0;
    EXPECT_EQ(-1, VimbraIfaceGetMtu(name, &mtu));
    name[15] = '\0';
    EXPECT_EQ(0, VimbraIfaceGetMtu(name, &mtu));
}

TEST_F(VimbradIface, DeletingOneAddressLeavesTheOthersOfItsSubnet) {
    EXPECT_EQ(0, Add("10.1.2.3", 24));
    EXPECT_EQ(0, Add("10.1.2.4", 24));
    EXPECT_EQ(0, Add("10.1.2.5", 24));
    EXPECT_EQ(0, Delete("10.1.2.3", 24));
    EXPECT_THAT(KernelAddresses("eth0", 2),
                ElementsAre("10.1.2.4/24 global", "10.1.2.5/24 global"));
    EXPECT_EQ(1u, Ip("route show 10.1.2.0/24 dev eth0").size());
}

TEST_F(VimbradIface, DeletingWhatIsNotThereIsRefused) {
    EXPECT_EQ(0, Add("10.1.2.3", 24));
    const Capture log;
    EXPECT_EQ(-1, Delete("10.1.2.3", 16));
    EXPECT_EQ(-1, Delete("10.1.2.4", 24));
    EXPECT_EQ(-1, Delete("fd00::3", 64));
    EXPECT_TRUE(Refused(log, "ApicIpaddrDel", EADDRNOTAVAIL));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.3/24 global"));
}

TEST_F(VimbradIface, FlushTakesOneFamilyOrBoth) {
    const auto fill = [] {
        for (const char* each : {"10.1.2.3", "10.1.2.4", "172.16.0.1"}) {
            EXPECT_EQ(0, Add(each, 24));
        }
        EXPECT_EQ(0, Add("fd00::3", 64));
    };
    fill();
    EXPECT_EQ(0, VimbraIfaceFlushIp(g_eth0, 2));
    EXPECT_THAT(Told(11), ElementsAre("fd00::3/64 global"));
    EXPECT_EQ(0, VimbraIfaceFlushIp(g_eth0, 10));
    EXPECT_THAT(Told(11), IsEmpty());
    fill();
    EXPECT_EQ(0, VimbraIfaceFlushIp(g_eth0, 11));
    EXPECT_THAT(Told(11), IsEmpty());
    EXPECT_EQ(0, VimbraIfaceFlushIp(g_eth0, 11));
}

// Without it the interface would do no IPv6 until it goes down and up.
TEST_F(VimbradIface, KernelsLinkLocalAddressSurvivesFlushAndSet) {
    Shell("ip link set eth0 down && ip link set eth0 addrgenmode eui64 && ip link set eth0 up");
    ASSERT_TRUE(WaitFor([] { return KernelAddresses("eth0", 10).size() == 1; }));
    const std::vector<std::string> own = KernelAddresses("eth0", 10);
    EXPECT_EQ(0, Set(10, {Entry("fd00::3", 64), Entry("fe80::1", 64, VIMBRA_SCOPE_TYPE_LINK)}));
    EXPECT_THAT(KernelAddresses("eth0", 10),
                ElementsAre("fd00::3/64 global", "fe80::1/64 link", own[0]));
    EXPECT_EQ(0, VimbraIfaceFlushIp(g_eth0, 10));
    EXPECT_EQ(own, KernelAddresses("eth0", 10));
    EXPECT_EQ(own, Told(10));
}

TEST_F(VimbradIface, SetReplacesOneFamily) {
    EXPECT_EQ(0, Add("10.1.2.3", 24));
    EXPECT_EQ(0, Add("fd00::3", 64));
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.9", 24), Entry("172.16.0.1", 12)}));
    EXPECT_THAT(KernelAddresses("eth0", 2),
                ElementsAre("10.1.2.9/24 global", "172.16.0.1/12 global"));
    EXPECT_THAT(KernelAddresses("eth0", 10), ElementsAre("fd00::3/64 global"));
    EXPECT_EQ(0, Set(10, {Entry("fd00::4", 64)}));
    EXPECT_THAT(KernelAddresses("eth0", 10), ElementsAre("fd00::4/64 global"));
    EXPECT_EQ(0, Set(2, {}));
    EXPECT_THAT(Told(11), ElementsAre("fd00::4/64 global"));
}

TEST_F(VimbradIface, SetReplacesBothFamilies) {
    EXPECT_EQ(0, Add("10.1.2.3", 24));
    EXPECT_EQ(0, Add("fd00::3", 64));
    EXPECT_EQ(0, Set(11, {Entry("fd00::4", 64), Entry("10.1.2.4", 24)}));
    EXPECT_THAT(Told(11), ElementsAre("10.1.2.4/24 global", "fd00::4/64 global"));
    EXPECT_EQ(0, Set(11, {}));
    EXPECT_THAT(Told(11), IsEmpty());
}

TEST_F(VimbradIface, SetTakesSixteen) {
    TVimbraIfaceAllIp list{};
    for (u32 i = 0; i < 16; ++i) {
        list.atNetIfaceIp[list.dwIpNum++] = Entry(("10.1." + std::to_string(i) + ".1").c_str(), 24);
    }
    EXPECT_EQ(0, VimbraIfaceSetIp(g_eth0, 2, &list));
    EXPECT_EQ(16u, KernelAddresses("eth0", 2).size());
    EXPECT_EQ(Sorted(Told(2)), KernelAddresses("eth0", 2));
}

TEST_F(VimbradIface, SetKeepsTheOrder) {
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.9", 24), Entry("10.0.0.1", 24), Entry("10.1.2.1", 24)}));
    EXPECT_THAT(Told(2),
                ElementsAre("10.1.2.9/24 global", "10.0.0.1/24 global", "10.1.2.1/24 global"));
}

TEST_F(VimbradIface, SetNamesAnAddressTwice) {
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.9", 24), Entry("10.1.2.9", 24)}));
    EXPECT_THAT(Told(2), ElementsAre("10.1.2.9/24 global"));
}

// The first address of a subnet goes, the second stays: by itself the kernel would take both.
TEST_F(VimbradIface, AddressThatStaysIsNeverMissing) {
    EXPECT_EQ(0, Set(11, {Entry("10.1.2.3", 24), Entry("10.1.2.4", 24), Entry("fd00::3", 64),
                          Entry("fd00::4", 64)}));
    AddressMonitor monitor;
    EXPECT_EQ(0, Set(11, {Entry("10.1.2.4", 24), Entry("10.1.2.5", 24), Entry("fd00::4", 64),
                          Entry("fd00::5", 64)}));
    EXPECT_THAT(Sorted(Told(11)), ElementsAre("10.1.2.4/24 global", "10.1.2.5/24 global",
                                              "fd00::4/64 global", "fd00::5/64 global"));
    EXPECT_TRUE(monitor.Lost("10.1.2.3"));
    EXPECT_TRUE(monitor.Lost("fd00::3"));
    EXPECT_FALSE(monitor.Lost("10.1.2.4")) << monitor.Announced();
    EXPECT_FALSE(monitor.Lost("fd00::4")) << monitor.Announced();
}

// Once more from the network's side: the peer's requests are answered throughout.
TEST_F(VimbradIface, AddressThatStaysAnswersThroughout) {
    const Host peer;
    Shell("ip link del eth0");
    Connect("eth0", peer);
    peer.Shell("ip address add 10.1.2.100/24 dev eth0");
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24), Entry("10.1.2.4", 24)}));
    ASSERT_TRUE(WaitFor([&peer] { return peer.ShellStatus("ping -c 1 -W 1 10.1.2.4") == 0; }));
    Program ping({"nsenter", "-t", std::to_string(peer.Pid()), "-n", "ping", "-i", "0.002", "-c",
                  "400", "-W", "60", "10.1.2.4"},
                 "/tmp/ping");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(0, Set(2, {Entry("10.1.2.4", 24), Entry("10.1.2.5", 24)}));
        EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24), Entry("10.1.2.4", 24)}));
    }
    EXPECT_EQ(0, ping.Wait());
    EXPECT_TRUE(ping.WaitOutput("400 received, 0% packet loss")) << ping.Output();
}

TEST_F(VimbradIface, RefusedSetChangesNothing) {
    EXPECT_EQ(0, Set(11, {Entry("10.1.2.3", 24), Entry("fd00::3", 64)}));
    const Capture log;
    // Refused before anything is done.
    EXPECT_EQ(-1, Set(2, {Entry("10.1.2.4", 24), Entry("fd00::4", 64)}));
    EXPECT_EQ(-1, Set(11, {Entry("10.1.2.4", 24), Entry("10.1.2.5", 33)}));
    EXPECT_TRUE(Refused(log, "ApicIpaddrSet", EINVAL));
    EXPECT_THAT(Told(11), ElementsAre("10.1.2.3/24 global", "fd00::3/64 global"));
    // Refused by the kernel on the way: an address that came goes again, one that changed its
    // prefix changes back.
    EXPECT_EQ(-1, Set(11, {Entry("10.1.2.4", 24), Entry("fd00::3", 48), Entry("ff02::1", 64)}));
    EXPECT_TRUE(Refused(log, "ApicIpaddrSet", EADDRNOTAVAIL));
    EXPECT_THAT(Told(11), ElementsAre("10.1.2.3/24 global", "fd00::3/64 global"));
}

TEST_F(VimbradIface, SetChangesThePrefixOfAnAddress) {
    EXPECT_EQ(0, Set(11, {Entry("10.1.2.3", 24), Entry("fd00::3", 64)}));
    EXPECT_EQ(0, Set(11, {Entry("10.1.2.3", 16), Entry("fd00::3", 48)}));
    EXPECT_THAT(Told(11), ElementsAre("10.1.2.3/16 global", "fd00::3/48 global"));
    // It was in use: nobody needs to be asked whether it is free.
    EXPECT_EQ("", Shell("ip -6 address show dev eth0 tentative"));
}

TEST_F(VimbradIface, SetGivesAnAddressLinkScope) {
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24)}));
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24, VIMBRA_SCOPE_TYPE_LINK)}));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.3/24 link"));
    EXPECT_THAT(Told(2), ElementsAre("10.1.2.3/24 link"));
    // The default is whatever the kernel has.
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24)}));
    EXPECT_THAT(Told(2), ElementsAre("10.1.2.3/24 link"));
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24, VIMBRA_SCOPE_TYPE_GLOBAL)}));
    EXPECT_THAT(Told(2), ElementsAre("10.1.2.3/24 global"));
}

// The kernel wants one scope for a subnet: the old addresses must go before the new one comes.
TEST_F(VimbradIface, SetChangesTheScopeOfASubnet) {
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.3", 24), Entry("10.1.2.4", 24), Entry("10.1.3.4", 24)}));
    EXPECT_EQ(0, Set(2, {Entry("10.1.2.5", 24, VIMBRA_SCOPE_TYPE_LINK), Entry("10.1.3.4", 24)}));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.5/24 link", "10.1.3.4/24 global"));
    // Both at once cannot be: what was there comes back.
    EXPECT_EQ(-1, Set(2, {Entry("10.1.2.6", 24, VIMBRA_SCOPE_TYPE_GLOBAL),
                          Entry("10.1.2.7", 24, VIMBRA_SCOPE_TYPE_LINK)}));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("10.1.2.5/24 link", "10.1.3.4/24 global"));
}

TEST_F(VimbradIface, AtMostSixteenAreTold) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(0, Add(("10.1." + std::to_string(i) + ".1").c_str(), 24));
    }
    EXPECT_EQ(0, Add("fd00::3", 64));
    EXPECT_EQ(16u, Told(2).size());
    EXPECT_EQ(16u, Told(11).size());
    EXPECT_THAT(Told(10), ElementsAre("fd00::3/64 global"));
    EXPECT_EQ("10.1.0.1/24 global", Told(11)[0]);
}

TEST_F(VimbradIface, ToldIsWhatTheKernelHas) {
    Shell(
        "ip address add 10.1.2.3/24 dev eth0 && ip address add 10.1.3.4/24 dev eth0 scope link && "
        "ip address add 10.9.0.1 peer 10.9.0.2/32 dev eth0 && "
        "ip address add fd00::3/64 dev eth0 && ip address add fe80::5/64 dev eth0");
    EXPECT_EQ(KernelAddresses("eth0", 2), Sorted(Told(2)));
    EXPECT_EQ(KernelAddresses("eth0", 10), Sorted(Told(10)));
}

TEST_F(VimbradIface, LoopbacksHostScopeIsTold) {
    TVimbraIfaceAllIp list{};
    char lo[] = "lo";
    EXPECT_EQ(0, VimbraIfaceGetIp(lo, 11, &list));
    ASSERT_EQ(2u, list.dwIpNum);
    EXPECT_EQ("127.0.0.1/8 host", InWords(list.atNetIfaceIp[0]));
    EXPECT_EQ("::1/128 host", InWords(list.atNetIfaceIp[1]));
}

TEST_F(VimbradIface, MacIsSetAndTold) {
    TVimbraIfaceMac mac{{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}};
    EXPECT_EQ(0, VimbraIfaceSetMac(g_eth0, &mac));
    EXPECT_EQ("02:11:22:33:44:55", Ip("link show dev eth0").at(0).at("address"));
    TVimbraIfaceMac told{};
    EXPECT_EQ(0, VimbraIfaceGetMac(g_eth0, &told));
    EXPECT_EQ(0, std::memcmp(&mac, &told, sizeof(mac)));
}

TEST_F(VimbradIface, MulticastMacIsRefused) {
    const std::string before = Ip("link show dev eth0").at(0).at("address");
    const Capture log;
    TVimbraIfaceMac mac{{0x01, 0x11, 0x22, 0x33, 0x44, 0x55}};
    EXPECT_EQ(-1, VimbraIfaceSetMac(g_eth0, &mac));
    EXPECT_TRUE(Refused(log, "ApicMacSet", EADDRNOTAVAIL));
    EXPECT_EQ(before, Ip("link show dev eth0").at(0).at("address"));
}

TEST_F(VimbradIface, InterfaceWithoutMacSaysSo) {
    Shell("ip tuntap add dev tun0 mode tun");
    const Capture log;
    TVimbraIfaceMac mac{{1, 2, 3, 4, 5, 6}};
    char tun0[] = "tun0";
    EXPECT_EQ(-1, VimbraIfaceGetMac(tun0, &mac));
    EXPECT_TRUE(Refused(log, "ApicMacGet", EOPNOTSUPP));
    EXPECT_EQ(1, mac.abyMacAddr[0]);
}

TEST_F(VimbradIface, MtuIsSetAndTold) {
    EXPECT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 500));
    EXPECT_EQ(500, Ip("link show dev eth0").at(0).at("mtu"));
    u32 mtu = 0;
    EXPECT_EQ(0, VimbraIfaceGetMtu(g_eth0, &mtu));
    EXPECT_EQ(500u, mtu);
    EXPECT_EQ(0, VimbraIfaceSetMtu(g_eth0, 10, 9000));
    EXPECT_EQ(9000, Ip("link show dev eth0").at(0).at("mtu"));
}

TEST_F(VimbradIface, MtuBeyondTheInterfacesIsRefused) {
    const Capture log;
    EXPECT_EQ(-1, VimbraIfaceSetMtu(g_eth0, 2, 65536));
    EXPECT_EQ(-1, VimbraIfaceSetMtu(g_eth0, 2, 0xffffffff));
    EXPECT_TRUE(Refused(log, "ApicMtuSet", EINVAL));
    EXPECT_EQ(1500, Ip("link show dev eth0").at(0).at("mtu"));
}

TEST_F(VimbradIface, LogSwitchReachesTheDaemon) {
    u32 mtu = 0;
    EXPECT_EQ(0, VimbraLogSwitch(VIMBRA_LEVEL_DEBUG));
    EXPECT_EQ(0, VimbraIfaceGetMtu(g_eth0, &mtu));
    EXPECT_TRUE(daemon_.WaitLog("debug: mtu get"));
    EXPECT_EQ(0, VimbraLogSwitch(VIMBRA_LEVEL_NONE));
    const std::string before = daemon_.Log();
    EXPECT_EQ(-1, VimbraIfaceGetMtu(g_nowhere, &mtu));
    EXPECT_EQ(before, daemon_.Log());
}

}  // namespace
}  // namespace vimbra::tests
