// The DHCP client: a real server on the other side of the link hands out what the application is
// told and the kernel has.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/dhcpc.h>
#include <vimbra/dns.h>
#include <vimbra/net_dhcpc.h>
#include <vimbra/vimbra.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <mutex>

#include "../ground/address.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr u32 kStart = 0x501;
constexpr u32 kStop = 0x502;
constexpr u32 kRenew = 0x507;
constexpr u32 kLease = 0x505;
constexpr u32 kFail = 0x506;
constexpr char kSocket[] = "ipc_dhcpc_eth0";

Bytes Body(const std::string& iface, u16 family = 2) {
    return Pack().U16(family).Text(iface, 16);
}

// What the application was told, in words.
std::string InWords(u32 event, const TVimbraDhcpcAddrInfo& info) {
    std::string text = std::to_string(event) + " " + std::string(info.achDevName);
    if (info.tIpAddrs.wSinFamily != 0) {
        text += " " + TextOf(info.tIpAddrs) + "/" + std::to_string(info.dwIpPrefix) + " via " +
                TextOf(info.tGateWay) + " for " + std::to_string(info.dwLeaseTime);
    }
    for (u32 i = 0; i < info.dwDnsNum; ++i) {
        text += " dns " + TextOf(info.atDnsServer[i]);
    }
    return text;
}

// The events that the callback has got. Never destroyed: a client's last callback may come while the
// process ends.
std::mutex g_mutex;
std::vector<std::string>& g_reported = *new std::vector<std::string>;

int Take(u32 event, TVimbraDhcpcAddrInfo* info) {
    const std::lock_guard lock(g_mutex);
    g_reported.push_back(InWords(event, *info));
    return 0;
}

std::vector<std::string> Reported() {
    const std::lock_guard lock(g_mutex);
    return g_reported;
}

std::vector<std::string> WaitReported(size_t count) {
    EXPECT_TRUE(WaitFor([count] { return Reported().size() >= count; }));
    return Reported();
}

std::string DefaultRoute() {
    return Shell("ip -4 route show default");
}

// The processes of DHCP clients: the command line of each by its id.
std::map<pid_t, std::string> Clients() {
    std::map<pid_t, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        std::string line = ReadFile(entry.path() / "cmdline");
        std::ranges::replace(line, '\0', ' ');
        if (pid != 0 && (line.find("udhcpc -f") != std::string::npos ||
                         line.starts_with("udhcpc6 ") || line.starts_with("dhclient "))) {
            found[pid] = line;
        }
    }
    return found;
}

constexpr char kResolvConf[] = "/etc/resolv.conf";
constexpr char kServers[] = "####eth0\nnameserver 192.0.2.53\nnameserver 192.0.2.54\n";
constexpr char kNoServers[] = "####eth0\n";

constexpr char kPool[] = "start 192.0.2.100\nend 192.0.2.100\n";
constexpr char kOptions[] =
    "option subnet 255.255.255.128\noption router 192.0.2.1\n"
    "option dns 192.0.2.53 192.0.2.54\noption lease 3600\n";

constexpr char kTold[] =
    "30001 eth0 192.0.2.100/25 via 192.0.2.1 for 3600 dns 192.0.2.53 dns 192.0.2.54";

// A second host at the other end of eth0.
class VimbradDhcpClient : public testing::Test {
 protected:
    void SetUp() override {
        Connect("eth0", host_);
        Shell("ip link set eth0 down");
        host_.Shell("ip address add 192.0.2.1/25 dev eth0");
    }

    void Serve(const std::string& pool = kPool, const std::string& options = kOptions) {
        server_.reset();
        server_ = RunUdhcpd(host_, pool + options);
    }

    Host host_;
    std::unique_ptr<Program> server_;
    Daemon daemon_{{"--log-level=5"}};
};

