// DHCP server: the requests.
#include "dhcps.hpp"

#include <gtest/gtest.h>
#include <vimbra/dhcps.h>
#include <vimbra/net_dhcps.h>

#include <string>
#include <vimbra/bed.hpp>

#include "files.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- Requests -----------------------------------------------------------------------------------

TEST_F(Dhcps, StartAsksForTheAddressesAndSendsThePool) {
    EXPECT_EQ(0, Start("eth0", 2, Pool()));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kGetIp, Pack().U16(2).Text("eth0", 16)), daemon_.Requests()[0].raw);
    Pack body;
    body.Text("eth0", 16).U16(2);
    body.Address(2, "192.168.1.10").Address(2, "192.168.1.99").U32(24);
    body.Address(2, "192.168.1.1").Address(2, "192.168.1.2").U32(23).U32(64);
    for (int i = 1; i <= 64; i++) {
        body.Address(2, ("10.0.0." + std::to_string(i)).c_str());
    }
    EXPECT_EQ(1390u, body.Get().size());
    EXPECT_EQ(Message(kStart, body), daemon_.Requests()[1].raw);
    EXPECT_EQ(1u, daemon_.Requests()[1].reads);
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Dhcps, StartForIpv6) {
    EXPECT_EQ(0, Start("a-16-characters-", 10, Pool6()));
    ASSERT_EQ(1u, daemon_.Requests(kStart).size());
    const Bytes body = daemon_.Requests(kStart)[0].body;
    EXPECT_EQ(Pack().Text("a-16-characters-", 16).U16(10).Get(), body.Slice(0, 18));
    EXPECT_EQ(AsBytes(Pool6()), body.Slice(18, 1372));
}

TEST_F(Dhcps, RefusedParametersSendNothing) {
    char name[] = "eth0";
    TVimbraDhcpsInfo pool = Pool();
    EXPECT_EQ(1105, VimbraDhcpsStart(nullptr, 2, &pool));
    EXPECT_EQ(1105, VimbraDhcpsStart(name, 2, nullptr));
    EXPECT_EQ(1105, VimbraDhcpsStart(nullptr, 99, nullptr));
    EXPECT_EQ(
        3, log_.Count(Kind::kError, "CheckDhcpsParam", "ptDhcpsConfInfo || pchIfaceName is NULL!"));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
    for (const u16 family : {u16{0}, u16{1}, u16{3}, u16{11}, u16{0xffff}}) {
        EXPECT_EQ(1105, Start("eth0", family, pool));
        EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam",
                             "wSinFamily " + std::to_string(family) + " is invalid!"));
    }
    EXPECT_EQ(0u, daemon_.Connections());
}

// Which one does not matter: what the others are is found out, or not, by the comparisons that follow.
TEST_F(Dhcps, FamilyMayBeThatOfAnyAddress) {
    constexpr char kPool[] = "the pool start and the pool end ip not the same net!";
    constexpr char kRoute[] = "the pool start and the route ip not the same net!";
    struct {
        TVimbraAddr TVimbraDhcpsInfo::*address;
        const char* text;
    } const kCases[] = {{&TVimbraDhcpsInfo::tIfaceIp, nullptr},
                        {&TVimbraDhcpsInfo::tIpPoolStart, kPool},
                        {&TVimbraDhcpsInfo::tIpPoolEnd, kPool},
                        {&TVimbraDhcpsInfo::tRoutes, kRoute}};
    for (const auto& one : kCases) {
        log_.Clear();
        TVimbraDhcpsInfo pool = Pool();
        pool.*one.address = Address("2001:db8::5");
        EXPECT_EQ(one.text != nullptr ? 1105 : 0, Start("eth0", 10, pool));
        EXPECT_EQ(one.text != nullptr ? 1 : 0, log_.Count(Kind::kError, "CheckDhcpsParam"));
        EXPECT_TRUE(one.text == nullptr || log_.Has(Kind::kError, "CheckDhcpsParam", one.text));
    }
}

TEST_F(Dhcps, FamilyMustBeThatOfOneAddress) {
    EXPECT_EQ(1105, Start("eth0", 10, Pool()));
    EXPECT_EQ(1105, Start("eth0", 2, Pool6()));
    EXPECT_EQ(2, log_.Count(Kind::kError, "CheckDhcpsParam",
                            "the wSinFamily is differern TVimbraDhcpsInfo wSinFamily!"));
    EXPECT_EQ(0u, daemon_.Connections());
    TVimbraDhcpsInfo pool = Pool();
    pool.tIfaceIp = Address("::1");
    EXPECT_EQ(0, Start("eth0", 10, pool)) << "one is enough";
}

