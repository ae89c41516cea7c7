// Watch for router advertisements: a real router on the other side of the link advertises.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr u32 kStart = 279;
constexpr u32 kStop = 280;
constexpr char kSocket[] = "ipc_router_notify";

s32 Start(const std::string& iface, s32 id = 3584) {
    return Ask(kStart, Pack().Text(iface, 16).S32(id));
}

s32 Stop(const std::string& iface) {
    return Ask(kStop, Pack().Text(iface, 16));
}

// The addresses of a notification, as KernelAddresses() tells the kernel's.
std::vector<std::string> AddressesOf(const Told& message, u16 family) {
    static const char* const kScopes[] = {"default", "host", "link", "site", "global"};
    std::vector<std::string> found;
    for (u32 i = 0; i < message.body.U32(16); ++i) {
        const size_t entry = 20 + 28 * i;
        if (message.body.U16(entry + 4) != family) {
            continue;
        }
        char text[INET6_ADDRSTRLEN] = "";
        inet_ntop(family, message.body.data() + entry + 8, text, sizeof(text));
        found.push_back(std::string(text) + "/" + std::to_string(message.body.U32(entry + 24)) +
                        " " + kScopes[message.body.U32(entry)]);
    }
    std::sort(found.begin(), found.end());
    return found;
}

// A host on eth0's link that advertises prefixes.
class Router {
 public:
    Router() {
        Connect("eth0", host_);
        host_.Shell("echo 1 > /proc/sys/net/ipv6/conf/all/forwarding");
        EXPECT_TRUE(WaitFor([this] {
            return host_.Shell("ip -6 address show dev eth0 scope link -tentative").find("fe80") !=
                   std::string::npos;
        }));
        EXPECT_TRUE(WaitFor([] {
            return Shell("ip -6 address show dev eth0 scope link -tentative").find("fe80") !=
                   std::string::npos;
        }));
    }

    void Advertise(
        const std::string& prefixes,
        const std::string& lifetimes = "AdvValidLifetime 600; AdvPreferredLifetime 300;") {
        std::string config =
            "interface eth0 { AdvSendAdvert on; MinRtrAdvInterval 3; MaxRtrAdvInterval 4;\n";
        std::istringstream words(prefixes);
        for (std::string prefix; words >> prefix;) {
            config +=
                "prefix " + prefix + " { AdvOnLink on; AdvAutonomous on; " + lifetimes + " };\n";
        }
        program_.reset();
        // Files of its own: a helper of the one before may hold the old ones a moment longer.
        const std::string name = "/tmp/radvd" + std::to_string(++starts_);
        WriteFile(name + ".conf", config + "};\n");
        program_ = std::make_unique<Program>(
            std::vector<std::string>{"nsenter", "-t", std::to_string(host_.Pid()), "-n", "radvd",
                                     "--nodaemon", "--logmethod", "stderr", "--config",
                                     name + ".conf", "--pidfile", name + ".pid"},
            name + ".log");
    }

    void FallSilent() { program_.reset(); }

    std::string Log() const { return program_->Output(); }

 private:
    Host host_;
    int starts_ = 0;
    std::unique_ptr<Program> program_;
};

bool HasPrefix(const std::vector<std::string>& addresses, const std::string& prefix) {
    return std::any_of(addresses.begin(), addresses.end(),
                       [&](const auto& each) { return each.starts_with(prefix); });
}

TEST(VimbradRouterAdvertisement, TellsOfAllAddressesAfterAnAdvertisement) {
    Router router;
    Shell("ip address add 192.0.2.1/24 dev eth0");
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start("eth0"));
    router.Advertise("2001:db8:1::/64");
    const Told first = listener.Wait(1)[0];
    EXPECT_EQ(0u, first.type);
    EXPECT_EQ(468u, first.size);
    ASSERT_EQ(468u, first.body.size());
    EXPECT_EQ("eth0", first.body.Text(0, 16));
    EXPECT_TRUE(HasPrefix(AddressesOf(first, 10), "2001:db8:1:")) << router.Log();
    EXPECT_THAT(AddressesOf(first, 2), ElementsAreArray(KernelAddresses("eth0", 2)));
    EXPECT_THAT(AddressesOf(first, 10), ElementsAreArray(KernelAddresses("eth0", 10)));
}

