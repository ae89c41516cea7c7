// The watches of the DHCP server's leases, several at a time.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/net_dhcps.h>

#include <algorithm>
#include <cstdio>

#include "../ground/lease_watches.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kLeases[] = "/usr/etc/udhcpd.leases";
constexpr char kOldLeases[] = "/usr/etc/udhcpd.leases.old";

// Their descriptors, whether something is still watched or not.
size_t Watches() {
    const auto open = OpenDescriptors();
    return static_cast<size_t>(std::count_if(open.begin(), open.end(), [](const auto& one) {
        return one.second.find("inotify") != std::string::npos;
    }));
}

void StartWatch() {
    const size_t before = LeaseWatches();
    TDhcpServerConfInfo config = {};
    NetDhcpsStart(&config, nullptr);  // The watch comes before the checks.
    ASSERT_TRUE(WaitFor([&] { return LeaseWatches() == before + 1; }));
}

// Each belongs to the file that was there when it began, and is closed in a forked child as long as
// it runs.
TEST(LeaseWatch, TheFirstMayEndBeforeTheSecond) {
    PrepareSilently();
    WriteFile(kLeases, "");
    const Level none;
    StartWatch();
    const Level one;
    ASSERT_EQ(0, rename(kLeases, kOldLeases));
    WriteFile(kLeases, "");
    StartWatch();
    ASSERT_EQ(0, unlink(kOldLeases));
    one.ExpectThreadsBack();
    EXPECT_EQ(1u, Watches());
    const pid_t child = fork();
    if (child == 0) {
        _exit(static_cast<int>(Watches()));
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    ASSERT_EQ(0, unlink(kLeases));
    none.ExpectBack();
}

}  // namespace
}  // namespace vimbra::tests
