// DHCP client, PPPoE and NTP client without memory: every allocation of a call fails in turn, and
// those of the listening threads.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>
#include <vimbra/ntpc.h>
#include <vimbra/pppoe.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vimbra/bed.hpp>

#include "../ground/memory.hpp"
#include "api/api_ntpc/api_ntpc.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

int TakeDhcp(u32, VimbraDhcpcAddrInfo*) {
    return 0;
}

void TakePppoe(u32, void*, u32) {}

int TakeNtp(u32, void*) {
    return 0;
}

s32 StartPppoe(u16 family) {
    TVimbraPppoeParam param = {};
    param.achUserName[0] = param.achPassword[0] = param.achDevName[0] = 'x';
    return VimbraPppoeStart(&param, family, TakePppoe);
}

s32 StartNtp(u16 family) {
    TVimbraAddr server = {};
    server.wSinFamily = family;
    server.tV4Addr.s_addr = 0x010200c0;
    return VimbraNtpcStart(server, 1, TakeNtp);
}

s32 WithFailure(int number, const std::function<s32()>& call) {
    t_failAt = number;
    const s32 result = call();
    // What the call did not reach does not fail any more.
    const bool reached = t_failAt == 0;
    t_failAt = 0;
    EXPECT_TRUE(reached || result == 0);
    return result;
}

class MemoryDyn : public testing::Test {
 protected:
    Capture log_;
    ScriptedDaemon daemon_;
};

TEST_F(MemoryDyn, DhcpInitWithoutMemoryIsShorter) {
    t_failAt = 1;
    DhcpcInit();
    EXPECT_TRUE(log_.Has(Kind::kPerror, "DhcpcInit", "XMALLOC error"));
    EXPECT_EQ(nullptr, g_ptApiDhcpCInfo);
    t_failAt = 2;
    DhcpcInit();
    EXPECT_EQ(2, log_.Count(Kind::kPerror, "DhcpcInit", "XMALLOC error"));
    ASSERT_NE(nullptr, g_ptApiDhcpCInfo);
    EXPECT_EQ(nullptr, g_ptApiDhcpCInfo->ptNext);
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, TakeDhcp));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
}

TEST_F(MemoryDyn, DhcpStartWithoutMemoryLeavesNothing) {
    DhcpcInit();
    const std::map<int, s32> results = {{1, -1}, {2, -1}, {3, -1}};  // the record, the thread
    int number = 1;
    for (s32 result = -1; result != 0; number++) {
        const auto start = [] { return VimbraDhcpcStart("eth0", 2, TakeDhcp); };
        result = WithFailure(number, start);
        if (result != 0) {
            EXPECT_EQ(results.contains(number) ? results.at(number) : 1109, result) << number;
            EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(2, "eth0"));
        }
        ASSERT_GT(20, number);
    }
    EXPECT_LT(4, number);
    EXPECT_TRUE(log_.Has(Kind::kPerror, "VimbraDhcpcStart", "XMALLOC error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "create dhcp callback thread failed!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "XMALLOC error"));
    t_failAt = 1;
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStop", "XMALLOC error"));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    t_failAt = 1;
    EXPECT_EQ(-1, AndoridDhcpcRenew("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "AndoridDhcpcRenew", "XMALLOC error"));
}

TEST_F(MemoryDyn, DhcpListenerWithoutMemoryEnds) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (const u16 family : {2, 10}) {
        const char* const socket = family == 2 ? "ipc_dhcpc_eth0" : "ipc_dhcpcv6_eth0";
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", family, TakeDhcp));
        g_failSize = 1360;
        EXPECT_TRUE(Connection(socket).Connected());  // It closes before it reads.
        EXPECT_TRUE(log_.WaitFor(Kind::kPerror, family == 2 ? "DhcpcCBThreadV4" : "DhcpcCBThreadV6",
                                 "XMALLOC error"));
        EXPECT_TRUE(WaitForNoListener(socket));
        g_failSize = 0;
        TVimbraDhcpcState state = {};
        EXPECT_TRUE(WaitFor([&] {
            return VimbraDhcpcGetIfstate("eth0", family, &state) == 0 && state.dwDhcpcIsRun == 0;
        }));
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", family));
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(MemoryDyn, PppoeWithoutMemory) {
    t_failAt = 1;
    PppoeInit();
    EXPECT_TRUE(log_.Has(Kind::kPerror, "PppoeInit", "XMALLOC error"));
    EXPECT_EQ(nullptr, g_ptApiPppoeInfo);
    EXPECT_EQ(-1, StartPppoe(2));
    PppoeInit();
    int number = 1;
    for (s32 result = -1; result != 0; number++) {
        result = WithFailure(number, [] { return StartPppoe(2); });
        if (result != 0) {
            EXPECT_EQ(number <= 2 ? -1 : 1109, result) << number;
        }
        ASSERT_GT(20, number);
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPppoeStart", "pppoe ThreadSpawn error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPppoeStart", "XMALLOC error"));
    t_failAt = 1;
    EXPECT_EQ(-1, VimbraPppoeStop(nullptr, 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPppoeStop", "XMALLOC error"));
    // The listener ends, the link stays started.
    g_failSize = 92;
    EXPECT_TRUE(Connection("ipc_pppoe").Connected());
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "PppoeCBThread", "XMALLOC error"));
    EXPECT_TRUE(WaitForNoListener("ipc_pppoe"));
    g_failSize = 0;
    EXPECT_EQ(1, g_ptApiPppoeInfo->bPppoeStarted);
    EXPECT_EQ(0, VimbraPppoeStop(nullptr, 2));
}

TEST_F(MemoryDyn, NtpInitWithoutMemory) {
    t_failAt = 1;
    NtpcInit();
    EXPECT_TRUE(log_.Has(Kind::kPerror, "NtpcInit", "XMALLOC error"));
    EXPECT_EQ(nullptr, g_ptApiNtpCInfo);
    EXPECT_EQ(-1, StartNtp(2));
    EXPECT_TRUE(log_.Has(Kind::kError, "FamilyMapNtpcInfo", "the vimbra is not init!"));
}

TEST_F(MemoryDyn, NtpIsInitialisedOnce) {
    NtpcInit();
    const TNtpcInfo* const first = g_ptApiNtpCInfo;
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(0, StartNtp(2));
    NtpcInit();
    EXPECT_EQ(first, g_ptApiNtpCInfo);
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

// The two slots of old: whatever is behind them is not looked at.
TEST_F(MemoryDyn, DhcpFamiliesAreFoundInTwoSlots) {
    t_failAt = 2;
    DhcpcInit();
    ASSERT_NE(nullptr, g_ptApiDhcpCInfo);
    const u16 family = g_ptApiDhcpCInfo->wSinfamily;
    EXPECT_EQ(g_ptApiDhcpCInfo, FamilyMapDhcpcInfo(family));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(3));
    const u16 other = family == 2 ? 10 : 2;
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", family, TakeDhcp));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", family, TakeDhcp));
    EXPECT_EQ(0, VimbraDhcpcStart("eth2", other, TakeDhcp));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(3));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(other));
}

