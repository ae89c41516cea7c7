// The bond over the ends of its daemon. Where the kernel has no bonding driver an interface of its
// name stands in for it: to a later life a bond is a name and what its members were before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/iface.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "lives.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr u32 kBondStop = 3842;
constexpr char kState[] = "/run/vimbrad/state.json";
constexpr char kAddress[] = "2001:db8::7/64 global";

std::string Digits(const Bytes& bytes) {
    std::string text;
    for (const auto each : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", each);
        text += digits;
    }
    return text;
}

class VimbradBondRestart : public testing::Test {
 protected:
    void SetUp() override {
        for (const char* each : {"bond0", "eth0", "eth1"}) {
            MakeIface(each);
        }
        Shell("mkdir -m 700 /run/vimbrad && ip link set eth0 down && ip link set eth1 down");
        WriteFile(kState, State().dump());
    }

    // What a daemon leaves that has made a bond of eth0, which was up and had an address, and eth1,
    // which was down.
    static Json State() {
        const Bytes address = Pack().U32(0).Address(10, "2001:db8::7").U32(64);
        Json boot = Shell("cat /proc/sys/kernel/random/boot_id");
        boot = boot.get<std::string>().substr(0, 36);
        return {{"format", 1},
                {"boot", boot},
                {"programs", Json::array()},
                {"bond", {{"mode", 1}, {"active", "eth1"}}},
                {"bond_members",
                 {{{"name", "eth0"}, {"up", true}, {"addresses", {Digits(address)}}},
                  {{"name", "eth1"}, {"up", false}, {"addresses", Json::array()}}}}};
    }

    static bool IsUp(const char* iface) {
        const Json flags = Ip(std::string("link show dev ") + iface).at(0).at("flags");
        return std::find(flags.begin(), flags.end(), "UP") != flags.end();
    }
    static bool BondIsThere() { return ShellStatus("ip link show dev bond0") == 0; }

    static void ExpectMembersAsBefore() {
        EXPECT_FALSE(BondIsThere());
        EXPECT_TRUE(IsUp("eth0"));
        EXPECT_FALSE(IsUp("eth1"));
        EXPECT_THAT(KernelAddresses("eth0", 10), Contains(kAddress));
    }
};

TEST_F(VimbradBondRestart, IsTheNextDaemonsAndLeftAlone) {
    Lives daemon({"--keep"});
    const Json bond{
        {"interface", "bond0"}, {"mode", 1}, {"members", {"eth0", "eth1"}}, {"active", "eth1"}};
    EXPECT_EQ(bond, Shown("bond"));
    daemon.KillAndBegin();
    EXPECT_EQ(bond, Shown("bond"));
    daemon.End();
    EXPECT_TRUE(BondIsThere());
    EXPECT_FALSE(IsUp("eth0"));
    EXPECT_THAT(KernelAddresses("eth0", 10), Not(Contains(kAddress)));
}

TEST_F(VimbradBondRestart, StopPutsBackWhatItsMembersWere) {
    Lives daemon;
    daemon.KillAndBegin();
    EXPECT_EQ(0, Ask(kBondStop, {}));
    ExpectMembersAsBefore();
    EXPECT_THAT(Shown("bond"), IsEmpty());
    // It is nobody's any more.
    MakeIface("bond0");
    daemon.KillAndBegin();
    EXPECT_THAT(Shown("bond"), IsEmpty());
    daemon.End();
    EXPECT_TRUE(BondIsThere());
}

TEST_F(VimbradBondRestart, EndWithoutKeepPutsBackWhatItsMembersWere) {
    Lives daemon;
    daemon.KillAndBegin();
    daemon.End();
    ExpectMembersAsBefore();
}

TEST_F(VimbradBondRestart, ForgottenItStays) {
    Lives daemon({"--forget"});
    EXPECT_THAT(Shown("bond"), IsEmpty());
    daemon.End();
    EXPECT_TRUE(BondIsThere());
}

TEST_F(VimbradBondRestart, MemberThatIsGoneHoldsUpNothing) {
    Shell("ip link del eth0");
    Lives daemon;
    EXPECT_EQ(0, Ask(kBondStop, {}));
    EXPECT_TRUE(daemon.WaitLog("eth0 is not as it was before: no interface eth0"));
    EXPECT_FALSE(BondIsThere());
}

}  // namespace
}  // namespace vimbra::tests