TEST(VimbradRouterAdvertisement, TellsOfChangesOnly) {
    Router router;
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start("eth0"));
    router.Advertise("2001:db8:1::/64");
    listener.Wait(1);
    // The same again every few seconds, until a new one comes.
    const std::string before = Shell("cat /proc/self/net/snmp6 | grep Icmp6InRouterAdvertisements");
    EXPECT_TRUE(WaitFor([&] {
        return Shell("cat /proc/self/net/snmp6 | grep Icmp6InRouterAdvertisements") != before;
    }));
    router.Advertise("2001:db8:1::/64 2001:db8:2::/64");
    const Told second = listener.Wait(2)[1];
    EXPECT_TRUE(HasPrefix(AddressesOf(second, 10), "2001:db8:1:"));
    EXPECT_TRUE(HasPrefix(AddressesOf(second, 10), "2001:db8:2:"));
}

TEST(VimbradRouterAdvertisement, TellsOfAnAddressWhoseTimeIsUp) {
    Router router;
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start("eth0"));
    router.Advertise("2001:db8:1::/64", "AdvValidLifetime 6; AdvPreferredLifetime 6;");
    ASSERT_TRUE(HasPrefix(AddressesOf(listener.Wait(1)[0], 10), "2001:db8:1:"));
    router.FallSilent();
    EXPECT_TRUE(WaitFor(
        [&] { return !HasPrefix(AddressesOf(listener.Messages().back(), 10), "2001:db8:1:"); }));
}

TEST(VimbradRouterAdvertisement, AddressesFromElsewhereAreNotReported) {
    Router router;
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start("eth0"));
    Shell("ip address add 192.0.2.1/24 dev eth0");
    Shell("ip address add fd00::1/64 dev eth0");
    Shell("ip address add fd00::2/64 dev eth0 nodad");
    router.Advertise("2001:db8:1::/64");
    const Told first = listener.Wait(1)[0];
    EXPECT_TRUE(HasPrefix(AddressesOf(first, 10), "2001:db8:1:"));
    EXPECT_TRUE(HasPrefix(AddressesOf(first, 10), "fd00::1"));
}

TEST(VimbradRouterAdvertisement, OtherInterfacesAreNotWatched) {
    Router router;
    MakeIface("eth1");
    Daemon daemon;
    Listener listener(kSocket);
    ASSERT_EQ(0, Start("eth1"));
    router.Advertise("2001:db8:1::/64");
    EXPECT_TRUE(WaitFor([] { return HasPrefix(KernelAddresses("eth0", 10), "2001:db8:1:"); }));
    ASSERT_EQ(0, Start("eth0"));
    router.Advertise("2001:db8:2::/64");
    EXPECT_EQ("eth0", listener.Wait(1)[0].body.Text(0, 16));
}

TEST(VimbradRouterAdvertisement, StopEndsItAndMayBeRepeated) {
    Router router;
    Daemon daemon;
    Listener listener(kSocket);
    EXPECT_EQ(0, Stop("eth0"));
    ASSERT_EQ(0, Start("eth0"));
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_EQ(0, Stop("eth0"));
    router.Advertise("2001:db8:1::/64");
    EXPECT_TRUE(WaitFor([] {
        return Shell("ip -6 address show dev eth0 -tentative").find("2001:db8:1:") !=
               std::string::npos;
    }));
    ASSERT_EQ(0, Start("eth0"));
    router.Advertise("2001:db8:2::/64");
    EXPECT_TRUE(HasPrefix(AddressesOf(listener.Wait(1)[0], 10), "2001:db8:2:"));
}

TEST(VimbradRouterAdvertisement, UnknownInterfaceIsRefused) {
    Daemon daemon;
    EXPECT_EQ(ENODEV, Start("nowhere0"));
    EXPECT_EQ(ENODEV, Start(""));
    EXPECT_EQ(ENODEV, Start(std::string(16, 'x')));
}

TEST(VimbradRouterAdvertisement, InterfaceThatGoesDoesNoHarm) {
    Daemon daemon;
    MakeIface("eth0");
    ASSERT_EQ(0, Start("eth0"));
    Shell("ip link del eth0");
    EXPECT_EQ(ENODEV, Start("eth0"));
    EXPECT_TRUE(daemon.Running());
}

}  // namespace
}  // namespace vimbra::tests
