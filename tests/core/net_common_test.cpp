// Legacy names of the entry points.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/log.h>
#include <vimbra/net_common.h>

#include <cerrno>
#include <string>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "links.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(NetInit, IsVimbraInit) {
    ASSERT_EQ(0, NetInit());
    Capture log;
    EXPECT_EQ(0, NetInit());
    EXPECT_EQ(0, VimbraInit());
    const Said said = Prt("VimbraInit", "the vimbra modules has been inited!");
    EXPECT_TRUE(Wrote(log, {said, said}));
}

TEST(NetQueryVersion, IsTheVersionQuery) {
    char legacy[256];
    char current[256];
    EXPECT_EQ(0, NetQueryVersion(legacy, sizeof(legacy)));
    EXPECT_EQ(0, VimbraQueryVersion(current, sizeof(current)));
    EXPECT_STREQ(legacy, current);
    EXPECT_EQ(0u, std::string(legacy).find("Vimbras Module Version: V2.0.3."));

    Capture log;
    EXPECT_EQ(-1, NetQueryVersion(nullptr, 256));
    EXPECT_TRUE(Wrote(log, {Err("NetQueryVersion", "the point is NULL")}));
}

TEST(NetLogSwitch, IsVimbraLogSwitch) {
    ScriptedDaemon daemon;
    Capture log;
    EXPECT_EQ(0, NetLogSwitch(4));
    EXPECT_EQ(4u, g_nVimbraLogSwitch);
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Pack().U32(0x0702).U32(4).S32(0).U32(4), daemon.Requests()[0].raw);
    EXPECT_EQ(-1, NetLogSwitch(6));
    EXPECT_TRUE(Wrote(log, {Err("VimbraLogSwitch", "dwSwitch is more than VIMBRA_LEVEL_DEBUG")}));
}

TEST(NetInterface, ActsOnTheNumberedInterface) {
    MakeLink("eth0", "far0");
    MakeLink("eth1", "far1");
    MakeLink("eth2", "far2");
    for (u32 number = 0; number <= 2; number++) {
        const std::string name = "eth" + std::to_string(number);
        u32 state = 0;
        Capture log;
        EXPECT_EQ(0, NetInterfaceNoShutdown(number));
        EXPECT_EQ(0, NetGetEthState(static_cast<s32>(number), &state));
        EXPECT_EQ(1u, state);
        EXPECT_EQ(0, NetInterfaceShutdown(number));
        EXPECT_EQ(0, NetGetEthState(static_cast<s32>(number), &state));
        EXPECT_EQ(2u, state);
        EXPECT_TRUE(Wrote(log, {Prt("VimbraIfaceNoShutdown", "pchIfaceName : " + name),
                                Prt("VimbraGetIfaceState", "pchIfaceName : " + name),
                                Prt("VimbraIfaceShutdown", "pchIfaceName : " + name),
                                Prt("VimbraGetIfaceState", "pchIfaceName : " + name)}));
    }
}

TEST(NetInterface, RefusesNumbersThatDoNotExist) {
    for (const u32 number : {3u, 4u, 0xffffffffu}) {
        const Said naming =
            Err("interface_name", "Eth:" + std::to_string(static_cast<s32>(number)) +
                                      " does not exist and max interface NO:2");
        u32 state = 77;
        Capture log;
        EXPECT_EQ(1201, NetInterfaceShutdown(number));
        EXPECT_EQ(1201, NetInterfaceNoShutdown(number));
        EXPECT_EQ(1201, NetGetEthState(static_cast<s32>(number), &state));
        EXPECT_EQ(77u, state);
        EXPECT_TRUE(Wrote(log, {naming, Err("NetInterfaceShutdown", "interface_name failed"),
                                naming, Err("NetInterfaceNoShutdown", "interface_name failed"),
                                naming, Err("NetGetEthState", "interface_name failed")}));
    }
}

TEST(NetInterface, LooksAtTheNumberBeforeTheOutput) {
    EXPECT_EQ(1201, NetGetEthState(3, nullptr));
    Capture log;
    EXPECT_EQ(1105, NetGetEthState(0, nullptr));
    EXPECT_TRUE(Wrote(log, {Err("VimbraGetIfaceState", "the pchIfaceName or pdwFlag is NULL!")}));
}

TEST(NetInterface, FailsForAMissingInterface) {
    u32 state = 77;
    Capture log;
    EXPECT_EQ(-1, NetGetEthState(0, &state));
    EXPECT_EQ(-1, NetInterfaceShutdown(1));
    EXPECT_EQ(-1, NetInterfaceNoShutdown(2));
    EXPECT_EQ(77u, state);
    EXPECT_EQ(3, log.Count(Kind::kError, kAny, "get flag error!"));
}

TEST(NetCheckTheSameNet, TakesThePrefixLengthAsMask) {
    const u32 ip = inet_addr("192.168.1.10");
    const u32 gateway = inet_addr("192.168.2.1");
    EXPECT_EQ(1111, NetCheckTheSameNet(ip, 24, gateway));
    EXPECT_EQ(0, NetCheckTheSameNet(ip, 16, gateway));
    EXPECT_EQ(0, NetCheckTheSameNet(ip, 32, ip));
    EXPECT_EQ(1111, NetCheckTheSameNet(ip, 32, inet_addr("192.168.1.11")));
    EXPECT_EQ(0, NetCheckTheSameNet(ip, 24, 0));
    EXPECT_EQ(-1, NetCheckTheSameNet(ip, 33, gateway));
    EXPECT_EQ(1105, NetCheckTheSameNet(ip, 0, gateway));
}

TEST(NetCheckTheSameNet, RefusesADottedMask) {
    const u32 mask = inet_addr("255.255.255.0");
    Capture log;
    EXPECT_EQ(-1, NetCheckTheSameNet(inet_addr("192.168.1.10"), mask, inet_addr("192.168.1.1")));
    EXPECT_TRUE(Wrote(log, {Err("VimbraCheckIsSameNet", "the dwPrefix is " +
                                                            std::to_string(static_cast<s32>(mask)) +
                                                            " more than 128!")}));
}

}  // namespace
}  // namespace vimbra::tests
