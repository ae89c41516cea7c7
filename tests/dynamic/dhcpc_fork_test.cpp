// What a forked child finds of DHCP clients whose listeners have ended before.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/dhcpc.h>

#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

class DhcpcFork : public Prepared {};

// The client is still in the list, where its next start finds it; the child has no such list.
TEST_F(DhcpcFork, AClientWithoutAListenerIsForgotten) {
    const Level before;
    ASSERT_EQ(0, VimbraDhcpcStart("eth0", 2, [](u32, VimbraDhcpcAddrInfo*) { return 0; }));
    ASSERT_TRUE(Connection("ipc_dhcpc_eth0").Send(Bytes(4)));
    before.ExpectThreadsBack();
    ASSERT_NE(nullptr, FamilyMapDhcpcInfoExt(2, "eth0"));
    const pid_t child = fork();
    if (child == 0) {
        _exit(FamilyMapDhcpcInfoExt(2, "eth0") == nullptr ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
}

}  // namespace
}  // namespace vimbra::tests