TEST_F(Dhcps, EndAndRouterLieInThePoolsNetwork) {
    TVimbraDhcpsInfo pool = Pool();
    pool.tIpPoolEnd = Address("192.168.2.10");
    pool.tRoutes = Address("192.168.2.1");
    EXPECT_EQ(1105, Start("eth0", 2, pool));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam",
                         "the pool start and the pool end ip not the same net!"));
    pool = Pool();
    pool.tRoutes = Address("192.168.2.1");
    EXPECT_EQ(1105, Start("eth0", 2, pool));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam",
                         "the pool start and the route ip not the same net!"));
    pool.dwIpPoolPrefix = 22;
    EXPECT_EQ(0, Start("eth0", 2, pool));
    for (const u32 prefix : {0u, 33u, 0xffffffu}) {
        pool.dwIpPoolPrefix = prefix;
        EXPECT_EQ(1105, Start("eth0", 2, pool));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "CheckDhcpsParam",
                            "the pool start and the pool end ip not the same net!"));
    EXPECT_EQ(1u, daemon_.Requests(kStart).size());
}

TEST_F(Dhcps, ZeroStandsForNoRouter) {
    TVimbraDhcpsInfo pool = Pool();
    pool.tRoutes = Address("0.0.0.0");
    EXPECT_EQ(0, Start("eth0", 2, pool));
    pool.tRoutes.wSinFamily = 0;
    EXPECT_EQ(1105, Start("eth0", 2, pool)) << "but it has to be an IPv4 one";
}

