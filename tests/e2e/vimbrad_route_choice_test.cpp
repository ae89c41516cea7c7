// Which route is taken: tables, rules and priorities are in the kernel, and packets go by them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "routes.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

TEST_F(VimbradRoute, TablesAreCreatedAndRemoved) {
    EXPECT_EQ(0, VimbraAddRouteTable(1));
    EXPECT_EQ(0, VimbraAddRouteTable(252));
    EXPECT_EQ(EEXIST, VimbraAddRouteTable(252));
    EXPECT_EQ(ENOENT, VimbraDelRouteTable(100));
    EXPECT_EQ(0, AddTo(252, Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(0, AddTo(252, Route("eth0", "fd10::", 48, "fd00::2")));
    EXPECT_EQ(0, AddTo(251, Route("eth0", "172.16.0.0", 12, "10.0.0.2")));
    EXPECT_EQ(0, VimbraDelRouteTable(252));
    EXPECT_THAT(KernelRoutes(2, "252"), IsEmpty());
    EXPECT_THAT(KernelRoutes(10, "252"), IsEmpty());
    EXPECT_THAT(KernelRoutes(2, "251"), SizeIs(1));
    EXPECT_EQ(ENOENT, VimbraDelRouteTable(252));
    EXPECT_EQ(0, VimbraAddRouteTable(252));
    // One that nobody created by request, but that is there.
    EXPECT_EQ(0, VimbraDelRouteTable(251));
    EXPECT_THAT(KernelRoutes(2, "251"), IsEmpty());
}

TEST_F(VimbradRoute, RulesAreInTheKernel) {
    EXPECT_EQ(0, AddRule(Rule("10.0.0.0", 24, 100, 100)));
    EXPECT_EQ(0, AddRule(Rule("0.0.0.0", 0, 200, 200, 0x1234)));
    EXPECT_EQ(0, AddRule(Rule("10.0.0.7", 32, 32765, 255, 7)));
    EXPECT_EQ(0, AddRule(Rule("10.0.0.8", 32, 300, 0)));
    EXPECT_THAT(
        KernelRules(),
        ElementsAre("0:\tfrom all lookup local", "100:\tfrom 10.0.0.0/24 lookup 100",
                    "200:\tfrom all fwmark 0x1234 lookup 200", "300:\tfrom 10.0.0.8 lookup main",
                    "32765:\tfrom 10.0.0.7 fwmark 0x7 lookup local", "32766:\tfrom all lookup main",
                    "32767:\tfrom all lookup default"));
    EXPECT_EQ(EEXIST, AddRule(Rule("10.0.0.0", 24, 100, 100)));
    EXPECT_EQ(EINVAL, AddRule(Rule("10.0.0.0", 33, 101, 100)));
    EXPECT_EQ(ENOENT, DeleteRule(Rule("10.0.0.0", 24, 100, 101)));
    EXPECT_EQ(0, DeleteRule(Rule("10.0.0.0", 24, 100, 100)));
    EXPECT_EQ(0, DeleteRule(Rule("0.0.0.0", 0, 200, 200, 0x1234)));
    EXPECT_EQ(0, DeleteRule(Rule("10.0.0.7", 32, 32765, 255, 7)));
    EXPECT_EQ(0, DeleteRule(Rule("10.0.0.8", 32, 300, 0)));
    EXPECT_EQ(ENOENT, DeleteRule(Rule("10.0.0.8", 32, 300, 0)));
    EXPECT_THAT(KernelRules(), SizeIs(3));
}

TEST_F(VimbradRoute, PriorityIsReadBackAsSet) {
    TVimbraNetworkPrioInfo told{};
    told.dwNetNum = 99;
    EXPECT_EQ(0, VimbraGetNetworkPriority(&told));
    EXPECT_EQ(0u, told.dwNetNum);
    EXPECT_EQ(0, SetPriority({{"eth1", 1}, {"abcdefghijklmnop", 5}, {"eth0", 0}}));
    EXPECT_EQ(0, VimbraGetNetworkPriority(&told));
    EXPECT_EQ(AsBytes(told), Pack()
                                 .U32(3)
                                 .Text("eth1", 16)
                                 .U32(1)
                                 .Text("abcdefghijklmnop", 16)
                                 .U32(5)
                                 .Text("eth0", 16)
                                 .U32(0)
                                 .FillTo(204)
                                 .Get());
}

TEST_F(VimbradRoute, PriorityOrdersTheDefaultRoutes) {
    MakeIface("eth2");
    Shell("ip address add 10.2.0.1/24 dev eth2");
    char eth2[16] = "eth2";
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("10.1.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(eth2, Address("10.2.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("fd00::2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("fd01::2")));
    const auto order = [] {
        std::vector<std::string> names;
        for (const int family : {4, 6}) {
            std::vector<std::pair<int, std::string>> found;
            for (const Json& each : Ip("-" + std::to_string(family) + " route show default")) {
                found.emplace_back(each.value("metric", 0), each.at("dev").get<std::string>());
            }
            std::sort(found.begin(), found.end());
            for (const auto& [metric, name] : found) {
                names.push_back(name);
            }
        }
        return names;
    };
    EXPECT_THAT(order(), ElementsAre("eth0", "eth1", "eth2", "eth0", "eth1"));
    EXPECT_EQ(0, SetPriority({{"eth0", 3}, {"eth1", 1}, {"eth2", 2}}));
    EXPECT_THAT(order(), ElementsAre("eth1", "eth2", "eth0", "eth1", "eth0"));
    EXPECT_EQ("10.1.0.2", Gateway(nullptr, 2));
    // Two change places.
    EXPECT_EQ(0, SetPriority({{"eth0", 3}, {"eth1", 2}, {"eth2", 1}}));
    EXPECT_THAT(order(), ElementsAre("eth2", "eth1", "eth0", "eth1", "eth0"));
    // The default comes after the five, the unnamed after it; equals follow the list.
    EXPECT_EQ(0, SetPriority({{"eth2", 0}, {"eth1", 5}}));
    EXPECT_THAT(order(), ElementsAre("eth1", "eth2", "eth0", "eth1", "eth0"));
    EXPECT_EQ(0, SetPriority({{"eth2", 4}, {"eth0", 4}, {"eth1", 4}}));
    EXPECT_THAT(order(), ElementsAre("eth2", "eth0", "eth1", "eth0", "eth1"));
    // A gateway that is set later takes its interface's place.
    EXPECT_EQ(0, VimbraSetDefGateway(eth2, Address("10.2.0.3")));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.3")));
    EXPECT_THAT(order(), ElementsAre("eth2", "eth0", "eth1", "eth0", "eth1"));
    EXPECT_EQ("10.2.0.3", Gateway(nullptr, 2));
    // First come, first served: eth0 got its gateway of IPv4 last.
    EXPECT_EQ(0, SetPriority({}));
    EXPECT_THAT(order(), ElementsAre("eth1", "eth2", "eth0", "eth0", "eth1"));
    EXPECT_THAT(KernelRoutes(2), testing::Contains("default via 10.1.0.2 dev eth1"));
}

TEST_F(VimbradRoute, ImpossiblePrioritiesAreRefused) {
    EXPECT_EQ(0, SetPriority({{"eth1", 1}}));
    EXPECT_EQ(-1, SetPriority({{"eth1", 6}}));
    EXPECT_EQ(-1, SetPriority({{"", 1}}));
    EXPECT_EQ(-1, SetPriority({{"eth1", 1}, {"eth1", 2}}));
    TVimbraNetworkPrioInfo info{};
    info.dwNetNum = 11;
    EXPECT_EQ(-1, VimbraSetNetworkPriority(&info));
    EXPECT_EQ(0, VimbraGetNetworkPriority(&info));
    EXPECT_EQ(1u, info.dwNetNum);
}

// Two hosts lead to one address, each on a link of its own; which of them a ping goes to shows in
// their own counters.
class VimbradRoutePacket : public testing::Test {
 protected:
    void SetUp() override {
        for (const auto& [name, host, net] :
             {std::tuple{"eth0", &first_, "10.0.0."}, std::tuple{"eth1", &second_, "10.1.0."}}) {
            Connect(name, *host);
            Shell(std::string("ip address add ") + net + "1/24 dev " + name);
            host->Shell(std::string("ip address add ") + net + "2/24 dev eth0");
            host->Shell("ip address add 203.0.113.1/32 dev lo && ip route add default via " +
                        std::string(net) + "1");
        }
        // An address of neither link, so that both hosts answer it.
        Shell("ip address add 192.0.2.1/32 dev lo");
    }

    static int Echoes(const Host& host) {
        return std::stoi(host.Shell("awk \"/^Icmp: [0-9]/ {print \\$10}\" /proc/net/snmp"));
    }

    // Which host was reached; 0 for none.
    int Reached(const std::string& options) {
        const int first = Echoes(first_);
        const int second = Echoes(second_);
        if (ShellStatus("ping -c 1 -W 5 " + options + " 203.0.113.1") != 0) {
            return 0;
        }
        return Echoes(first_) > first ? 1 : Echoes(second_) > second ? 2 : -1;
    }

    Host first_;
    Host second_;
    Daemon daemon_;
};

TEST_F(VimbradRoutePacket, TakesTheRouteOfTheTableThatARuleSelects) {
    EXPECT_EQ(0, Add(Route("eth0", "203.0.113.0", 24, "10.0.0.2")));
    EXPECT_EQ(0, VimbraAddRouteTable(100));
    EXPECT_EQ(0, AddTo(100, Route("eth1", "203.0.113.0", 24, "10.1.0.2")));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, AddRule(Rule("192.0.2.1", 32, 1000, 100)));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
    EXPECT_EQ(1, Reached(""));
    EXPECT_EQ(0, DeleteRule(Rule("192.0.2.1", 32, 1000, 100)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, AddRule(Rule("0.0.0.0", 0, 1000, 100, 42)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(2, Reached("-I 192.0.2.1 -m 42"));
    EXPECT_EQ(0, VimbraDelRouteTable(100));
    EXPECT_EQ(1, Reached("-I 192.0.2.1 -m 42"));
}

TEST_F(VimbradRoutePacket, TakesTheGatewayOfTheTableThatARuleSelects) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("10.1.0.2")));
    EXPECT_EQ(0, VimbraSetDefGatewayToTable(g_eth0, Address("10.0.0.2"), 50));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, AddRule(Rule("192.0.2.0", 24, 10, 50)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, VimbraDelDefGatewayFromTable(g_eth0, 2, 50));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
}

TEST_F(VimbradRoutePacket, GoesByTheMetric) {
    EXPECT_EQ(0, Add(Route("eth0", "203.0.113.0", 24, "10.0.0.2", 10)));
    EXPECT_EQ(0, Add(Route("eth1", "203.0.113.0", 24, "10.1.0.2", 20)));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, Modify(Route("eth0", "203.0.113.0", 24, "10.0.0.2", 30)));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
}

TEST_F(VimbradRoutePacket, GoesByTheNetworkPriority) {
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth0, Address("10.0.0.2")));
    EXPECT_EQ(0, VimbraSetDefGateway(g_eth1, Address("10.1.0.2")));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, SetPriority({{"eth1", 1}, {"eth0", 2}}));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, SetPriority({{"eth1", 2}, {"eth0", 1}}));
    EXPECT_EQ(1, Reached("-I 192.0.2.1"));
    EXPECT_EQ(0, VimbraDelDefGateway(g_eth0, 2));
    EXPECT_EQ(2, Reached("-I 192.0.2.1"));
}

}  // namespace
}  // namespace vimbra::tests
