// The web server and bonding.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kWebEnable = 769;
constexpr u32 kWebDisable = 770;
constexpr u32 kBondStart = 3841;
constexpr u32 kBondStop = 3842;

s32 Enable(s32 port) {
    return Ask(kWebEnable, Pack().S32(port));
}

s32 Disable() {
    return Ask(kWebDisable, {});
}

// What the web server has at the root; empty when nobody answers.
std::string Page(int port) {
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/index.html";
    return ShellStatus("busybox wget -q -O /tmp/page " + url) == 0 ? ReadFile("/tmp/page") : "";
}

class VimbradWeb : public testing::Test {
 protected:
    void SetUp() override {
        mkdir("/tmp/www", 0755);
        WriteFile("/tmp/www/index.html", "hello");
    }

    Daemon daemon_{{"--web-root=/tmp/www"}};
};

TEST_F(VimbradWeb, AnswersOnItsPortUntilStopped) {
    EXPECT_EQ("", Page(8080));
    ASSERT_EQ(0, Enable(8080));
    EXPECT_EQ("hello", Page(8080));
    EXPECT_EQ(0, Disable());
    EXPECT_TRUE(WaitFor([] { return Page(8080).empty(); }));
}

// A server has another process for each page that it is asked for.
bool OnlyOneRuns() {
    return WaitFor([] { return Shell("cat /proc/[0-9]*/comm | grep -c busybox") == "1\n"; });
}

TEST_F(VimbradWeb, ThereIsOneAtATime) {
    ASSERT_EQ(0, Enable(8080));
    ASSERT_EQ(0, Enable(8080));
    EXPECT_EQ("hello", Page(8080));
    EXPECT_TRUE(OnlyOneRuns());
    ASSERT_EQ(0, Enable(8081));
    EXPECT_EQ("hello", Page(8081));
    EXPECT_TRUE(WaitFor([] { return Page(8080).empty(); }));
    EXPECT_TRUE(OnlyOneRuns());
}

TEST_F(VimbradWeb, StoppedAndStartedOnTheSamePort) {
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(0, Enable(8080));
        EXPECT_EQ("hello", Page(8080));
        EXPECT_EQ(0, Disable());
    }
    EXPECT_EQ(0, Disable());
}

TEST_F(VimbradWeb, PortOfAnotherIsRefused) {
    Program other({"busybox", "httpd", "-f", "-p", "8080", "-h", "/tmp"}, "/tmp/other.log");
    ASSERT_TRUE(WaitFor([] { return ShellStatus("busybox nc 127.0.0.1 8080 </dev/null") == 0; }));
    EXPECT_EQ(EADDRINUSE, Enable(8080));
    EXPECT_TRUE(other.Running());
}