TEST_F(VimbradDhcpClient, ApplicationIsToldWhatTheServerHandsOut) {
    VimbraInit();
    Serve();
    // The file is made if it is not there.
    ASSERT_EQ(0, unlink(kResolvConf));
    ASSERT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_THAT(WaitReported(1), ElementsAre(kTold)) << daemon_.Log();
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("192.0.2.100/25 global"));
    EXPECT_THAT(DefaultRoute(), HasSubstr("default via 192.0.2.1 dev eth0"));
    EXPECT_EQ("", Shell("ping -q -c 1 -w 5 192.0.2.1 > /dev/null"));
    EXPECT_EQ(kServers, ReadFile(kResolvConf));

    TVimbraDhcpcAddrInfo lease{};
    ASSERT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &lease));
    EXPECT_EQ(kTold, InWords(VIMBRA_DHCPC_EVENT_LEASE, lease));

    // Once by a signal to the process, once by the daemon, once by starting what runs.
    ASSERT_EQ(0, VimbraDhcpcRenew("eth0", 2));
    EXPECT_THAT(WaitReported(2), ElementsAre(kTold, kTold)) << daemon_.Log();
    ASSERT_EQ(0, AndoridDhcpcRenew("eth0", 2));
    EXPECT_THAT(WaitReported(3), ElementsAre(kTold, kTold, kTold)) << daemon_.Log();
    ASSERT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_THAT(WaitReported(4), ElementsAre(kTold, kTold, kTold, kTold)) << daemon_.Log();
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("192.0.2.100/25 global"));

    ASSERT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_THAT(Clients(), IsEmpty());
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
    EXPECT_EQ("", DefaultRoute());
    EXPECT_EQ(kNoServers, ReadFile(kResolvConf));
    // The log is the daemon's own.
    EXPECT_THAT(daemon_.Log(), Not(HasSubstr("VIMBRA_")));
}

// All but the DNS servers is set and told.
TEST_F(VimbradDhcpClient, ResolverConfigurationThatCannotBeRead) {
    Serve();
    ASSERT_EQ(0, unlink(kResolvConf));
    ASSERT_EQ(0, mkdir(kResolvConf, 0755));
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_EQ(kLease, listener.Wait(1)[0].type);
    EXPECT_TRUE(daemon_.WaitLog("the DNS servers cannot be set")) << daemon_.Log();
    EXPECT_THAT(daemon_.Log(), HasSubstr("/etc/resolv.conf cannot be read: Is a directory"));
    EXPECT_THAT(KernelAddresses("eth0", 2), ElementsAre("192.0.2.100/25 global"));
    EXPECT_THAT(DefaultRoute(), HasSubstr("default via 192.0.2.1 dev eth0"));
    EXPECT_EQ(0, Ask(kStop, Body("eth0")));
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
}

TEST_F(VimbradDhcpClient, ClientIsFoundByItsCommandLine) {
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_TRUE(WaitFor([] {
        const auto clients = Clients();
        return clients.size() == 1 &&
               clients.begin()->second.find("udhcpc -f -R -i eth0 ") != std::string::npos;
    }));
}

// The only address of the pool is free for another.
TEST_F(VimbradDhcpClient, StopTellsTheServer) {
    Serve();
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_EQ(kLease, listener.Wait(1)[0].type);
    ASSERT_EQ(0, Ask(kStop, Body("eth0")));
    EXPECT_EQ(0, Ask(kStop, Body("eth0")));
    Shell("ip link set eth0 down && ip link set eth0 address 02:00:00:00:00:99");
    EXPECT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_EQ(kLease, listener.Wait(2)[1].type);
}

TEST_F(VimbradDhcpClient, WithoutAServerTheFailureIsTold) {
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    const auto told = listener.Wait(1)[0];
    EXPECT_EQ(kFail, told.type);
    ASSERT_EQ(1348u, told.body.size());
    EXPECT_EQ("eth0", told.body.Text(0, 16));
}

TEST_F(VimbradDhcpClient, AnotherLeaseTakesThePlaceOfTheFirst) {
    Serve();
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    listener.Wait(1);
    host_.Shell("ip address add 198.51.100.1/24 dev eth0");
    Serve("start 198.51.100.7\nend 198.51.100.7\n",
          "option subnet 255.255.255.0\noption lease 60\n");
    ASSERT_EQ(0, Ask(kRenew, Body("eth0")));
    EXPECT_TRUE(WaitFor([&] { return listener.Messages().back().type == kLease; }));
    EXPECT_TRUE(WaitFor([] {
        return KernelAddresses("eth0", 2) == std::vector<std::string>{"198.51.100.7/24 global"};
    })) << daemon_.Log();
    EXPECT_EQ("", DefaultRoute());
}

