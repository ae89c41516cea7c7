// The DHCP server: a real client on the other side of the link gets its address from it, and the
// application is told of that very lease.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/dhcps.h>
#include <vimbra/net_dhcps.h>
#include <vimbra/vimbra.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "../ground/address.hpp"
#include "../ground/lease_watches.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr u32 kStart = 0x801;
constexpr u32 kStop = 0x802;
constexpr char kLeases[] = "/usr/etc/udhcpd.leases";

TVimbraDhcpsInfo Pool(const char* start, const char* end, const char* router = "0.0.0.0",
                      const std::vector<const char*>& dns = {}) {
    TVimbraDhcpsInfo pool{};
    pool.tIpPoolStart = Address(start);
    pool.tIpPoolEnd = Address(end);
    pool.dwIpPoolPrefix = 25;
    pool.tRoutes = Address(router);
    for (const char* each : dns) {
        pool.tDnsServerInfo.tDnsIp[pool.tDnsServerInfo.dwDnsNum++] = Address(each);
    }
    return pool;
}

Bytes StartBody(const std::string& name, u16 family, const TVimbraDhcpsInfo& pool) {
    Bytes body = Pack().Text(name, 16).U16(family);
    const auto* bytes = reinterpret_cast<const char*>(&pool);
    body.insert(body.end(), bytes, bytes + sizeof(pool));
    return body;
}

s32 Start(std::string name, TVimbraDhcpsInfo pool) {
    return VimbraDhcpsStart(name.data(), VIMBRA_FAMILY_IPV4, &pool);
}

s32 Stop(std::string name) {
    return VimbraDhcpsStop(name.data(), VIMBRA_FAMILY_IPV4);
}

u32 Runs(std::string name) {
    TVimbraDhcpsState state{77};
    EXPECT_EQ(0, VimbraDhcpsGetState(name.data(), VIMBRA_FAMILY_IPV4, &state));
    return state.dwDhcpsIsRun;
}

std::vector<std::string> Servers() {
    std::vector<std::string> found;
    std::istringstream lines(Shell(
        "for each in /proc/[0-9]*/cmdline; do tr \"\\0\" \" \" < $each 2>/dev/null; echo; done"));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("busybox udhcpd ")) {
            found.push_back(line);
        }
    }
    return found;
}

// The leases that the legacy callback has been told, "address mac".
std::mutex g_mutex;
// Never destroyed: a watch has no end, and may still report when the test has ended.
std::vector<std::string>& g_leases = *new std::vector<std::string>;

int Take(u32, TNetDhcpsNotify* notify) {
    const std::lock_guard lock(g_mutex);
    for (u32 i = 0; i < notify->dhcps_index; ++i) {
        const TDhcpsMacIp& lease = notify->dhcps_mac_ip[i];
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &lease.dhcps_ip, address, sizeof(address));
        char mac[18] = "";
        const u8* bytes = lease.dhcps_mac;
        snprintf(mac, sizeof(mac), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                 bytes[3], bytes[4], bytes[5]);
        g_leases.push_back(std::string(address) + " " + mac);
    }
    return 0;
}

std::vector<std::string> Leases() {
    const std::lock_guard lock(g_mutex);
    return g_leases;
}

// A device with an address on eth0, and a second host on its link.
class VimbradDhcpServer : public testing::Test {
 protected:
    void SetUp() override {
        VimbraInit();
        Connect("eth0", host_);
        Shell("ip address add 192.0.2.1/25 dev eth0");
    }

    Host host_;
    Daemon daemon_{{"--log-level=5"}};
};

TEST_F(VimbradDhcpServer, HandsOutWhatItWasGiven) {
    EXPECT_EQ(0u, Runs("eth0"));
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.50", "192.0.2.50", "192.0.2.1",
                                    {"192.0.2.53", "192.0.2.54"})));
    EXPECT_EQ(1u, Runs("eth0"));
    const std::string told = RunUdhcpc(host_);
    EXPECT_THAT(told, HasSubstr("ip=192.0.2.50\n")) << daemon_.Log();
    EXPECT_THAT(told, HasSubstr("mask=25\n"));
    EXPECT_THAT(told, HasSubstr("router=192.0.2.1\n"));
    EXPECT_THAT(told, HasSubstr("dns=192.0.2.53 192.0.2.54\n"));
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_EQ(0u, Runs("eth0"));
    EXPECT_TRUE(Servers().empty());
    EXPECT_THAT(RunUdhcpc(host_, 5), Not(HasSubstr("ip=")));
    EXPECT_EQ(0, Stop("eth0"));
}

TEST_F(VimbradDhcpServer, LegacyCallbackIsToldOfTheLease) {
    TDhcpServerConfInfo configuration{};
    TDhcpServerEthInfo& eth = configuration.achTDhcpServerEthInfo[0];
    eth.dwNetMask = 25;
    eth.dwIpPoolStart = inet_addr("192.0.2.60");
    eth.dwIpPoolEnd = inet_addr("192.0.2.60");
    eth.dwRoutes = inet_addr("192.0.2.1");
    ASSERT_EQ(0, NetDhcpsStart(&configuration, Take));
    ASSERT_TRUE(WaitFor([] { return LeaseWatches() == 1; }));
    TNetDhcpsState state{};
    EXPECT_EQ(0, NetDhcpsGetState(0, &state));
    EXPECT_EQ(1u, state.dwDhcpsIsRun);
    EXPECT_THAT(RunUdhcpc(host_), HasSubstr("ip=192.0.2.60\n"));
    EXPECT_TRUE(WaitFor([] { return !Leases().empty(); })) << daemon_.Log();
    EXPECT_THAT(Leases(), Contains("192.0.2.60 " + MacOf(host_)));
    EXPECT_EQ(0, NetDhcpsStopOneEth(0));
    EXPECT_EQ(0u, Runs("eth0"));
}

