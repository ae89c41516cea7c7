// The link state of a real interface. The emulator that runs the device's build does not carry this
// ioctl; there the injected one of fault_test stands for it.
#include <gtest/gtest.h>
#include <vimbra/iface_check.h>

#include <cerrno>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "links.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(IfethGetLineStatus, FollowsTheLink) {
    MakeLink("eth0", "far0");
    char name[] = "eth0";
    u32 status = 77;
    Capture log;
    Shell("ip link set eth0 up");
    EXPECT_EQ(0, IfethGetLineStatus(name, &status));
    EXPECT_EQ(0u, status);
    Shell("ip link set far0 up");
    EXPECT_TRUE(WaitFor([&] { return IfethGetLineStatus(name, &status) == 0 && status == 1; }));
    Shell("ip link set far0 down");
    EXPECT_TRUE(WaitFor([&] { return IfethGetLineStatus(name, &status) == 0 && status == 0; }));
    EXPECT_TRUE(log.IsSilent());
}

TEST(IfethGetLineStatus, LongNameActsOnItsFirst15Characters) {
    MakeLink("abcdefghijklmno", "far0");
    char name[] = "abcdefghijklmnop";
    u32 status = 77;
    EXPECT_EQ(0, IfethGetLineStatus(name, &status));
    EXPECT_EQ(0u, status);
}

TEST(IfethGetLineStatus, FailsForAMissingInterface) {
    char name[] = "nosuch0";
    u32 status = 77;
    Capture log;
    EXPECT_EQ(-1, IfethGetLineStatus(name, &status));
    EXPECT_EQ(77u, status);
    EXPECT_TRUE(Wrote(log, {Perr("SocketIoctl", "ioctl error", ENODEV),
                            Perr("IfethGetLineStatus", "ioctl error", ENODEV)}));
}

}  // namespace
}  // namespace vimbra::tests
