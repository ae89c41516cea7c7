// How the daemon comes and goes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vimbra/iface.h>

#include <cstring>
#include <memory>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kSocket[] = "/tmp/api_daemon";
char g_lo[] = "lo";

bool Exists(const char* path) {
    struct stat found {};
    return lstat(path, &found) == 0;
}

bool Serves() {
    u32 mtu = 0;
    return VimbraIfaceGetMtu(g_lo, &mtu) == 0 && mtu == 65536;
}

TEST(VimbradLife, ServesAndLogsPlainLines) {
    Daemon daemon;
    EXPECT_TRUE(Serves());
    EXPECT_TRUE(daemon.WaitLog(" info: listening on /tmp/api_daemon\n"));
}

TEST(VimbradLife, SocketIsForOwnerAndGroup) {
    const Daemon daemon;
    struct stat found {};
    ASSERT_EQ(0, stat(kSocket, &found));
    EXPECT_EQ(S_IFSOCK | 0660u, found.st_mode);
}

TEST(VimbradLife, SigtermRemovesTheSocket) {
    Daemon daemon;
    EXPECT_EQ(0, daemon.Stop());
    EXPECT_FALSE(Exists(kSocket));
    EXPECT_NE(std::string::npos, daemon.Log().find("ending"));
}

TEST(VimbradLife, SigintRemovesTheSocket) {
    Daemon daemon;
    daemon.Process().Signal(SIGINT);
    EXPECT_EQ(0, daemon.Process().Wait());
    EXPECT_FALSE(Exists(kSocket));
}

TEST(VimbradLife, EndsWhileClientsAreConnected) {
    Daemon daemon;
    const Connection silent("api_daemon");
    Connection half("api_daemon");
    ASSERT_TRUE(half.Send(Pack().U32(274)));
    ASSERT_TRUE(half.WaitRead());
    EXPECT_EQ(0, daemon.Stop());
}

TEST(VimbradLife, SomebodyElsesListenerIsLeftAlone) {
    ScriptedDaemon other;
    Program second(DaemonCommand(), "/tmp/second.log");
    EXPECT_EQ(1, second.Wait());
    EXPECT_TRUE(HasListener("api_daemon"));
}

TEST(VimbradLife, StaleSocketIsReplaced) {
    {
        Program first(DaemonCommand(), "/tmp/first.log");
        ASSERT_TRUE(WaitForListener("api_daemon"));
        KillDaemon(first);
    }
    ASSERT_TRUE(Exists(kSocket));
    const Daemon daemon;
    EXPECT_TRUE(Serves());
    EXPECT_NE(std::string::npos, daemon.Log().find("removed the stale socket"));
}

TEST(VimbradLife, SocketThatIsNoLongerItsOwnIsLeftAlone) {
    Daemon daemon;
    ASSERT_EQ(0, unlink(kSocket));
    ScriptedDaemon successor;
    EXPECT_EQ(0, daemon.Stop());
    EXPECT_TRUE(HasListener("api_daemon"));
}

TEST(VimbradLife, OfManyThatStartAtOnceOneServes) {
    std::vector<std::unique_ptr<Program>> daemons;
    for (int i = 0; i < 8; ++i) {
        daemons.push_back(
            std::make_unique<Program>(DaemonCommand(), "/tmp/" + std::to_string(i) + ".log"));
    }
    const auto running = [&daemons] {
        return std::count_if(daemons.begin(), daemons.end(),
                             [](const auto& each) { return each->Running(); });
    };
    ASSERT_TRUE(WaitFor([&running] { return running() == 1; }));
    ASSERT_TRUE(WaitForListener("api_daemon"));
    EXPECT_TRUE(Serves());
    EXPECT_EQ(1, running());
}

TEST(VimbradLife, Help) {
    Program daemon(DaemonCommand({"--help"}), "/tmp/vimbrad.log");
    EXPECT_EQ(0, daemon.Wait());
    for (const char* option :
         {"--group", "--run-dir", "--keep", "--forget", "--syslog", "--ready-fd", "--log-level",
          "--web-root", "--set-clock", "--version", "--help"}) {
        EXPECT_NE(std::string::npos, daemon.Output().find(option)) << option;
    }
    EXPECT_FALSE(Exists(kSocket));
}

TEST(VimbradLife, Version) {
    Program daemon(DaemonCommand({"--version"}), "/tmp/vimbrad.log");
    EXPECT_EQ(0, daemon.Wait());
    EXPECT_EQ("vimbrad 2.0.3\n", daemon.Output());
}

TEST(VimbradLife, WrongUsage) {
    for (const char* option : {"--log-level=6", "--log-level=", "--log-level=44", "--frobnicate",
                               "argument", "--log-level=-1"}) {
        Program daemon(DaemonCommand({option}), "/tmp/vimbrad.log");
        EXPECT_EQ(2, daemon.Wait()) << option;
        EXPECT_NE("", daemon.Output());
    }
    EXPECT_FALSE(Exists(kSocket));
}

TEST(VimbradLife, SilentAtLogLevelZero) {
    Daemon daemon({"--log-level=0"});
    EXPECT_TRUE(Serves());
    EXPECT_EQ(0, daemon.Stop());
    EXPECT_EQ("", daemon.Log());
}

}  // namespace
}  // namespace vimbra::tests