TEST_F(VimbradDhcpServer, EachInterfaceHasItsOwn) {
    Host other;
    Connect("eth1", other);
    Shell("ip address add 192.0.2.129/25 dev eth1");
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.50", "192.0.2.51")));
    ASSERT_EQ(0, Start("eth1", Pool("192.0.2.150", "192.0.2.151")));
    EXPECT_EQ(2u, Servers().size());
    EXPECT_THAT(RunUdhcpc(host_), HasSubstr("ip=192.0.2.5"));
    EXPECT_THAT(RunUdhcpc(other), HasSubstr("ip=192.0.2.15"));
    EXPECT_TRUE(WaitFor([] { return ReadFile(kLeases).size() == 8 + 36; }));
    EXPECT_TRUE(WaitFor([] { return ReadFile(std::string(kLeases) + ".eth1").size() == 8 + 36; }));
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_EQ(0u, Runs("eth0"));
    EXPECT_EQ(1u, Runs("eth1"));
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.50", "192.0.2.51")));
    EXPECT_EQ(0, NetDhcpsStop());
    EXPECT_EQ(0u, Runs("eth0"));
    EXPECT_EQ(0u, Runs("eth1"));
    EXPECT_TRUE(Servers().empty());
    EXPECT_EQ(0, NetDhcpsStop());
}

TEST_F(VimbradDhcpServer, AnotherPoolTakesThePlaceOfTheFirst) {
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.50", "192.0.2.50")));
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.70", "192.0.2.70")));
    EXPECT_EQ(1u, Servers().size());
    EXPECT_THAT(RunUdhcpc(host_), HasSubstr("ip=192.0.2.70\n"));
}

TEST_F(VimbradDhcpServer, EndOfTheDaemonEndsItsServers) {
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.50", "192.0.2.50")));
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_TRUE(Servers().empty());
    EXPECT_EQ("", Directories());
}

TEST_F(VimbradDhcpServer, Refusals) {
    const auto ask = [](const std::string& name, u16 family, const TVimbraDhcpsInfo& pool) {
        return Ask(kStart, StartBody(name, family, pool));
    };
    const TVimbraDhcpsInfo pool = Pool("192.0.2.50", "192.0.2.60");
    EXPECT_EQ(ENODEV, ask("nowhere0", 2, pool));
    EXPECT_EQ(ENODEV, ask("", 2, pool));
    EXPECT_EQ(EINVAL, ask("eth0", 0, pool));
    EXPECT_EQ(ENOTSUP, ask("eth0", 10, pool));
    EXPECT_EQ(EINVAL, ask("eth0", 2, Pool("192.0.2.60", "192.0.2.50")));
    TVimbraDhcpsInfo wrong = pool;
    wrong.dwIpPoolPrefix = 0;
    EXPECT_EQ(EINVAL, ask("eth0", 2, wrong));
    wrong.dwIpPoolPrefix = 33;
    EXPECT_EQ(EINVAL, ask("eth0", 2, wrong));
    wrong = pool;
    wrong.tIpPoolEnd.wSinFamily = 10;
    EXPECT_EQ(EINVAL, ask("eth0", 2, wrong));
    wrong = pool;
    wrong.tDnsServerInfo.dwDnsNum = 65;
    EXPECT_EQ(EINVAL, ask("eth0", 2, wrong));
    EXPECT_EQ(ENOTSUP, Ask(kStop, Pack().Text("eth0", 16).U16(10)));
    EXPECT_EQ(EINVAL, Ask(kStop, Pack().Text("eth0", 16).U16(3)));
    EXPECT_TRUE(Servers().empty());
}

// However long that takes.
TEST(VimbradDhcpServerStart, IsAnsweredWhenTheServerServes) {
    Pretend("busybox", "sleep 1\nPATH=${PATH#*:}\nexec busybox \"$@\"\n");
    MakeIface("eth0");
    Shell("ip address add 192.0.2.1/25 dev eth0");
    Daemon daemon;
    ASSERT_EQ(0, Start("eth0", Pool("192.0.2.50", "192.0.2.50"))) << daemon.Log();
    EXPECT_THAT(ReadFile("/proc/net/udp"), HasSubstr(":0043 "));
    EXPECT_EQ(0, Stop("eth0"));
}

TEST(VimbradDhcpServerStart, IsRefusedWhenTheServerEndsLate) {
    Pretend("busybox", "sleep 1\nexit 1\n");
    MakeIface("eth0");
    Daemon daemon;
    EXPECT_EQ(EIO, Ask(kStart, StartBody("eth0", 2, Pool("192.0.2.50", "192.0.2.50"))));
    EXPECT_TRUE(daemon.WaitLog("the server ended before it served"));
    EXPECT_EQ(0u, Runs("eth0"));
}

}  // namespace
}  // namespace vimbra::tests
