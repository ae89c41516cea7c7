// How the daemon is started by the machine: a script for busybox's init and its like, a unit for
// systemd. Both as they are installed, but for the place of the daemon.
#include <gtest/gtest.h>
#include <vimbra/iface.h>
#include <vimbra/route.h>

#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "lives.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

char g_lo[] = "lo";

bool Serves() {
    u32 mtu = 0;
    return VimbraIfaceGetMtu(g_lo, &mtu) == 0 && mtu == 65536;
}

void Install(const std::string& suffix, const std::string& edit, const std::string& path) {
    Shell("sed '" + edit + "' " + DaemonCommand().front() + suffix + " >" + path);
}

// With each shell that runs it.
class VimbradScript : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        Install(".init", "s|^daemon=.*|daemon=" + DaemonCommand().front() + "|",
                "/tmp/vimbrad.init");
    }

    static int Run(const std::string& command) {
        return ShellStatus(std::string(GetParam()) + " /tmp/vimbrad.init " + command);
    }
};

INSTANTIATE_TEST_SUITE_P(Shells, VimbradScript, testing::Values("sh", "busybox sh"),
                         [](const auto& shell) {
                             return std::string(shell.index == 0 ? "Sh" : "BusyboxSh");
                         });

TEST_P(VimbradScript, StartReturnsWhenTheDaemonServes) {
    EXPECT_EQ(3, Run("status"));
    ASSERT_EQ(0, Run("start"));
    EXPECT_TRUE(Serves());
    EXPECT_EQ(0, Run("status"));
    EXPECT_EQ(0, Run("start"));
    EXPECT_EQ(0, Run("stop"));
    EXPECT_EQ(3, Run("status"));
    EXPECT_EQ(0, Run("stop"));
}

TEST_P(VimbradScript, RestartIsAnotherDaemonThatKnowsWhatTheFirstDid) {
    ASSERT_EQ(0, Run("start"));
    const std::string first = ReadFile("/run/vimbrad/lock");
    ASSERT_EQ(0, VimbraAddRouteTable(100));
    ASSERT_EQ(0, Run("restart"));
    EXPECT_NE(first, ReadFile("/run/vimbrad/lock"));
    EXPECT_NE(0, VimbraAddRouteTable(100));
    EXPECT_EQ(0, Run("stop"));
}

TEST_P(VimbradScript, StartSaysSoWhenTheDaemonCannotServe) {
    WriteFile("/run/vimbrad", "");
    EXPECT_NE(0, Run("start"));
}

TEST_P(VimbradScript, WrongUsage) {
    EXPECT_EQ(2, Run(""));
    EXPECT_EQ(2, Run("frobnicate"));
}

// systemd says what it cannot read and goes on.
TEST(VimbradUnit, SystemdUnderstandsEveryLine) {
    constexpr char kVerify[] = "systemd-analyze verify --man=no /tmp/vimbrad.service";
    Install(".service", "s|^ExecStart=[^ ]*|ExecStart=" + DaemonCommand().front() + "|",
            "/tmp/vimbrad.service");
    EXPECT_EQ("", Shell(kVerify));
    Shell("sed -i 's/^KillMode=.*/KillMode=nonsense/' /tmp/vimbrad.service");
    EXPECT_NE("", Shell(kVerify));
}

// What the unit runs is a daemon that an upgrade may exchange.
TEST(VimbradUnit, CommandKeepsTheNetworkAndTellsThatItIsReady) {
    const std::string unit = Shell("cat " + DaemonCommand().front() + ".service");
    EXPECT_NE(std::string::npos, unit.find("/vimbrad --keep\n"));
    EXPECT_NE(std::string::npos, unit.find("\nType=notify\n"));
    // Keepers of links stay.
    EXPECT_NE(std::string::npos, unit.find("\nKillMode=process\n"));
}

}  // namespace
}  // namespace vimbra::tests