TEST_F(VimbradDhcpClient, WhatOthersHaveSetStays) {
    Serve();
    Shell("ip address add 192.0.2.100/25 dev eth0");
    Shell("ip address add 203.0.113.1/24 dev eth0");
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_EQ(kLease, listener.Wait(1)[0].type);
    Shell("ip route replace default via 192.0.2.2 dev eth0");
    EXPECT_TRUE(WaitFor([] { return ReadFile(kResolvConf) == kServers; }));
    TVimbraAddr server{};
    server.wSinFamily = VIMBRA_FAMILY_IPV4;
    server.tV4Addr.s_addr = inet_addr("192.0.2.99");
    std::string name = "eth0";
    ASSERT_EQ(0, VimbraDNSSet(name.data(), VIMBRA_FAMILY_IPV4, &server, 1));
    ASSERT_EQ(0, Ask(kStop, Body("eth0")));
    EXPECT_EQ("####eth0\nnameserver 192.0.2.99\n", ReadFile(kResolvConf));
    EXPECT_THAT(KernelAddresses("eth0", 2),
                ElementsAre("192.0.2.100/25 global", "203.0.113.1/24 global"));
    EXPECT_THAT(DefaultRoute(), HasSubstr("via 192.0.2.2"));
}

TEST_F(VimbradDhcpClient, EndOfTheDaemonEndsItsClients) {
    Serve();
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    listener.Wait(1);
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_THAT(Clients(), IsEmpty());
    EXPECT_THAT(KernelAddresses("eth0", 2), IsEmpty());
    EXPECT_EQ("", Directories());
}

TEST_F(VimbradDhcpClient, ClientThatDiesIsStartedAgain) {
    Serve();
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    listener.Wait(1);
    ASSERT_EQ(1u, Clients().size());
    ASSERT_EQ(0, kill(Clients().begin()->first, SIGKILL));
    const auto told = listener.Wait(3);
    EXPECT_EQ(kFail, told[1].type);
    EXPECT_EQ(kLease, told[2].type);
}

TEST_F(VimbradDhcpClient, Refusals) {
    EXPECT_EQ(ENODEV, Ask(kStart, Body("nowhere0")));
    EXPECT_EQ(ENODEV, Ask(kStart, Body("")));
    EXPECT_EQ(ENODEV, Ask(kStart, Body(std::string(16, 'x'))));
    EXPECT_EQ(EINVAL, Ask(kStart, Body("eth0", 0)));
    EXPECT_EQ(ENODEV, Ask(kStart, Body("nowhere0", 10)));
    EXPECT_EQ(EINVAL, Ask(kStop, Body("eth0", 11)));
    for (const u16 family : {2, 10}) {
        EXPECT_EQ(ESRCH, Ask(kRenew, Body("eth0", family)));
        EXPECT_EQ(0, Ask(kStop, Body("eth0", family)));
    }
    EXPECT_THAT(Clients(), IsEmpty());
}

// ---- IPv6

constexpr char kTold6[] =
    "30001 eth0 2001:db8::100/128 via :: for 120 dns 2001:db8::53 dns 2001:db8::54";
constexpr char kServers6[] = "####eth0v6\nnameserver 2001:db8::53\nnameserver 2001:db8::54\n";

class VimbradDhcpClient6 : public VimbradDhcpClient {
 protected:
    void SetUp() override {
        VimbradDhcpClient::SetUp();
        host_.Shell("ip address add 2001:db8::1/64 dev eth0 nodad");
    }

    void Serve6() { server6_ = RunDnsmasq6(host_, "[2001:db8::53],[2001:db8::54]"); }

    std::unique_ptr<Program> server6_;
};

TEST_F(VimbradDhcpClient6, ApplicationIsToldWhatTheServerHandsOut) {
    const std::string before = ReadFile(kResolvConf);
    VimbraInit();
    Serve6();
    ASSERT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_THAT(WaitReported(1), ElementsAre(kTold6)) << daemon_.Log();
    EXPECT_THAT(KernelAddresses("eth0", 10), Contains("2001:db8::100/128 global"));
    EXPECT_TRUE(WaitFor([] { return ReadFile(kResolvConf) == kServers6; }));

    // Once by a signal to the process, once by the daemon, once by starting what runs.
    ASSERT_EQ(0, VimbraDhcpcRenew("eth0", 10));
    EXPECT_THAT(WaitReported(2), ElementsAre(kTold6, kTold6)) << daemon_.Log();
    ASSERT_EQ(0, AndoridDhcpcRenew("eth0", 10));
    EXPECT_THAT(WaitReported(3), ElementsAre(kTold6, kTold6, kTold6)) << daemon_.Log();
    ASSERT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_THAT(WaitReported(4), ElementsAre(kTold6, kTold6, kTold6, kTold6)) << daemon_.Log();
    EXPECT_THAT(KernelAddresses("eth0", 10), Contains("2001:db8::100/128 global"));
    EXPECT_EQ(1u, Clients().size());

    ASSERT_EQ(0, VimbraDhcpcStop("eth0", 10));
    EXPECT_THAT(Clients(), IsEmpty());
    EXPECT_THAT(KernelAddresses("eth0", 10), Not(Contains("2001:db8::100/128 global")));
    EXPECT_EQ(before, ReadFile(kResolvConf));
    EXPECT_TRUE(server6_->WaitOutput("DHCPRELEASE"));
}

