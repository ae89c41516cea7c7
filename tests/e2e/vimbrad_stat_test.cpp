// Statistics: what the daemon reports is what the kernel counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <sstream>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kStart = 0x0703;
constexpr u32 kStop = 0x0704;
constexpr char kSocket[] = "ipc_stat";

struct Counters {
    u64 sent = 0;
    u64 received = 0;
    bool operator==(const Counters&) const = default;
};
void PrintTo(const Counters& counters, std::ostream* out) {
    *out << counters.sent << " sent, " << counters.received << " received";
}

u64 U64(const Bytes& bytes, size_t offset) {
    return bytes.U32(offset) | static_cast<u64>(bytes.U32(offset + 4)) << 32;
}

Counters CountersOf(const Told& report, size_t iface) {
    return {U64(report.body, 24 * iface), U64(report.body, 24 * iface + 8)};
}

Counters Kernel(const std::string& iface) {
    std::istringstream lines(Shell("cat /proc/self/net/dev"));
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos ||
            line.substr(line.find_first_not_of(' '), iface.size() + 1) != iface + ":") {
            continue;
        }
        std::istringstream fields(line.substr(colon + 1));
        Counters counters;
        fields >> counters.received;
        for (int i = 0; i < 8; ++i) {
            fields >> counters.sent;
        }
        return counters;
    }
    ADD_FAILURE() << "no " << iface;
    return {};
}

// An interface on which nothing moves by itself.
void MakeQuiet(const std::string& name) {
    Shell("ip link add " + name + " type veth peer name peer-" + name);
    for (const std::string& each : {name, "peer-" + name}) {
        Shell("ip link set " + each + " addrgenmode none && ip link set " + each + " arp off up");
    }
}

// Sends `count` packets of `size` bytes out of an interface.
void SendPackets(const std::string& iface, int count, int size) {
    Shell("ip address replace 192.0.2.1/24 dev " + iface);
    Shell("ping -q -i 0.01 -W 0.1 -c " + std::to_string(count) + " -s " + std::to_string(size) +
          " -I " + iface + " 192.0.2.9 || true");
}

TEST(VimbradStat, ReportHoldsTheKernelsCounters) {
    MakeQuiet("eth0");
    MakeQuiet("eth2");
    SendPackets("eth0", 5, 1000);
    const Counters before = Kernel("eth0");
    ASSERT_GE(before.sent, 5000u);
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    const Told report = listener.Wait(1)[0];
    EXPECT_EQ(72u, report.size);
    ASSERT_EQ(72u, report.body.size());
    EXPECT_EQ(before, CountersOf(report, 0));
    EXPECT_EQ(1u, report.body.U32(16));
    EXPECT_EQ(Bytes(24, 0), report.body.Slice(24, 24)) << "there is no eth1";
    EXPECT_EQ(Kernel("eth2"), CountersOf(report, 2));
    EXPECT_EQ(1u, report.body.U32(64));
    EXPECT_EQ(0u, report.body.U32(20)) << "reserved";
    EXPECT_EQ(0, Ask(kStop, {}));
}

TEST(VimbradStat, ReportsComeAtTheInterval) {
    MakeQuiet("eth1");
    Daemon daemon;
    Listener listener(kSocket);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    EXPECT_EQ(CountersOf(listener.Wait(1)[0], 1), Kernel("eth1"));
    SendPackets("eth1", 3, 500);
    listener.Wait(4);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900));
    // The next one may have been on its way before the last packet.
    const std::vector<Told> reports = listener.Wait(listener.Messages().size() + 2);
    EXPECT_GE(CountersOf(reports.back(), 1).sent - CountersOf(reports[0], 1).sent, 1500u);
    EXPECT_EQ(Kernel("eth1"), CountersOf(reports.back(), 1));
}

TEST(VimbradStat, InterfaceThatComesAndGoes) {
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    EXPECT_EQ(Bytes(72, 0), listener.Wait(1)[0].body);
    MakeQuiet("eth0");
    EXPECT_TRUE(WaitFor([&] { return listener.Messages().back().body.U32(16) == 1; }));
    Shell("ip link del eth0");
    EXPECT_TRUE(WaitFor([&] { return listener.Messages().back().body.U32(16) == 0; }));
}

TEST(VimbradStat, IntervalBelowOneIsRefused) {
    Daemon daemon;
    for (const s32 interval : {0, -1, INT32_MIN}) {
        EXPECT_EQ(EINVAL, Ask(kStart, Pack().S32(interval)));
    }
    EXPECT_EQ(0, Ask(kStart, Pack().S32(INT32_MAX)));
}

TEST(VimbradStat, StopEndsTheReportsAndMayBeRepeated) {
    Daemon daemon;
    Listener listener(kSocket);
    EXPECT_EQ(0, Ask(kStop, {}));
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    listener.Wait(1);
    EXPECT_EQ(0, Ask(kStop, {}));
    EXPECT_EQ(0, Ask(kStop, {}));
    listener.Forget();
    // Nothing of the first is left beside the one report of the second.
    ASSERT_EQ(0, Ask(kStart, Pack().S32(3600)));
    listener.Wait(1);
    EXPECT_FALSE(
        WaitFor([&] { return listener.Messages().size() > 1; }, std::chrono::milliseconds(1500)));
}

TEST(VimbradStat, NewStartReplacesTheOld) {
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, Pack().S32(3600)));
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    listener.Wait(3);
}

TEST(VimbradStat, ApplicationMayListenLate) {
    Daemon daemon;
    ASSERT_EQ(0, Ask(kStart, Pack().S32(3600)));
    Listener listener(kSocket);
    listener.Wait(1);
}

TEST(VimbradStat, ApplicationThatIsGoneEndsTheReports) {
    Daemon daemon({"--log-level=4"});
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    EXPECT_TRUE(daemon.WaitLog("messages dropped"));
    Listener listener(kSocket);
    EXPECT_FALSE(
        WaitFor([&] { return !listener.Messages().empty(); }, std::chrono::milliseconds(2500)));
}

TEST(VimbradStat, EndsWhileReportsAreOwed) {
    Daemon daemon;
    ASSERT_EQ(0, Ask(kStart, Pack().S32(1)));
    EXPECT_EQ(0, daemon.Stop());
}

}  // namespace
}  // namespace vimbra::tests
