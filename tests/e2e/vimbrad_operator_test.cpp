// What operators are told on the socket of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/iface.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <vimbra/bed.hpp>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;

namespace {

constexpr u32 kDhcpStart = 0x501;
constexpr u32 kTableAdd = 288;

char g_none[] = "none";

Json ErrorOf(const std::string& line) {
    return AskOperators(line).at("errno");
}

TEST(VimbradOperator, EveryQuestionHasItsAnswer) {
    const Daemon daemon;
    const Json all = AskOperators(R"({"ask": "status"})");
    for (const char* what :
         {"daemon", "dhcp_clients", "dhcp_servers", "pppoe_links", "ntp_clients", "watches",
          "tables", "rules", "gateways", "priority", "bond", "web_server"}) {
        ASSERT_TRUE(all.contains(what)) << what;
        EXPECT_EQ(all.at(what).type(), Shown(what).type()) << what;
    }
    EXPECT_EQ(12u, all.size());
}

TEST(VimbradOperator, DaemonTellsOfItself) {
    Daemon daemon;
    const Json shown = Shown("daemon");
    EXPECT_EQ(daemon.Process().Pid(), shown.at("pid"));
    EXPECT_EQ("2.0.3", shown.at("version"));
    EXPECT_EQ(4, shown.at("log_level"));
    EXPECT_EQ(0, shown.at("lost_log_lines"));
}

TEST(VimbradOperator, KernelsTablesRulesAndGatewaysAreShown) {
    MakeIface("eth0");
    Shell("ip address add 10.0.0.1/24 dev eth0 && ip route add default via 10.0.0.2 metric 5");
    Shell("ip route add 198.51.100.0/24 via 10.0.0.3 table 77");
    Shell("ip rule add from 203.0.113.0/24 priority 99 fwmark 7 table 77");
    const Daemon daemon;
    ASSERT_EQ(0, Ask(kTableAdd, Pack().U32(100)));
    EXPECT_THAT(Shown("gateways"), ElementsAre(Json{{"family", "ipv4"},
                                                    {"gateway", "10.0.0.2"},
                                                    {"interface", "eth0"},
                                                    {"metric", 5},
                                                    {"protocol", "boot"},
                                                    {"table", 254}}));
    EXPECT_THAT(Shown("rules"), Contains(Json{{"family", "ipv4"},
                                              {"mark", 7},
                                              {"priority", 99},
                                              {"source", "203.0.113.0/24"},
                                              {"table", 77}}));
    const Json tables = Shown("tables");
    EXPECT_THAT(tables,
                Contains(Json{{"table", 100}, {"created", true}, {"routes", Json::array()}}));
    EXPECT_THAT(tables, Contains(Json{{"table", 77},
                                      {"created", false},
                                      {"routes",
                                       {{{"destination", "198.51.100.0/24"},
                                         {"family", "ipv4"},
                                         {"gateway", "10.0.0.3"},
                                         {"interface", "eth0"},
                                         {"metric", 0},
                                         {"protocol", "boot"}}}}}));
}

// The netlink library knows those of both families and of multicast, in the order in which the
// kernel happened to tell them.
TEST(VimbradOperator, RulesAreShownOnceAndInTheKernelsOrder) {
    Shell("ip rule add from 203.0.113.0/24 priority 99 table 77");
    Shell("ip rule add from 198.51.100.0/24 priority 0 table 78");
    Shell("ip rule add from 192.0.2.0/24 priority 50 table 79");
    Shell("ip -6 rule add from 2001:db8::/32 priority 98 table 80");
    const Daemon daemon;
    std::vector<std::string> shown;
    for (const Json& each : Shown("rules")) {
        shown.push_back(each.at("family").get<std::string>() + " " + each.at("priority").dump() +
                        " " + each.at("table").dump());
    }
    EXPECT_THAT(shown,
                ElementsAre("ipv4 0 255", "ipv4 0 78", "ipv4 50 79", "ipv4 99 77", "ipv4 32766 254",
                            "ipv4 32767 253", "ipv6 0 255", "ipv6 98 80", "ipv6 32766 254"));
}

TEST(VimbradOperator, ClientWithoutALeaseHasNone) {
    MakeIface("eth0");
    const Daemon daemon;
    ASSERT_EQ(0, Ask(kDhcpStart, Pack().U16(2).Text("eth0", 16)));
    const Json shown = Shown("dhcp_clients").at(0);
    EXPECT_EQ("asking", shown.at("state"));
    EXPECT_FALSE(shown.contains("lease"));
}

TEST(VimbradOperator, LookingTakesNoEventsAway) {
    MakeIface("eth0");
    const Daemon daemon;
    const Listener listener("ipc_dhcpc_eth0");
    ASSERT_EQ(0, Ask(kDhcpStart, Pack().U16(2).Text("eth0", 16)));
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(1u, Shown("dhcp_clients").size());
    }
    EXPECT_EQ(0x506u, listener.Wait(1).at(0).type);
}

