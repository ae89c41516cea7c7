// An interface's state: up, down, what it is.
#include <gtest/gtest.h>
#include <net/if.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>

#include <cerrno>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "links.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(IfaceState, TellsUpAndDown) {
    MakeLink("eth0", "far0");
    char lo[] = "lo";
    char eth[] = "eth0";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(0, VimbraGetIfaceState(lo, &state));
    EXPECT_EQ(1u, state);
    EXPECT_EQ(0, VimbraGetIfaceState(eth, &state));
    EXPECT_EQ(2u, state);
    EXPECT_TRUE(Wrote(log, {Prt("VimbraGetIfaceState", "pchIfaceName : lo"),
                            Prt("VimbraGetIfaceState", "pchIfaceName : eth0")}));
}

TEST(IfaceState, ShutdownAndNoShutdownChangeIt) {
    MakeLink("eth0", "far0");
    char name[] = "eth0";
    u32 before = 0;
    u32 flags = 0;
    ASSERT_EQ(0, IfethGetFlags(name, &before));
    Capture log;
    EXPECT_EQ(0, VimbraIfaceNoShutdown(name));
    ASSERT_EQ(0, IfethGetFlags(name, &flags));
    EXPECT_EQ(before | IFF_UP, flags & ~static_cast<u32>(IFF_RUNNING));
    EXPECT_EQ(0, VimbraIfaceShutdown(name));
    ASSERT_EQ(0, IfethGetFlags(name, &flags));
    EXPECT_EQ(before, flags);
    EXPECT_TRUE(Wrote(log, {Prt("VimbraIfaceNoShutdown", "pchIfaceName : eth0"),
                            Prt("VimbraIfaceShutdown", "pchIfaceName : eth0")}));
}

TEST(IfaceState, ShutdownOfLoTakesItDown) {
    char name[] = "lo";
    u32 state = 0;
    for (int round = 0; round < 3; round++) {
        EXPECT_EQ(0, VimbraIfaceShutdown(name));
        EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
        EXPECT_EQ(2u, state);
        EXPECT_EQ(0, VimbraIfaceNoShutdown(name));
        EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
        EXPECT_EQ(1u, state);
    }
}

TEST(IfaceState, RefusesNullArguments) {
    char name[] = "lo";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(1105, VimbraIfaceShutdown(nullptr));
    EXPECT_EQ(1105, VimbraIfaceNoShutdown(nullptr));
    EXPECT_EQ(1105, VimbraGetIfaceState(nullptr, &state));
    EXPECT_EQ(1105, VimbraGetIfaceState(name, nullptr));
    EXPECT_EQ(1105, VimbraGetIfaceState(nullptr, nullptr));
    const std::string text = "the pchIfaceName or pdwFlag is NULL!";
    EXPECT_TRUE(Wrote(log, {Err("VimbraIfaceShutdown", "the pchIfaceName is NULL!"),
                            Err("VimbraIfaceNoShutdown", "the pchIfaceName is NULL!"),
                            Err("VimbraGetIfaceState", text), Err("VimbraGetIfaceState", text),
                            Err("VimbraGetIfaceState", text)}));
}

TEST(IfaceState, FailsForAMissingInterface) {
    char name[] = "nosuch0";
    u32 state = 77;
    Capture log;
    EXPECT_EQ(-1, VimbraIfaceShutdown(name));
    EXPECT_EQ(-1, VimbraIfaceNoShutdown(name));
    EXPECT_EQ(-1, VimbraGetIfaceState(name, &state));
    EXPECT_EQ(77u, state);
    std::vector<Said> expected;
    for (const char* function :
         {"VimbraIfaceShutdown", "VimbraIfaceNoShutdown", "VimbraGetIfaceState"}) {
        expected.push_back(Prt(function, "pchIfaceName : nosuch0"));
        expected.push_back(Perr("SocketIoctl", "ioctl error", ENODEV));
        expected.push_back(Perr("IfethGetFlags", "ioctl error", ENODEV));
        expected.push_back(Err(function, "get flag error!"));
    }
    EXPECT_TRUE(Wrote(log, expected));
}

TEST(IfaceState, LongNameActsOnItsFirst15Characters) {
    MakeLink("abcdefghijklmno", "far0");
    char name[] = "abcdefghijklmnopqrst";
    u32 state = 0;
    Capture log;
    EXPECT_EQ(0, VimbraIfaceNoShutdown(name));
    EXPECT_EQ(0, VimbraGetIfaceState(name, &state));
    EXPECT_EQ(1u, state);
    EXPECT_TRUE(Wrote(log, {Prt("VimbraIfaceNoShutdown", "pchIfaceName : abcdefghijklmnopqrst"),
                            Prt("VimbraGetIfaceState", "pchIfaceName : abcdefghijklmnopqrst")}));
}

}  // namespace
}  // namespace vimbra::tests