// A process whose services found no memory at first, and a child of it, which finds the same.
TEST_F(MemoryDyn, WhatIsNotInitialisedIsForgottenByAChild) {
    for (int number = 1;; number++) {
        const pid_t child = fork();
        if (child == 0) {
            t_failAt = number;
            VimbraInit();
            const bool isOver = t_failAt > 0;
            t_failAt = 0;
            const auto stop = [] {
                return std::pair(VimbraPppoeStop(nullptr, 2), VimbraNtpcStop(2));
            };
            const auto inParent = stop();
            const pid_t grandchild = fork();
            if (grandchild == 0) {
                _exit(stop() == inParent ? 0 : 1);
            }
            int status = -1;
            waitpid(grandchild, &status, 0);
            _exit(status != 0 ? 1 : isOver ? 2 : 0);
        }
        int status = -1;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1) << number;
        if (WEXITSTATUS(status) == 2) {
            ASSERT_LT(4, number);
            break;
        }
    }
    for (const char* function :
         {"DhcpcInit", "NtpcInit", "PingInit", "TracerouteInit", "PppoeInit"}) {
        EXPECT_LT(0, log_.Count(Kind::kPerror, function, "XMALLOC error", Where::kSyslog))
            << function;
    }
}

TEST_F(MemoryDyn, NtpRequestsWithoutMemory) {
    NtpcInit();
    // The listener's own allocations come first: a thread that cannot be made takes the semaphore.
    int number = 3;
    for (s32 result = -1; result != 0; number++) {
        result = WithFailure(number, [] { return StartNtp(2); });
        ASSERT_GT(20, number);
    }
    t_failAt = 1;
    EXPECT_EQ(-1, VimbraNtpcStop(2));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "ApicNtpcStop", "XMALLOC error"));
    EXPECT_EQ(0, VimbraNtpcStop(2));
    TVimbraAddr server = {};
    server.wSinFamily = 2;
    t_failAt = 1;
    EXPECT_EQ(-1, VimbraNtpcSerCheck(server));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "ApicNtpcSerCheck", "XMALLOC error"));
}

TEST_F(MemoryDyn, NtpListenerWithoutMemoryEnds) {
    NtpcInit();
    for (const u16 family : {2, 10}) {
        const char* const socket = family == 2 ? "ipc_ntp" : "ipc_ntpv6";
        EXPECT_EQ(0, StartNtp(family));
        log_.Clear();
        g_failSize = 777;
        EXPECT_TRUE(Notify(socket, 1, Pack().Zeros(777)));
        EXPECT_TRUE(WaitForNoListener(socket));
        g_failSize = 0;
        // Only the one for IPv4 says why.
        EXPECT_EQ(family == 2 ? 1 : 0, log_.Count(Kind::kPerror));
        if (family == 2) {
            EXPECT_TRUE(log_.Has(Kind::kPerror, "NtpcCBThread", "XMALLOC MTYPE_API_NTPC"));
        }
        EXPECT_EQ(0, VimbraNtpcStop(family));
    }
}

}  // namespace
}  // namespace vimbra::tests