TEST_F(VimbradWeb, ImpossiblePortsAreRefused) {
    for (const s32 port : {0, -1, 65536, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(EINVAL, Enable(port));
    }
}

TEST_F(VimbradWeb, EndsWithTheDaemon) {
    ASSERT_EQ(0, Enable(8080));
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_TRUE(WaitFor([] { return Page(8080).empty(); }));
}

TEST(VimbradWebRoot, ThatIsNotThereIsRefused) {
    Daemon daemon({"--web-root=/tmp/nowhere"});
    EXPECT_EQ(EIO, Enable(8080));
    EXPECT_TRUE(daemon.WaitLog("web server: "));
    EXPECT_EQ(0, Disable());
}

Bytes Text(const std::string& text) {
    return Pack().U32(static_cast<u32>(text.size() + 1)).Text(text, text.size() + 1);
}

Bytes BondBody(u32 mode, const std::vector<std::string>& members, const std::string& active) {
    Pack rest;
    rest.U32(mode).Add(Text("/proc/net")).U32(static_cast<u32>(members.size()));
    for (const std::string& each : members) {
        rest.Add(Text(each));
    }
    rest.Add(Text(active));
    return Pack().U32(static_cast<u32>(rest.Get().size() + 4)).Add(rest);
}

TEST(VimbradBond, MembersAreJoinedOrTheKernelsLackIsTold) {
    MakeIface("eth0");
    MakeIface("eth1");
    Daemon daemon;
    const bool able = ShellStatus("ip link add probe type bond && ip link del probe") == 0;
    if (able) {
        EXPECT_EQ(0, Ask(kBondStart, BondBody(1, {"eth0", "eth1"}, "eth1")));
        const Json bond = Ip("-d link show dev bond0").at(0);
        EXPECT_EQ("active-backup", bond.at("linkinfo").at("info_data").at("mode"));
        EXPECT_EQ("eth1", bond.at("linkinfo").at("info_data").at("active_slave"));
        EXPECT_EQ("bond0", Ip("link show dev eth0").at(0).at("master"));
        EXPECT_EQ(EEXIST, Ask(kBondStart, BondBody(1, {"eth0", "eth1"}, "eth1")));
        EXPECT_EQ(0, Ask(kBondStop, {}));
        EXPECT_FALSE(Ip("link show dev eth0").at(0).contains("master"));
    } else {
        EXPECT_EQ(EOPNOTSUPP, Ask(kBondStart, BondBody(1, {"eth0", "eth1"}, "eth1")));
        EXPECT_TRUE(daemon.WaitLog("bond start: refused with 95: the bonding driver is missing"));
        EXPECT_EQ("UP", Ip("link show dev eth0").at(0).at("operstate")) << "is left alone";
    }
    EXPECT_EQ(0, Ask(kBondStop, {}));
}

TEST(VimbradBond, WrongRequestsAreRefused) {
    MakeIface("eth0");
    MakeIface("eth1");
    const Daemon daemon;
    EXPECT_EQ(EINVAL, Ask(kBondStart, BondBody(7, {"eth0"}, "eth0")));
    EXPECT_EQ(EINVAL, Ask(kBondStart, BondBody(0, {}, "eth0")));
    EXPECT_EQ(EINVAL, Ask(kBondStart, BondBody(0, {"a", "b", "c", "d", "e"}, "a")));
    EXPECT_EQ(EINVAL, Ask(kBondStart, BondBody(0, {"eth0", "eth0"}, "eth0")));
    EXPECT_EQ(EINVAL, Ask(kBondStart, BondBody(0, {"eth0", "eth1"}, "eth2")));
    EXPECT_EQ(ENODEV, Ask(kBondStart, BondBody(0, {"eth0", "nowhere0"}, "eth0")));
    EXPECT_EQ(ENODEV, Ask(kBondStart, BondBody(0, {""}, "")));

    const Bytes right = BondBody(0, {"eth0", "eth1"}, "eth0");
    for (size_t size = 0; size < right.size(); ++size) {
        Bytes cut = right.Slice(0, size);
        EXPECT_EQ(EINVAL, Ask(kBondStart, cut)) << size;
        // The same with a length that fits.
        if (size >= 4) {
            cut[0] = static_cast<u8>(size);
            EXPECT_EQ(EINVAL, Ask(kBondStart, cut)) << size;
        }
    }
    // Texts that are longer than the request, without an end or with two.
    for (const u32 length : {0u, 1u, 11u, 0x7fffffffu, 0xffffffffu}) {
        Bytes body = right;
        const Bytes word = Pack().U32(length);
        std::copy(word.begin(), word.end(), body.begin() + 8);
        EXPECT_EQ(EINVAL, Ask(kBondStart, body)) << length;
    }
    Bytes inside = right;
    inside[14] = 0;
    EXPECT_EQ(EINVAL, Ask(kBondStart, inside));
}

TEST(VimbradWebUser, ServerAndItsProgramsAreNobody) {
    Shell("mkdir -p /tmp/www/cgi-bin");
    WriteFile("/tmp/www/cgi-bin/who",
              "#!/bin/sh\nprintf 'Content-type: text/plain\\r\\n\\r\\n'; id -u\n");
    Shell("chmod 755 /tmp/www/cgi-bin/who");
    const Daemon daemon({"--web-root=/tmp/www"});
    ASSERT_EQ(0, Enable(8080));
    // Where there is one user only the server stays who we are, and says so.
    const bool can = ShellStatus("setpriv --reuid 65534 --clear-groups true") == 0;
    EXPECT_EQ(can ? "65534\n" : "0\n",
              Shell("busybox wget -q -O - http://127.0.0.1:8080/cgi-bin/who"));
    EXPECT_EQ(!can, daemon.Log().find("cannot run as nobody") != std::string::npos);
}

TEST(VimbradWebUser, MayBeAnother) {
    Shell("mkdir -p /tmp/www");
    WriteFile("/tmp/www/index.html", "hello");
    const Daemon daemon({"--web-root=/tmp/www", "--web-user=daemon"});
    ASSERT_EQ(0, Enable(8080));
    EXPECT_EQ("hello", Page(8080));
    const bool can = ShellStatus("setpriv --reuid daemon --clear-groups true") == 0;
    const std::string status = "/proc/" + Shown("web_server").at("pid").dump() + "/status";
    EXPECT_EQ(Shell(can ? "id -u daemon" : "id -u"), Shell("awk '/^Uid/ {print $2}' " + status));
}

TEST(VimbradWebUser, ThatIsNoneIsWrongUsage) {
    Program daemon(DaemonCommand({"--web-user=no-such-user"}), "/tmp/vimbrad.log");
    EXPECT_EQ(2, daemon.Wait());
    EXPECT_EQ("vimbrad: there is no user 'no-such-user'\n", daemon.Output());
}

}  // namespace
}  // namespace vimbra::tests
