// What DHCP clients' listeners do when nothing comes for ten seconds, without the ten seconds: linked
// with -Wl,--wrap=select. And whose place a new client takes.
#include <gtest/gtest.h>
#include <sys/select.h>
#include <vimbra/dhcpc.h>

#include <atomic>

#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// Whoever waits for a limited time has waited long enough.
std::atomic<bool> g_isOver = false;

}  // namespace

extern "C" {
int __real_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);
int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
    if (read == nullptr || timeout == nullptr) {
        return __real_select(count, read, write, except, timeout);
    }
    const fd_set wanted = *read;
    do {
        timeval slice = {0, 10000};
        *read = wanted;
        if (const int ready = __real_select(count, read, nullptr, nullptr, &slice); ready != 0) {
            return ready;
        }
    } while (!g_isOver);
    return 0;
}
}

namespace {

class DhcpcListener : public Prepared {};

std::atomic<int> g_calls = 0;

s32 Start(const char* name, u16 family) {
    return VimbraDhcpcStart(name, family, [](u32, VimbraDhcpcAddrInfo*) { return int(++g_calls); });
}

Bytes Lease(const char* name) {
    return Pack().Text(name, 16).FillTo(1348);
}

TEST_F(DhcpcListener, StoppedOnesEndWhenTheirTimeIsOverAndOthersGoOn) {
    const Level before;
    ASSERT_EQ(0, Start("eth0", 10));
    g_isOver = true;
    EXPECT_TRUE(
        WaitFor([&] { return log_.Count(Kind::kPrint, "DhcpcCBThreadV6", "wait time out!") > 2; }));
    g_isOver = false;
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", 1285, Lease("eth0")));
    EXPECT_EQ(1, g_calls);
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 10));
    g_isOver = true;
    before.ExpectBack();
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "DhcpcCBThreadV6", "thread will exit, interface eth0, family 10"));
}

// Stopping eth2 takes eth0 out of the list; its listener goes on until a client of its name comes.
TEST_F(DhcpcListener, OneOutOfTheListGivesWayToItsOwnNameOnly) {
    for (const char* name : {"eth0", "eth1", "eth2"}) {
        ASSERT_EQ(0, Start(name, 2));
    }
    ASSERT_EQ(0, VimbraDhcpcStop("eth2", 2));
    ASSERT_EQ(nullptr, FamilyMapDhcpcInfoExt(2, "eth0"));
    ASSERT_EQ(0, Start("eth3", 2));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", 1285, Lease("eth0")));
    EXPECT_EQ(1, g_calls);
    ASSERT_EQ(0, Start("eth0", 2));
    const size_t threads = Threads();
    g_isOver = true;
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads - 2; })) << "eth2 and the first eth0";
}

}  // namespace
}  // namespace vimbra::tests