TEST(VimbradOperator, WhyARequestWasRefusedIsKnown) {
    const Daemon daemon;
    EXPECT_NE(0, VimbraIfaceSetMtu(g_none, 2, 1400));
    const std::string question = R"({"ask": "refusal", "pid": )";
    EXPECT_EQ((Json{{"refusal",
                     {{"errno", ENODEV}, {"request", "mtu set"}, {"why", "no interface none"}}}}),
              AskOperators(question + std::to_string(getpid()) + "}"));
    EXPECT_EQ((Json{{"refusal", Json::object()}}), AskOperators(question + "1}"));
}

TEST(VimbradOperator, WhatIsNoQuestionIsAnsweredSo) {
    const Daemon daemon;
    for (const char* line : {"", "{", "[]", "7", "{}", R"({"ask": 7})", R"({"ask": "nothing"})",
                             R"({"ask": "refusal", "pid": "x"})", "\xff\xfe"}) {
        EXPECT_EQ(EINVAL, ErrorOf(line)) << line;
    }
    EXPECT_EQ("2.0.3", Shown("daemon").at("version"));
}

// A connection that says nothing, or too much.
class Rude {
 public:
    explicit Rude(const std::string& bytes = {}) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/run/vimbrad/status");
        EXPECT_EQ(0, connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        static_cast<void>(send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    ~Rude() { close(fd_); }
    Rude(const Rude&) = delete;
    Rude& operator=(const Rude&) = delete;

    bool WaitClosed() const {
        char byte;
        return recv(fd_, &byte, 1, 0) <= 0;
    }

 private:
    int fd_;
};

TEST(VimbradOperator, LineWithoutAnEndIsCutOff) {
    const Daemon daemon;
    const Rude rude(std::string(100'000, 'x'));
    EXPECT_TRUE(rude.WaitClosed());
    EXPECT_EQ("2.0.3", Shown("daemon").at("version"));
}

TEST(VimbradOperator, SilentOnesHoldUpNobody) {
    const Daemon daemon;
    std::vector<std::unique_ptr<Rude>> silent;
    for (int i = 0; i < 40; ++i) {
        silent.push_back(std::make_unique<Rude>());
    }
    EXPECT_EQ("2.0.3", Shown("daemon").at("version"));
    EXPECT_TRUE(silent.front()->WaitClosed());
}

TEST(VimbradOperator, WhatIsMissingIsSaidOnceAndShown) {
    setenv("PATH", "/nowhere", 1);
    const Daemon daemon;
    for (const char* thing : {"busybox", "dhclient", "chronyd", "pppd"}) {
        EXPECT_TRUE(daemon.WaitLog(std::string(" info: ") + thing + " is missing: no "));
    }
    EXPECT_EQ("busybox", Shown("daemon").at("missing").at(0).at("thing"));
}

}  // namespace
}  // namespace vimbra::tests
