// DHCP client: state, lease and renewal.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vimbra/dhcpc.h>

#include <string>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "dhcpc.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- State and lease ---------------------------------------------------------------------------

TEST_F(Dhcpc, StateChecksItsArguments) {
    TVimbraDhcpcState state = {7};
    EXPECT_EQ(1105, VimbraDhcpcGetIfstate(nullptr, 2, &state));
    EXPECT_EQ(1105, VimbraDhcpcGetIfstate(kName17, 2, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "LinuxNetDhcpcGetState", "pchIfaceName is invalid!"));
    EXPECT_EQ(1105, LinuxNetDhcpcGetState("eth0", 2, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcGetState", "ptNetdhcpcIfState is NULL!"));
    EXPECT_EQ(7u, state.dwDhcpcIsRun);
    log_.Clear();
    EXPECT_EQ(0, LinuxNetDhcpcGetState(kName16, 7, &state));
    EXPECT_EQ(0u, state.dwDhcpcIsRun);
    EXPECT_TRUE(log_.Has(Kind::kPrint, "LinuxNetDhcpcGetState",
                         std::string("not find ") + kName16 + "  family 7 dhcp info!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Dhcpc, LeaseChecksItsArguments) {
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo(nullptr, 2, &record));
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo(kName17, 2, &record));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraDhcpcGetLeaseInfo", "pchIfaceName is invalid!"));
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo("eth0", 2, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "VimbraDhcpcGetLeaseInfo", "ptNetDhcpcLeaseInfo is NULL."));
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcGetLeaseInfo", "FamilyMapDhcpcInfo error!"));
}

// ---- Renewing ----------------------------------------------------------------------------------

TEST_F(Dhcpc, RenewSignalsTheFamilysProcess) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    Process other({"udhcpc", "-i", "eth1"});
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
    Process ipv4({"udhcpc", "-i", "eth0"});
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 10));
    EXPECT_EQ(0, VimbraDhcpcRenew("eth0", 2));
    EXPECT_EQ(SIGUSR1, ipv4.EndedBy());
    Process ipv6({"udhcpc6", "-i", "eth0"});
    EXPECT_EQ(0, VimbraDhcpcRenew("eth0", 10));
    EXPECT_EQ(SIGUSR1, ipv6.EndedBy());
    EXPECT_TRUE(other.Lives());
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Dhcpc, RenewFailsWithItsReasons) {
    EXPECT_EQ(-1, VimbraDhcpcRenew(nullptr, 2));
    EXPECT_EQ(-1, LinuxNetDhcpcRenew(kName17, 2));
    EXPECT_EQ(2, log_.Count(Kind::kError, "LinuxNetDhcpcRenew", "pchIfaceName is invalid!"));
    EXPECT_EQ(-1, VimbraDhcpcRenew("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "FamilyMapDhcpcInfo error!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

// A process that is gone when the signal comes.
TEST_F(Dhcpc, RenewTellsWhyTheSignalFailed) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    ASSERT_EQ(0, mount("none", "/proc", "tmpfs", 0, nullptr));
    ASSERT_EQ(0, mkdir("/proc/4194000", 0755));
    WriteFile("/proc/4194000/cmdline", std::string("udhcpc\0-i\0eth0", 14));
    EXPECT_EQ(-1, VimbraDhcpcRenew("eth0", 2));
    ASSERT_EQ(0, umount("/proc"));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "LinuxNetDhcpcRenew", "kill dhcp error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "the dhcp pid is 4194000"));
}

TEST_F(Dhcpc, RenewNeedsADescriptorToLookForTheProcess) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const int lowest = dup(STDIN_FILENO);
    close(lowest);
    const rlimit few = {static_cast<rlim_t>(lowest), limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    EXPECT_EQ(-1, VimbraDhcpcRenew("eth0", 2));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "GetPidByName error!"));
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
}

TEST_F(Dhcpc, RenewThroughTheDaemonNeedsNoClient) {
    EXPECT_EQ(0, AndoridDhcpcRenew("eth0", 2));
    EXPECT_EQ(0, AndoridDhcpcRenew(kName16, 10));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kRenew, Body(2, "eth0")), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kRenew, Body(10, kName16)), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(-1, AndoridDhcpcRenew(nullptr, 2));
    EXPECT_EQ(-1, AndoridDhcpcRenew(kName17, 2));
    EXPECT_EQ(2u, daemon_.Requests().size());
    daemon_.On(kRenew, Answer::Code(3));
    EXPECT_EQ(-1, AndoridDhcpcRenew("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "AndoridDhcpcRenew", "send and recv msg error num : 3!"));
}

// ---- The bare requests and checks --------------------------------------------------------------

TEST_F(Dhcpc, RequestsAlone) {
    TDhcpcInfo info = {};
    memcpy(info.tDhcpcAddr.achDevName, kName16, 16);
    info.wSinfamily = 7;
    EXPECT_EQ(0, ApicDhcpcStart(&info));
    EXPECT_EQ(0, ApicDhcpcStop(kName17, 10));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Body(7, kName16)), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Body(10, "a-name-of-17-cha")), daemon_.Requests()[1].raw);
    EXPECT_EQ(-1, ApicDhcpcStart(nullptr));
    EXPECT_EQ(-1, ApicDhcpcStop(nullptr, 2));
    EXPECT_EQ(2u, daemon_.Requests().size());
    daemon_.Default(Answer::Code(-1));
    EXPECT_EQ(-1, ApicDhcpcStart(&info));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg error num : -1!"));
}

TEST_F(Dhcpc, CheckFamilyTellsWhich) {
    EXPECT_EQ(0, CheckFamily(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "CheckFamily", "the family type is ipv4!"));
    EXPECT_EQ(0, CheckFamily(10));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "CheckFamily", "the family type is ipv6!"));
    for (const int family : {0, 11, 65535}) {
        EXPECT_EQ(-1, CheckFamily(static_cast<u16>(family)));
    }
    EXPECT_EQ(3, log_.Count(Kind::kError, "CheckFamily", "the family type is not ipv4 and ipv6!"));
}

}  // namespace
}  // namespace vimbra::tests
