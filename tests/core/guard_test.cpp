// Guards behind calls of the library itself that do not fail as they stand. Here they do: the
// linker puts these functions in their place.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/iface.h>
#include <vimbra/iface_check.h>
#include <vimbra/log.h>
#include <vimbra/net_common.h>

#include <optional>
#include <vimbra/bed.hpp>

#include "api/api_ip/api_ipaddr/api_ipaddr.hpp"
#include "expect_log.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

std::optional<s32> g_queryVersion;
std::optional<s32> g_levelSet;
std::optional<s32> g_checkIp;

}  // namespace

extern "C" {

s32 __real_NetQueryVersion(char* text, u32 size);
s32 __real_VimbraDebugLevelSet(u32 level);
s32 __real_check_ip(u32 ip);

s32 __wrap_NetQueryVersion(char* text, u32 size) {
    return g_queryVersion ? *g_queryVersion : __real_NetQueryVersion(text, size);
}
s32 __wrap_VimbraDebugLevelSet(u32 level) {
    return g_levelSet ? *g_levelSet : __real_VimbraDebugLevelSet(level);
}
s32 __wrap_check_ip(u32 ip) {
    return g_checkIp ? *g_checkIp : __real_check_ip(ip);
}
}

namespace {

TEST(Guard, InitWithoutVersionFailsAndMayBeTriedAgain) {
    Capture log;
    g_queryVersion = -1;
    EXPECT_EQ(-1, VimbraInit());
    EXPECT_EQ(-1, VimbraInit());
    const Said said = Err("VimbraInit", "NetQueryVersion ERROR");
    EXPECT_TRUE(Wrote(log, {said, said}));
    g_queryVersion.reset();
    log.Clear();
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(0, log.Count(Kind::kPrint, "VimbraInit", "the vimbra modules has been inited!"));
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(1, log.Count(Kind::kPrint, "VimbraInit", "the vimbra modules has been inited!"));
}

TEST(Guard, LevelThatCannotBeSetIsNotSent) {
    ScriptedDaemon daemon;
    Capture log;
    g_levelSet = 7;
    EXPECT_EQ(-1, VimbraLogSwitch(3));
    EXPECT_TRUE(Wrote(log, {Err("VimbraLogSwitch", "Business process VimbraDebugLevelSet ERROR")}));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST(Guard, UnknownAddressClassIsRefused) {
    char name[] = "eth0";
    TVimbraIfaceIp ip = {};
    ip.tIpAddr.wSinFamily = VIMBRA_FAMILY_IPV4;
    Capture log;
    g_checkIp = 1306;
    EXPECT_EQ(-1, VimbraIfaceAddIp(name, &ip));
    EXPECT_TRUE(Wrote(
        log, {Err("ApicCheckIp", "invalid ip!"), Err("VimbraIfaceAddIp", "Ip addr is invalid!")}));
}

TEST(Guard, UnknownFamilyIsRefusedSilently) {
    TVimbraIfaceIp ip = {};
    Capture log;
    for (const u16 family : {u16{0}, u16{11}, u16{65535}}) {
        ip.tIpAddr.wSinFamily = family;
        EXPECT_EQ(-1, ApicCheckIp(&ip));
    }
    EXPECT_TRUE(log.IsSilent());
}

// The count may change under the library's hands; the body has room for sixteen.
TEST(Guard, SetOfAddressesStaysInItsBody) {
    ScriptedDaemon daemon;
    TVimbraIfaceAllIp all = {};
    for (const u32 count : {17u, 0xffffffffu}) {
        all.dwIpNum = count;
        EXPECT_EQ(0, ApicIpaddrSet("eth0", 2, &all));
        EXPECT_EQ(470u, daemon.Requests().back().size);
        EXPECT_EQ(16u, daemon.Requests().back().body.U32(18));
    }
}

TEST(Guard, ScopesOfASet) {
    for (u32 scope = 0; scope < 8; scope++) {
        EXPECT_EQ(scope == 0 || scope == 2 || scope == 4 ? 0 : -1,
                  CheckeScopeType(EVimbraScopeType(scope)));
    }
}

}  // namespace
}  // namespace vimbra::tests
