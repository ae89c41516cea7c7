// Whom the daemon serves: what it says about changes, and how slow requests stand beside quick
// ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>

#include <cerrno>
#include <map>
#include <memory>
#include <vector>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr u32 kLogSwitch = 0x702;
constexpr u32 kPppoeStart = 0x601;
constexpr u32 kNtpCheck = 0x903;

char g_eth0[] = "eth0";
char g_lo[] = "lo";
char g_none[] = "none";

// As the log has it.
std::string Us() {
    return "; by " + Shell("tr -d '\n' < /proc/" + std::to_string(getpid()) + "/comm") + ", pid " +
           std::to_string(getpid()) + ", uid " + std::to_string(getuid()) + ")";
}

void ExpectServing() {
    u32 mtu = 0;
    EXPECT_EQ(0, VimbraIfaceGetMtu(g_lo, &mtu));
}

TEST(VimbradChange, IsLoggedWithWhoAndWhat) {
    MakeIface("eth0");
    const Daemon daemon;
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1400));
    EXPECT_TRUE(daemon.WaitLog(" info: mtu set: done (eth0 mtu 1400" + Us() + "\n"));
}

TEST(VimbradChange, ThatIsRefusedIsLoggedWithTheReason) {
    MakeIface("eth0");
    const Daemon daemon;
    EXPECT_NE(0, VimbraIfaceSetMtu(g_none, 2, 1400));
    EXPECT_TRUE(daemon.WaitLog(
        " warning: mtu set: refused with 19: no interface none (none mtu 1400" + Us() + "\n"));
}

TEST(VimbradChange, QuestionIsNoChange) {
    const Daemon daemon;
    ExpectServing();
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("mtu get")));
}

TEST(VimbradChange, PasswordIsNeverLogged) {
    MakeIface("eth0");
    const Pppd pppd("hold");
    const Daemon daemon({"--log-level=5"});
    const Bytes body = Pack()
                           .U16(2)
                           .Text("me@isp", 255)
                           .Text("secret", 255)
                           .Zeros(255)
                           .Zeros(24)
                           .U32(0)
                           .Text("eth0", 16);
    ASSERT_EQ(0, Ask(kPppoeStart, body));
    EXPECT_TRUE(daemon.WaitLog("PPPoE start: done (eth0 IPv4 user me@isp; by "));
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("secret")));
}

TEST(VimbradChange, ApplicationsLogLevelDoesNotSilenceIt) {
    MakeIface("eth0");
    const Daemon daemon;
    ASSERT_EQ(0, Ask(kLogSwitch, Pack().U32(0)));
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1400));
    EXPECT_TRUE(daemon.WaitLog("mtu set: done (eth0 mtu 1400; by "));
}

TEST(VimbradChange, OperatorsLogLevelDoes) {
    MakeIface("eth0");
    const Daemon daemon({"--log-level=3"});
    ASSERT_EQ(0, VimbraIfaceSetMtu(g_eth0, 2, 1400));
    EXPECT_NE(0, VimbraIfaceSetMtu(g_none, 2, 1400));
    EXPECT_TRUE(daemon.WaitLog("mtu set: refused"));
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("mtu set: done")));
}

// Tests of a server that does not answer, each of which takes seconds.
class SlowRequests {
 public:
    explicit SlowRequests(int count, bool oneServer = true) {
        for (int i = 0; i < count; ++i) {
            auto& connection = requests_.emplace_back(std::make_unique<Connection>("api_daemon"));
            const std::string server = "192.0.2." + std::to_string(oneServer ? 2 : 2 + i);
            EXPECT_TRUE(connection->Send(Message(kNtpCheck, Pack().Address(2, server.c_str()))));
        }
    }

    // How many were answered with each result.
    std::map<int, int> Wait() const {
        std::map<int, int> results;
        for (const auto& each : requests_) {
            const Bytes reply = each->Receive(16);
            ++results[reply.size() == 16 ? reply.S32(12) : -1];
        }
        return results;
    }

 private:
    std::vector<std::unique_ptr<Connection>> requests_;
};

class VimbradPlaces : public testing::Test {
 protected:
    void SetUp() override {
        MakeIface("eth0");
        Shell("ip address add 192.0.2.1/24 dev eth0");
    }
};

TEST_F(VimbradPlaces, SlowRequestsDoNotTakeThoseOfQuickOnes) {
    const Daemon daemon;
    const SlowRequests slow(140);
    for (int i = 0; i < 200; ++i) {
        ExpectServing();
    }
    EXPECT_EQ((std::map<int, int>{{ETIMEDOUT, 140}}), slow.Wait());
}

TEST_F(VimbradPlaces, AreFewerWhereFewDescriptorsAreAllowed) {
    const std::string command = "ulimit -n 100; exec " + DaemonCommand().front();
    Program daemon({"sh", "-c", command}, "/tmp/vimbrad.log");
    ASSERT_TRUE(WaitForListener("api_daemon"));
    const SlowRequests slow(40, false);
    for (int i = 0; i < 200; ++i) {
        ExpectServing();
    }
    const std::map<int, int> results = slow.Wait();
    EXPECT_EQ(40, results.at(EBUSY) + results.at(ETIMEDOUT));
    EXPECT_THAT(daemon.Output(), HasSubstr("too many requests wait for their replies"));
    ExpectServing();
    daemon.Signal(SIGTERM);
    EXPECT_EQ(0, daemon.Wait());
}

}  // namespace
}  // namespace vimbra::tests
