// The commands of routes, gateways, tables, rules and priorities against a scripted daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/types.h>

#include <vimbra/bed.hpp>

#include "ctl_daemon.hpp"
#include "ctl_run.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;

namespace {

constexpr u32 kRouteAdd = 267;
constexpr u32 kRouteDel = 269;
constexpr u32 kGatewaySet = 271;
constexpr u32 kGatewayGet = 272;
constexpr u32 kRouteList = 275;
constexpr u32 kRouteMetric = 276;
constexpr u32 kGatewayDel = 278;
constexpr u32 kPrioritySet = 284;
constexpr u32 kPriorityGet = 285;
constexpr u32 kTableAdd = 288;
constexpr u32 kTableDel = 289;
constexpr u32 kRuleAdd = 291;
constexpr u32 kRuleDel = 292;

struct Route {
    u16 family = 2;
    const char* destination = "198.51.100.0";
    u32 prefix = 24;
    const char* gateway = "0.0.0.0";
    const char* interface = "";
    u32 metric = 0;
};

Pack Packed(const Route& route) {
    return Pack()
        .Text(route.interface, 16)
        .Address(route.family, route.destination)
        .Address(route.family, route.gateway)
        .U32(route.prefix)
        .U32(route.metric);
}

// The body that names the interface once more.
Pack Named(const Route& route) {
    return Pack().Text(route.interface, 16).Add(Packed(route).Get());
}

using CtlRoute = CtlAtDaemon;
using CtlGateway = CtlAtDaemon;
using CtlTable = CtlAtDaemon;
using CtlRule = CtlAtDaemon;
using CtlPriority = CtlAtDaemon;

TEST_F(CtlRoute, AddAndDelSendTheRoute) {
    const Bytes plain = Named({});
    const Bytes whole = Named({2, "198.51.100.0", 24, "192.0.2.1", "eth0", 255});
    const Bytes v6 = Named({10, "2001:db8:1::", 48, "2001:db8::1", "", 0});
    const std::pair<std::string, u32> commands[] = {{"add", kRouteAdd}, {"del", kRouteDel}};
    for (const auto& [word, type] : commands) {
        const std::string start = "route " + word;
        EXPECT_EQ(plain, Sent(start + " 198.51.100.0/24", type));
        EXPECT_EQ(
            whole,
            Sent(start + " 198.51.100.0/24 --via 192.0.2.1 --interface eth0 --metric 255", type));
        EXPECT_EQ(v6, Sent(start + " 2001:db8:1::/48 --via 2001:db8::1", type));
        EXPECT_EQ(Pack().Add(plain).U32(1000), Sent(start + " 198.51.100.0/24 --table 1000", type));
        EXPECT_EQ(Pack().Add(plain).U32(0), Sent(start + " 198.51.100.0/24 --table 0", type));
    }
}

TEST_F(CtlRoute, ANameOf15CharactersFillsTheFieldButItsEnd) {
    EXPECT_EQ(Named({.interface = "fifteen-letters"}),
              Sent("route add 198.51.100.0/24 --interface fifteen-letters", kRouteAdd));
}

TEST_F(CtlRoute, MetricSendsTheRouteOnce) {
    EXPECT_EQ(
        Packed({2, "198.51.100.0", 24, "192.0.2.1", "eth0", 20}),
        Sent("route metric 198.51.100.0/24 20 --via 192.0.2.1 --interface eth0", kRouteMetric));
    ExpectRefused("route metric 198.51.100.0/24", "metric is required");
}

TEST_F(CtlRoute, DefaultIsTheNetworkOfAllAddresses) {
    const Route ipv4 = {2, "0.0.0.0", 0, "192.0.2.1"};
    const Route ipv6 = {10, "::", 0, "fe80::1", "eth0"};
    EXPECT_EQ(Named(ipv4), Sent("route add default --via 192.0.2.1", kRouteAdd));
    EXPECT_EQ(Named(ipv4), Sent("route del default --via 192.0.2.1 -4", kRouteDel));
    EXPECT_EQ(Named(ipv6), Sent("route add default --via fe80::1 --interface eth0", kRouteAdd));
    // Without a gateway the family has to be said, or is IPv4.
    EXPECT_EQ(Named({2, "0.0.0.0", 0}), Sent("route add default", kRouteAdd));
    EXPECT_EQ(Named({10, "::", 0, "::"}), Sent("-6 route add default", kRouteAdd));
    EXPECT_EQ(Packed({10, "::", 0, "::", "", 7}), Sent("route metric default 7 -6", kRouteMetric));
    ExpectRefused("route add default -6 --via 192.0.2.1", "sinFamily is differ");
    ExpectRefused("route add 192.0.2.0/24 -6", "destination: 192.0.2.0 is not ipv6");
    ExpectRefused("route add Default", "accepted: a network such as 198.51.100.0/24 or");
}

TEST_F(CtlRoute, ShowCallsADefaultRouteSo) {
    daemon_.On(kRouteList, Answer::Body(Pack()
                                            .S32(0)
                                            .U32(4)
                                            .Add(Packed({2, "0.0.0.0", 0}).Get())
                                            .Add(Packed({10, "::", 0, "fe80::1", "eth0"}).Get())
                                            .Add(Packed({10, "::", 0, "::", "eth1"}).Get())
                                            .Add(Packed({2, "128.0.0.0", 0}).Get())
                                            .FillTo(648)));
    EXPECT_EQ(
        "default  -  metric 0\n"
        "default  via fe80::1  eth0  metric 0\n"
        "::/0  eth1  metric 0\n"
        "128.0.0.0/0  -  metric 0\n",
        Ctl("route show").out);
}

TEST_F(CtlRoute, WhatTheLibraryRefusesIsTold) {
    ExpectRefused("route add 198.51.100.0/24 --via 2001:db8::1",
                  "route add: 1105 (invalid argument): tDestIpNet and tDestGateWay sinFamily is "
                  "differ; accepted: a destination and a gateway of one family, a metric of 0 to "
                  "255");
    ExpectRefused("route add 198.51.100.0/24 --metric 256", "accepted: a destination and a ");
    ExpectRefused("route add 198.51.100.0/33", "destination: \"198.51.100.0/33\" is refused");
    ExpectRefused("route add 198.51.100.0/24 --via eth0",
                  "--via: \"eth0\" is refused; accepted: an address such as 192.0.2.1");
}

TEST_F(CtlRoute, ARefusalThatIsPassedOnIsStatus4) {
    daemon_.On(kRouteAdd, Answer::Code(101));
    const Outcome refused = Ctl("route add 198.51.100.0/24 --via 192.0.2.1 --json");
    EXPECT_EQ(4, refused.status);
    EXPECT_EQ((Expected{{"command", "route add"},
                        {"status", 4},
                        {"message", "the network daemon refused: 101 (Network is unreachable)"},
                        {"result", 101},
                        {"daemon", 101}}),
              refused.Error());
    // Also one that looks like a result of the library's own.
    daemon_.On(kRouteAdd, Answer::Code(1105));
    EXPECT_EQ(4, Ctl("route add 198.51.100.0/24").status);
}

TEST_F(CtlRoute, AnAnswerOfTheWrongSizeIsStatus3) {
    daemon_.On(kRouteAdd, Answer::Body(Pack().Zeros(2)));
    const Outcome shorter = Ctl("route add 198.51.100.0/24");
    EXPECT_EQ(3, shorter.status);
    EXPECT_THAT(shorter.err, HasSubstr("the network daemon gave no whole answer"));
}

TEST_F(CtlRoute, ShowPrintsTheRoutes) {
    daemon_.On(
        kRouteList,
        Answer::Body(Pack()
                         .S32(0)
                         .U32(3)
                         .Add(Packed({2, "0.0.0.0", 0, "192.0.2.1", "eth0", 5}).Get())
                         .Add(Packed({2, "192.0.2.0", 24, "0.0.0.0", "sixteen-letters-", 0}).Get())
                         .Add(Packed({10, "2001:db8::", 32, "fe80::1", "eth1", 255}).Get())
                         .FillTo(648)));
    EXPECT_EQ(
        "default  via 192.0.2.1  eth0  metric 5\n"
        "192.0.2.0/24  sixteen-letters-  metric 0\n"
        "2001:db8::/32  via fe80::1  eth1  metric 255\n",
        Ctl("route show").out);
    EXPECT_EQ(Pack().U16(11), daemon_.Requests(kRouteList)[0].body);
    const nlohmann::json routes = Ctl("route show --json").Json().at("routes");
    ASSERT_EQ(3U, routes.size());
    EXPECT_EQ((Expected{{"family", "ipv4"},
                        {"destination", "0.0.0.0"},
                        {"prefix", 0},
                        {"gateway", "192.0.2.1"},
                        {"interface", "eth0"},
                        {"metric", 5}}),
              routes[0]);
    EXPECT_TRUE(routes[1]["gateway"].is_null());
    EXPECT_EQ("ipv6", routes[2]["family"]);
}

TEST_F(CtlRoute, ShowSurvivesACountBeyondTheList) {
    daemon_.On(kRouteList, Answer::Body(Pack().S32(0).U32(0xffffffff).FillTo(648)));
    EXPECT_EQ(10U, Ctl("route show --json").Json().at("routes").size());
    daemon_.On(kRouteList, Answer::Body(Pack().Zeros(648)));
    EXPECT_EQ("no routes\n", Ctl("route show --family ipv4").out);
    EXPECT_EQ(Pack().U16(2), daemon_.Requests(kRouteList).back().body);
}

TEST_F(CtlGateway, SetSendsTheGateway) {
    const Pack body = Pack().Text("eth0", 16).Address(2, "192.0.2.1");
    EXPECT_EQ(body, Sent("gateway set eth0 192.0.2.1", kGatewaySet));
    EXPECT_EQ(Pack().Add(body.Get()).U32(254),
              Sent("gateway set eth0 192.0.2.1 --table 254", kGatewaySet));
    EXPECT_EQ(Pack().Zeros(16).Address(10, "2001:db8::1"),
              Sent("gateway set - 2001:db8::1", kGatewaySet));
    ExpectRefused("gateway set eth0 192.0.2.1 --table 255",
                  "1105 (invalid argument): table id 255 is invalid; accepted: a table of 1 to");
    ExpectRefused("gateway set eth0 192.0.2.1 --table 0", "accepted: a table of 1 to 254");
}

TEST_F(CtlGateway, DelSendsFamilyAndInterface) {
    EXPECT_EQ(Pack().U16(2).Text("eth0", 16), Sent("gateway del eth0", kGatewayDel));
    EXPECT_EQ(Pack().U16(10).Text("eth0", 16).U32(1),
              Sent("gateway del eth0 --family ipv6 --table 1", kGatewayDel));
    EXPECT_EQ(Pack().U16(2).Zeros(16), Sent("gateway del -", kGatewayDel));
}

TEST_F(CtlGateway, ShowPrintsTheGateway) {
    daemon_.On(kGatewayGet, Answer::Body(Pack().S32(0).Address(2, "192.0.2.1")));
    EXPECT_EQ("192.0.2.1\n", Ctl("gateway show eth0").out);
    EXPECT_EQ(Pack().U16(2).Text("eth0", 16), daemon_.Requests(kGatewayGet)[0].body);
    EXPECT_EQ((Expected{{"interface", "eth0"},
                        {"family", "ipv4"},
                        {"gateway", "192.0.2.1"},
                        {"table", nullptr}}),
              Ctl("gateway show eth0 --json").Json());
    daemon_.On(kGatewayGet, Answer::Body(Pack().S32(0).Address(10, "::")));
    EXPECT_EQ(
        (Expected{{"interface", nullptr}, {"family", "ipv6"}, {"gateway", nullptr}, {"table", 7}}),
        Ctl("gateway show - --family ipv6 --table 7 --json").Json());
    EXPECT_EQ(Pack().U16(10).Zeros(16).U32(7), daemon_.Requests(kGatewayGet).back().body);
    EXPECT_EQ("no gateway\n", Ctl("gateway show eth0 --family ipv6").out);
}

TEST_F(CtlGateway, ARefusalIsStatus4) {
    daemon_.On(kGatewayGet, Answer::Body(Pack().S32(3).Zeros(20)));
    const Outcome refused = Ctl("gateway show lo");
    EXPECT_EQ(4, refused.status);
    EXPECT_EQ("vimbractl gateway show: the network daemon refused: 3 (No such process)\n",
              refused.err);
}

TEST_F(CtlTable, AddAndDelSendTheTable) {
    EXPECT_EQ(Pack().U32(252), Sent("table add 252", kTableAdd));
    EXPECT_EQ(Pack().U32(1), Sent("table del 1", kTableDel));
    for (const char* words : {"table add 0", "table add 253", "table del 253"}) {
        ExpectRefused(words, "accepted: a number, 1 to 252");
    }
    ExpectRefused("table add main", "table: \"main\" is refused; accepted: a number, 1 to 252");
}

TEST_F(CtlRule, AddAndDelSendTheRule) {
    const Bytes from = Pack().Address(2, "192.0.2.11").U32(32).U32(1000).U32(100).U32(0);
    const Bytes mark = Pack().Address(2, "0.0.0.0").U32(0).U32(32765).U32(255).U32(7);
    EXPECT_EQ(from, Sent("rule add --from 192.0.2.11/32 --table 100 --priority 1000", kRuleAdd));
    EXPECT_EQ(from, Sent("rule del --from 192.0.2.11/32 --table 100 --priority 1000", kRuleDel));
    EXPECT_EQ(mark, Sent("rule add --fwmark 7 --table 255 --priority 32765", kRuleAdd));
}

TEST_F(CtlRule, WhatIsRefusedIsTold) {
    ExpectRefused("rule add --table 256 --priority 1", "accepted: an IPv4 source, a priority of");
    ExpectRefused("rule add --table 100 --priority 32766", "pref 32766 is not support");
    ExpectRefused("rule add --table 100 --priority 1 --from 2001:db8::/32",
                  "--from: \"2001:db8::/32\" is refused; accepted: IPv4 with a prefix");
    ExpectRefused("rule add --priority 1", "--table is required");
    ExpectRefused("rule add --table 1", "--priority is required");
}

TEST_F(CtlPriority, SetSendsTheList) {
    EXPECT_EQ(Pack().U32(2).Text("eth0", 16).U32(1).Text("a=b", 16).U32(0).FillTo(204),
              Sent("priority set eth0=1 a=b=0", kPrioritySet));
    EXPECT_EQ(Pack().Zeros(204), Sent("priority set", kPrioritySet));
    ExpectRefused("priority set eth0", "entry: \"eth0\" is refused; accepted: INTERFACE=PRIORITY");
    ExpectRefused("priority set eth0=6", "entry: \"eth0=6\" is refused");
}

TEST_F(CtlPriority, SetTakes10EntriesAndRefuses11) {
    std::string words = "priority set";
    for (int i = 0; i < 10; i++) {
        words += " eth" + std::to_string(i) + "=1";
    }
    EXPECT_EQ(10U, Sent(words, kPrioritySet).U32(0));
    ExpectRefused(words + " eth10=1", "11 are too many; accepted: up to 10");
}

TEST_F(CtlPriority, ShowPrintsTheList) {
    daemon_.On(kPriorityGet, Answer::Body(Pack().U32(1).Text("eth0", 16).U32(2).FillTo(204)));
    EXPECT_EQ("eth0=2\n", Ctl("priority show").out);
    EXPECT_EQ((Expected{{"priorities", {{{"interface", "eth0"}, {"priority", 2}}}}}),
              Ctl("priority show --json").Json());
    daemon_.On(kPriorityGet, Answer::Body(Pack().Zeros(204)));
    EXPECT_EQ("no priorities\n", Ctl("priority show").out);
    daemon_.On(kPriorityGet, Answer::Body(Pack().U32(0xffffffff).FillTo(204)));
    EXPECT_EQ(10U, Ctl("priority show --json").Json().at("priorities").size());
}

}  // namespace
}  // namespace vimbra::tests