TEST_F(VimbradDhcpClient6, WithoutAServerTheFailureIsTold) {
    Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Body("eth0", 10)));
    const auto told = listener.Wait(1)[0];
    EXPECT_EQ(kFail, told.type);
    ASSERT_EQ(1348u, told.body.size());
    EXPECT_EQ("eth0", told.body.Text(0, 16));
    // It goes on asking.
    Serve6();
    EXPECT_TRUE(WaitFor([&] { return listener.Messages().back().type == kLease; }));
}

TEST_F(VimbradDhcpClient6, ClientThatDiesIsStartedAgain) {
    Serve6();
    Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Body("eth0", 10)));
    listener.Wait(1);
    ASSERT_EQ(1u, Clients().size());
    ASSERT_EQ(0, kill(Clients().begin()->first, SIGKILL));
    const auto told = listener.Wait(3);
    EXPECT_EQ(kFail, told[1].type);
    EXPECT_EQ(kLease, told[2].type);
}

TEST_F(VimbradDhcpClient6, EndOfTheDaemonEndsItsClients) {
    Serve6();
    Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Body("eth0", 10)));
    listener.Wait(1);
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_TRUE(WaitFor([] { return Clients().empty(); }));
    EXPECT_THAT(KernelAddresses("eth0", 10), Not(Contains("2001:db8::100/128 global")));
    EXPECT_EQ("", Directories());
}

// Applications look for "udhcpc", which is a part of "udhcpc6": whichever program the signal finds,
// both families' applications are served.
TEST_F(VimbradDhcpClient6, BothFamiliesRenew) {
    VimbraInit();
    Serve6();
    Serve();
    Listener listener("ipc_dhcpcv6_eth0");
    ASSERT_EQ(0, Ask(kStart, Body("eth0", 10)));
    listener.Wait(1);
    ASSERT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_THAT(WaitReported(1), ElementsAre(kTold)) << daemon_.Log();
    ASSERT_EQ(0, VimbraDhcpcRenew("eth0", 2));
    EXPECT_THAT(WaitReported(2), ElementsAre(kTold, kTold)) << daemon_.Log();
    // The newest section is the first.
    EXPECT_EQ(std::string(kServers) + kServers6, ReadFile(kResolvConf));
}

TEST_F(VimbradDhcpClient, NeedsNoFileSystemThatRunsPrograms) {
    for (const char* each : {"/tmp", "/run"}) {
        Shell(std::string("mount -o remount,noexec ") + each);
    }
    Serve();
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    EXPECT_EQ(kLease, listener.Wait(1).at(0).type);
}

TEST_F(VimbradDhcpClient, ServersFromBeforeComeBackWithTheEnd) {
    constexpr char kBefore[] = "search example.org\nnameserver 203.0.113.53\n";
    WriteFile(kResolvConf, kBefore);
    Serve();
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    ASSERT_EQ(kLease, listener.Wait(1).at(0).type);
    EXPECT_THAT(ReadFile(kResolvConf), HasSubstr("nameserver 192.0.2.53\n"));
    EXPECT_EQ(0, Ask(kStop, Body("eth0")));
    EXPECT_EQ(kBefore, ReadFile(kResolvConf));
}

// The program may not know the signal yet, and would end by it.
TEST_F(VimbradDhcpClient, RenewalRightAfterTheStartEndsNothing) {
    Serve();
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Body("eth0")));
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(0, Ask(kRenew, Body("eth0")));
    }
    EXPECT_EQ(kLease, listener.Wait(1).at(0).type);
    EXPECT_THAT(daemon_.Log(), Not(HasSubstr("ended with")));
}

}  // namespace
}  // namespace vimbra::tests
