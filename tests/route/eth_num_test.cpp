// Counting the Ethernet interfaces.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <vimbra/net_ip.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "net_ip.hpp"
#include "said.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// A /proc of the test's own for as long as it is asked; sanitizers want the real one at the end.
class OtherProc {
 public:
    OtherProc() { EXPECT_EQ(0, mount("none", "/proc", "tmpfs", 0, nullptr)) << strerror(errno); }
    ~OtherProc() { EXPECT_EQ(0, umount("/proc")) << strerror(errno); }
};

// The count for a /proc/net/dev with this text.
s32 CountEthernet(const std::string& text) {
    const OtherProc proc;
    WriteFile("/proc/net/dev", text);
    s32 count = -5;
    EXPECT_EQ(0, NetGetEthNum(&count));
    return count;
}

constexpr char kHeader[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes\n";

TEST(EthNum, CountsEthernetNames) {
    Capture log;
    EXPECT_EQ(2, CountEthernet(std::string(kHeader) + "    lo:       0       0    0\n"
                                                      "  eth0:    2776      11    0\n"
                                                      "  eth1: 1215645    2751    0\n"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(EthNum, ANameWithEthAnywhereCounts) {
    EXPECT_EQ(4, CountEthernet(std::string(kHeader) + " veth3: 1\n"
                                                      "  xeth: 1\n"
                                                      "   eth: 1\n"
                                                      "  ETH0: 1\n"  // capitals are other letters
                                                      " wlan0: 1\n"
                                                      " eth-x: 1\n"  // cut at the dash, counted
                                                      "veth12: 1\n"  // not indented
                                                      "\n"));
}

TEST(EthNum, LongLinesAndNames) {
    // The name field holds 31 characters; a line is read in pieces of 1023.
    EXPECT_EQ(3, CountEthernet(" " + std::string(31, 'a') + "eth0: 1\n" +  //
                               " " + std::string(28, 'a') + "eth0: 1\n" +  //
                               std::string(5000, 'b') + "\n" +             //
                               std::string(1023, 'b') + "  eth0: 1\n" +    //
                               "  eth0"));                                 // no newline at the end
}

TEST(EthNum, AnEmptyFileCountsNothing) {
    EXPECT_EQ(0, CountEthernet(""));
}

TEST(EthNum, TheLoopbackIsNone) {
    s32 count = 9;
    EXPECT_EQ(0, NetGetEthNum(&count));  // The test's own network has nothing else.
    EXPECT_EQ(0, count);
}

TEST(EthNum, Failures) {
    Capture log;
    EXPECT_EQ(-1, NetGetEthNum(nullptr));
    EXPECT_TRUE(log.Has(Kind::kError, "NetGetEthNum", "param error"));
    const OtherProc proc;
    s32 count = 9;
    EXPECT_EQ(-1, NetGetEthNum(&count));
    EXPECT_EQ(9, count);
    EXPECT_TRUE(log.Has(Kind::kError, "NetGetEthNum", "fopen error"));
}

TEST(Netdev, IsARecordForTheApplication) {
    EXPECT_EQ(480u, sizeof(NetdevParam));
    EXPECT_EQ(Bytes(480, 0), AsBytes(TNetdevParam));
    strcpy(TNetdevParam.achIfaceName, "eth0");
    TNetdevParam.tNetIfaceAllIp.dwIpNum = 1;
    EXPECT_STREQ("eth0", TNetdevParam.achIfaceName);
}

}  // namespace
}  // namespace vimbra::tests
