// A daemon that is killed takes its programs with it, at whatever stage they are.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <vimbra/dhcps.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <sstream>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "dhcp_server.hpp"
#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kDhcpStart = 0x501;
constexpr u32 kPppoeStart = 0x601;
constexpr u32 kNtpStart = 0x901;
constexpr u32 kWebStart = 0x301;

std::vector<pid_t> ChildrenOf(pid_t pid) {
    const std::string path =
        "/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children";
    std::istringstream words(ReadFile(path));
    return {std::istream_iterator<pid_t>(words), {}};
}

// A zombie that nobody has waited for yet is as good as gone.
bool Lives(pid_t pid) {
    const std::string text = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t state = text.rfind(") ");
    return state != std::string::npos && text[state + 2] != 'Z';
}

// Whether a process has this word in its command line.
bool Runs(const std::string& word) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        if (ReadFile(entry.path() / "cmdline").find(word) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// The daemon, to be killed when `count` programs run.
class Mortal {
 public:
    explicit Mortal(const std::vector<std::string>& options = {})
        : daemon_(DaemonCommand(options), "/tmp/vimbrad.log") {
        EXPECT_TRUE(WaitForListener("api_daemon"));
    }

    std::vector<pid_t> WaitChildren(size_t count) const {
        std::vector<pid_t> children;
        EXPECT_TRUE(WaitFor([&] {
            children = ChildrenOf(daemon_.Pid());
            return children.size() == count;
        })) << daemon_.Output();
        return children;
    }

    void Kill() { KillDaemon(daemon_); }

    const Program& Process() const { return daemon_; }

 private:
    Program daemon_;
};

// All of them go with the daemon.
void ExpectToDieWith(Mortal& daemon, const std::vector<pid_t>& children) {
    daemon.Kill();
    for (const pid_t each : children) {
        EXPECT_TRUE(WaitFor([each] { return !Lives(each); })) << each;
    }
}

Bytes DhcpBody(const std::string& iface) {
    return Pack().U16(2).Text(iface, 16);
}

Bytes PppoeBody() {
    return Pack()
        .U16(2)
        .Text("me@isp", 255)
        .Text("secret", 255)
        .Zeros(255)
        .U32(0)
        .U32(0)
        .U32(0)
        .U32(0)
        .U32(20)
        .U32(3)
        .U32(0)
        .Text("eth0", 16);
}

TEST(VimbradDeath, DhcpClientThatLooksForAServer) {
    MakeIface("eth0");
    Mortal daemon;
    ASSERT_EQ(0, Ask(kDhcpStart, DhcpBody("eth0")));
    ExpectToDieWith(daemon, daemon.WaitChildren(1));
}

TEST(VimbradDeath, DhcpClientAtTheMomentOfItsStart) {
    MakeIface("eth0");
    for (int i = 0; i < 20; ++i) {
        Mortal daemon({"--forget"});
        Connection request("api_daemon");
        ASSERT_TRUE(request.Send(Pack().U32(kDhcpStart).U32(18).U32(0).Add(DhcpBody("eth0"))));
        daemon.Kill();
        EXPECT_TRUE(WaitFor([] { return !Runs("udhcpc"); }));
    }
}

TEST(VimbradDeath, PppdAtEachStage) {
    MakeIface("eth0");
    for (const char* plan : {"hold", "ip_up 10.0.0.2 10.0.0.1; hold", "trap '' HUP; hold"}) {
        const Pppd pppd(plan);
        Mortal daemon({"--forget"});
        ASSERT_EQ(0, Ask(kPppoeStart, PppoeBody()));
        ASSERT_TRUE(Pppd::WaitDial(1));
        ExpectToDieWith(daemon, {Pppd::Pid(1)});
        EXPECT_TRUE(WaitFor([] { return !Runs("link-keeper"); }));
        Shell("rm -r /tmp/pppd /dev/ppp");
    }
}

// Its keeper may not have begun, or not have heard whom it belongs to.
TEST(VimbradDeath, PppdAtTheMomentOfItsStart) {
    MakeIface("eth0");
    const Pppd pppd("hold");
    for (int i = 0; i < 20; ++i) {
        Mortal daemon({"--forget"});
        Connection request("api_daemon");
        const Bytes body = PppoeBody();
        ASSERT_TRUE(request.Send(
            Pack().U32(kPppoeStart).U32(static_cast<u32>(body.size())).U32(0).Add(body)));
        // Some are killed before the program runs and some after.
        if (i % 2 != 0) {
            ASSERT_TRUE(request.WaitRead());
        }
        daemon.Kill();
        EXPECT_TRUE(WaitFor([] { return !Runs("link-keeper"); }));
    }
    for (int dial = 1; dial <= Pppd::Dials(); ++dial) {
        EXPECT_TRUE(WaitFor([dial] { return !Pppd::Runs(dial); })) << dial;
    }
}

TEST(VimbradDeath, DhcpServer) {
    MakeIface("eth0");
    Shell("ip address add 10.1.0.1/24 dev eth0");
    Mortal daemon;
    TVimbraDhcpsInfo pool{};
    pool.tIpPoolStart = Address("10.1.0.100");
    pool.tIpPoolEnd = Address("10.1.0.200");
    pool.tRoutes = Address("10.1.0.1");
    pool.dwIpPoolPrefix = 24;
    char eth0[] = "eth0";
    ASSERT_EQ(0, VimbraDhcpsStart(eth0, 2, &pool));
    ExpectToDieWith(daemon, daemon.WaitChildren(1));
}

// With a lease it has set an address, a route and servers: the next one takes them back if it is to
// forget, and leaves no file.
TEST(VimbradDeath, DhcpClientWithALease) {
    const Host host;
    Connect("eth0", host);
    host.Shell("ip address add 192.0.2.1/25 dev eth0");
    const DhcpServer server(host);
    const std::string servers = ReadFile("/etc/resolv.conf");
    const std::string routes = Shell("ip route");
    {
        Mortal daemon;
        const Listener listener("ipc_dhcpc_eth0");
        ASSERT_EQ(0, Ask(kDhcpStart, DhcpBody("eth0")));
        ASSERT_EQ(1u, listener.Wait(1).size());
        EXPECT_NE(routes, Shell("ip route"));
        ExpectToDieWith(daemon, daemon.WaitChildren(1));
    }
    const Daemon daemon({"--forget"});
    ASSERT_TRUE(daemon.WaitLog("listening on"));
    EXPECT_TRUE(KernelAddresses("eth0", 2).empty());
    EXPECT_EQ(routes, Shell("ip route"));
    EXPECT_EQ(servers, ReadFile("/etc/resolv.conf"));
    EXPECT_EQ("", Shell("ls -d /run/vimbrad/files.* /run/vimbrad/state.json 2>/dev/null || true"));
    EXPECT_FALSE(Runs("udhcpc"));
}

TEST(VimbradDeath, NtpQuestion) {
    Mortal daemon;
    ASSERT_EQ(0, Ask(kNtpStart, Pack().U16(2).Address(2, "127.0.0.1").U32(60)));
    ExpectToDieWith(daemon, daemon.WaitChildren(1));
}

TEST(VimbradDeath, WebServer) {
    Mortal daemon({"--web-root=/tmp"});
    ASSERT_EQ(0, Ask(kWebStart, Pack().S32(8080)));
    ExpectToDieWith(daemon, daemon.WaitChildren(1));
}

TEST(VimbradDeath, PasswordsOfTheDeadAreRemovedAtTheNextStart) {
    MakeIface("eth0");
    const Pppd pppd("hold");
    {
        Mortal daemon({"--log-level=5"});
        ASSERT_EQ(0, Ask(kPppoeStart, PppoeBody()));
        ASSERT_TRUE(Pppd::WaitDial(1));
        daemon.Kill();
    }
    const std::string left = Shell("ls -d /run/vimbrad/files.*");
    const Daemon daemon;
    EXPECT_TRUE(WaitFor([&left] { return ShellStatus("test -e " + left) != 0; }));
}

}  // namespace
}  // namespace vimbra::tests
