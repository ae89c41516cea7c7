// What the daemon reads from programs, from an earlier life and from operators, when it is not what
// they usually write: the daemon serves on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/dhcpc.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::IsEmpty;

namespace {

constexpr u32 kDhcpStart = 0x501;
constexpr u32 kNtpCheck = 0x903;
constexpr char kRunDir[] = "/run/vimbrad";

// What an earlier life has left: the members of a JSON object.
void LeaveState(const std::string& members) {
    std::string boot = ReadFile("/proc/sys/kernel/random/boot_id");
    boot.resize(boot.find('\n'));
    ASSERT_EQ(0, mkdir(kRunDir, 0700));
    WriteFile(std::string(kRunDir) + "/state.json",
              R"({"format": 1, "boot": ")" + boot + R"(", )" + members + "}");
}

std::string HexOf(const Bytes& bytes) {
    std::string text;
    for (const u8 each : bytes) {
        char digits[3];
        snprintf(digits, sizeof(digits), "%02x", each);
        text += digits;
    }
    return text;
}

TEST(VimbradInput, DhcpProgramThatBeginsInTheMiddleOfAReport) {
    Pretend("busybox",
            "printf '@router 192.0.2.1\\n@dns 192.0.2.1\\n@end\\n'\n"
            "printf 'nothing of interest\\n'\n"
            "touch /tmp/said\nexec sleep 1000\n");
    MakeIface("eth0");
    Daemon daemon({"--log-level=5"});
    EXPECT_EQ(0, Ask(kDhcpStart, Pack().U16(2).Text("eth0", 16)));
    EXPECT_TRUE(daemon.WaitLog("nothing of interest"));
    EXPECT_EQ("asking", Shown("dhcp_clients").at(0).at("state"));
}

TEST(VimbradInput, OffsetThatIsNoTimeIsNone) {
    for (const char* offset : {"nan", "-inf", "1e300", "-1e18"}) {
        Pretend("chronyd", std::string("echo 'System clock wrong by ") + offset + " seconds'\n");
        Daemon daemon;
        EXPECT_EQ(EIO, Ask(kNtpCheck, Pack().Address(2, "127.0.0.1"))) << offset;
    }
}

TEST(VimbradInput, NumbersThatAreNoWholeOnesAreNotRead) {
    LeaveState(R"("tables": [100], "programs": [{"pid": 1e300, "start": "1"}])");
    Daemon daemon;
    EXPECT_TRUE(daemon.WaitLog("cannot be read: forgotten"));
    EXPECT_TRUE(AskOperators(R"({"ask": "refusal", "pid": 1e300})").contains("error"));
    EXPECT_FALSE(AskOperators(R"({"ask": "refusal", "pid": 1})").contains("error"));
}

// A lease as it is kept, with one thing that no report can have told.
class VimbradInputLease : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        lease_.tIpAddrs.wSinFamily = lease_.tGateWay.wSinFamily = VIMBRA_FAMILY_IPV4;
    }

    // The client is forgotten, and another can be started.
    void ExpectForgotten() {
        LeaveState(R"("dhcp_clients": [{"interface": "eth0", "family": 2, "lease_end": 99999999,)"
                   R"( "settings": {"servers": []}, "lease": ")" +
                   HexOf(AsBytes(lease_)) + "\"}]");
        Pretend("busybox", "exec sleep 1000\n");
        Daemon daemon;
        EXPECT_TRUE(daemon.WaitLog("forgotten: no lease"));
        EXPECT_THAT(Shown("dhcp_clients"), IsEmpty());
        EXPECT_EQ(0, Ask(kDhcpStart, Pack().U16(2).Text("eth0", 16)));
        EXPECT_EQ("asking", Shown("dhcp_clients").at(0).at("state"));
    }

    TVimbraDhcpcAddrInfo lease_ = {};
};

TEST_F(VimbradInputLease, WithMoreServersThanThereAreIsNone) {
    lease_.dwDnsNum = 100'000;
    ExpectForgotten();
}

TEST_F(VimbradInputLease, OfAnotherFamilyIsNone) {
    lease_.tGateWay.wSinFamily = 77;
    ExpectForgotten();
}

TEST(VimbradInput, PriorityOfMoreInterfacesThanThereAreIsForgotten) {
    LeaveState(R"("priority": ")" + HexOf(Pack().U32(100'000).FillTo(204)) + "\"");
    Daemon daemon;
    EXPECT_TRUE(daemon.WaitLog("more interfaces than the list can hold"));
    EXPECT_THAT(Shown("priority"), IsEmpty());
}

// It is removed with all that it holds when it is not taken up.
TEST(VimbradInput, DirectoryOfALinkIsOneOfOurs) {
    WriteFile("/run/somebody", "else's");
    const Bytes start = Pack().U16(2).Text("user", 255).Text("secret", 255).FillTo(811);
    LeaveState(R"("pppoe_links": [{"up": true, "directory": "..", "pid": 7, "addresses": [],)"
               R"( "start": ")" +
               HexOf(start) + "\"}]");
    Daemon daemon;
    EXPECT_TRUE(daemon.WaitLog(".. is no directory of ours"));
    EXPECT_EQ("else's", ReadFile("/run/somebody"));
}

}  // namespace
}  // namespace vimbra::tests