TEST_F(Dhcps, InterfaceMustBeReadable) {
    daemon_.On(kGetIp, Answer::Body(Pack().S32(19).Zeros(452)));
    EXPECT_EQ(1105, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam", "VimbraIfaceGetIp error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
    EXPECT_EQ(0u, daemon_.Requests(kStart).size());
}

TEST_F(Dhcps, NameOf17CharactersFailsWhereTheInterfaceIsAskedFor) {
    EXPECT_EQ(1105, Start("seventeen-letters", 99, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam", "wSinFamily 99 is invalid!"));
    log_.Clear();
    EXPECT_EQ(1105, Start("seventeen-letters", 2, Pool()));
    EXPECT_EQ(3, log_.Count(Kind::kError));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraIfaceGetIp", "pchIfaceName is invalid!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "CheckDhcpsParam", "VimbraIfaceGetIp error!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Dhcps, RefusedStartIs1109) {
    daemon_.On(kStart, Answer::Code(17));
    EXPECT_EQ(1109, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nErrid : 17!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStart", "DHCPS client start error!"));
    daemon_.On(kStart, Answer::Code(0).Size(9));
    EXPECT_EQ(1109, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nRet : 16!"));
}

TEST_F(Dhcps, StopSendsNameAndFamily) {
    EXPECT_EQ(0, Stop("eth0", 2));
    EXPECT_EQ(0, Stop("a-16-characters-", 10));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().Text("eth0", 16).U16(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Pack().Text("a-16-characters-", 16).U16(10)),
              daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Dhcps, StopRefusals) {
    EXPECT_EQ(1105, VimbraDhcpsStop(nullptr, 2));
    EXPECT_EQ(1105, VimbraDhcpsStop(nullptr, 3));
    EXPECT_EQ(1105, Stop("seventeen-letters", 2));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraDhcpsStop", "pchIfaceName is NULL!"));
    EXPECT_EQ(1105, Stop("eth0", 11));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsStop", "wSinFamily 11 is invalid!"));
    EXPECT_EQ(0u, daemon_.Connections());
    daemon_.Next(Answer::Code(3));
    EXPECT_EQ(-1, Stop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nErrid : 3!"));
    daemon_.Next(Answer::Code(0).Size(0));
    EXPECT_EQ(-1, Stop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error, nRet : 16!"));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraDhcpsStop", "DHCPS client stop all eth error!"));
}

TEST_F(Dhcps, StateIsTheReplyItself) {
    char name[] = "eth1";
    TVimbraDhcpsState state = {};
    for (const u32 told : {1u, 0u, 0xffffffffu}) {
        daemon_.Forget();
        daemon_.Next(kState, Answer::Body(Pack().U32(told)));
        EXPECT_EQ(0, VimbraDhcpsGetState(name, 2, &state));
        EXPECT_EQ(told, state.dwDhcpsIsRun);
        ASSERT_EQ(1u, daemon_.Requests().size());
        EXPECT_EQ(Message(kState, Pack().Text("eth1", 16).U16(2)), daemon_.Requests()[0].raw);
    }
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Dhcps, StateRefusals) {
    char name[] = "eth1";
    char longName[] = "seventeen-letters";
    TVimbraDhcpsState state = {7};
    EXPECT_EQ(1105, VimbraDhcpsGetState(nullptr, 2, &state));
    EXPECT_EQ(1105, VimbraDhcpsGetState(name, 2, nullptr));
    EXPECT_EQ(1105, VimbraDhcpsGetState(longName, 2, &state));
    EXPECT_EQ(3, log_.Count(Kind::kError, "VimbraDhcpsGetState",
                            "pchIfaceName or ptNetdhcpsState is NULL!"));
    EXPECT_EQ(1105, VimbraDhcpsGetState(name, 0, &state));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsGetState", "wSinFamily 0 is invalid!"));
    EXPECT_EQ(0u, daemon_.Connections());
    daemon_.On(kState, Answer::Code(1).Size(8));
    EXPECT_EQ(-1, VimbraDhcpsGetState(name, 2, &state));
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error:16!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpsGetState",
                         "DHCPS client get interface eth1 state error!"));
    EXPECT_EQ(7u, state.dwDhcpsIsRun);
}

TEST(DhcpsAlone, WithoutDaemon) {
    Capture log;
    char name[] = "eth0";
    TVimbraDhcpsState state = {};
    EXPECT_EQ(1105, Start("eth0", 2, Pool()));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckDhcpsParam", "VimbraIfaceGetIp error!"));
    EXPECT_EQ(-1, Stop("eth0", 2));
    EXPECT_EQ(-1, VimbraDhcpsGetState(name, 2, &state));
    EXPECT_EQ(-1, NetDhcpsStop());
    EXPECT_TRUE(log.Has(Kind::kError, kAny, "send and recv msg error:-1!\u00a5n"));
}

// ---- Legacy requests ----------------------------------------------------------------------------

TEST_F(Dhcps, LegacyStopAndState) {
    EXPECT_EQ(0, NetDhcpsStopOneEth(7));
    EXPECT_EQ(0, NetDhcpsStopOneEth(0xffffffff));
    TNetDhcpsState state = {};
    daemon_.Next(kState, Answer::Body(Pack().U32(1)));
    EXPECT_EQ(0, NetDhcpsGetState(2, &state));
    EXPECT_EQ(1u, state.dwDhcpsIsRun);
    ASSERT_EQ(3u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().Text("eth7", 16).U16(2)), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Pack().Text("eth-1", 16).U16(2)), daemon_.Requests()[1].raw);
    EXPECT_EQ(Message(kState, Pack().Text("eth2", 16).U16(2)), daemon_.Requests()[2].raw);
    EXPECT_EQ(1201, NetDhcpsGetState(3, &state));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetDhcpsGetState", "interface_name failed"));
    EXPECT_EQ(1105, NetDhcpsGetState(0, nullptr));
    daemon_.Next(kState, Answer::Code(9).Size(8));
    EXPECT_EQ(-1, NetDhcpsGetState(0, &state));
    EXPECT_EQ(1u, state.dwDhcpsIsRun);
}

TEST_F(Dhcps, LegacyStopAll) {
    EXPECT_EQ(0, NetDhcpsStop());
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStopAll, {}), daemon_.Requests()[0].raw);
    EXPECT_TRUE(log_.IsSilent());
    daemon_.On(kStopAll, Answer::Code(5));
    EXPECT_EQ(-1, NetDhcpsStop());
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error:5!\u00a5n"));
    daemon_.On(kStopAll, Answer::Code(0).Size(5));
    EXPECT_EQ(-1, NetDhcpsStop());
    EXPECT_TRUE(log_.Has(Kind::kError, kAny, "send and recv msg error:16!\u00a5n"));
    EXPECT_EQ(2,
              log_.Count(Kind::kError, "NetDhcpsStop", "DHCPS client stop all eth error!\u00a5n"));
}

}  // namespace
}  // namespace vimbra::tests
