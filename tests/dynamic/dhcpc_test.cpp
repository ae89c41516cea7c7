// DHCP client: start and stop.
#include "dhcpc.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>

#include <string>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "no_threads.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;

namespace {

// ---- Start -------------------------------------------------------------------------------------

TEST_F(Dhcpc, StartAsksTheDaemonOnceTheListenerStands) {
    bool listening = false;
    daemon_.On(kStart, Answer::Code(0).After(
                           [&](const Request&) { listening = HasListener("ipc_dhcpc_eth0"); }));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Body(2, "eth0")), daemon_.Requests()[0].raw);
    EXPECT_EQ(1u, daemon_.Requests()[0].reads);
    EXPECT_TRUE(listening);
    EXPECT_TRUE(log_.HasNoTrouble());
    for (const char* text : {"entering......", "the IfaceName : eth0, Family : 2",
                             "FamilyMapDhcpcInfo fail, malloc new!", "leaving......"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStart", text));
    }
    EXPECT_EQ(2, log_.Count(Kind::kPrint, "FamilyMapDhcpcInfoExt", "interface = , family = 0"));
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt", "the family 2,iface is eth0 , not found!"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_THAT(ThreadNames(), Contains(ThreadOf("VimbraDhcpcCBThreadV4")));
}

TEST_F(Dhcpc, Ipv6HasASocketAndAThreadOfItsOwn) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Body(10, "eth0")), daemon_.Requests()[0].raw);
    EXPECT_TRUE(HasListener("ipc_dhcpcv6_eth0"));
    EXPECT_FALSE(HasListener("ipc_dhcpc_eth0"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV6, "server_path ipc_dhcpcv6_eth0"));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    ASSERT_EQ(1u, g_events.Count());
    EXPECT_EQ(ThreadOf("VimbraDhcpcCBThreadV6"), g_events.Events()[0].thread);
}

TEST_F(Dhcpc, BothFamiliesOfAnInterfaceRunSideBySide) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_EQ(2u, daemon_.Requests(kStart).size());
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 10));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_EQ(0u, State("eth0", 10));
}

TEST_F(Dhcpc, StartRefusesNamesThenTheCallback) {
    EXPECT_EQ(1105, VimbraDhcpcStart(nullptr, 2, Take));
    EXPECT_EQ(1105, VimbraDhcpcStart(kName17, 2, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraDhcpcStart", "pchIfaceName is invalid!"));
    EXPECT_EQ(1106, VimbraDhcpcStart("eth0", 2, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "the ptDhcpcCallBack is NULL!"));
    EXPECT_EQ(3, log_.Count(Kind::kError));
    EXPECT_EQ(3, log_.Count(Kind::kPrint, "VimbraDhcpcStart", "entering......"));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0"));
}

TEST_F(Dhcpc, NameOf16CharactersFillsItsField) {
    EXPECT_EQ(0, VimbraDhcpcStart(kName16, 2, Take));
    EXPECT_EQ(Body(2, kName16), daemon_.Requests()[0].body);
    const std::string socket = std::string("ipc_dhcpc_") + kName16;
    EXPECT_TRUE(Notify(socket, kLease, Lease(kName16)));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(1u, State(kName16, 2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt",
                         std::string("interface = ") + kName16 + ", family = 2"));
    EXPECT_EQ(0, VimbraDhcpcStop(kName16, 2));
    EXPECT_EQ(Body(2, kName16), daemon_.Requests(kStop)[0].body);
}

TEST_F(Dhcpc, EmptyNameIsAName) {
    EXPECT_EQ(0, VimbraDhcpcStart("", 2, Take));
    EXPECT_EQ(Body(2, ""), daemon_.Requests()[0].body);
    EXPECT_TRUE(HasListener("ipc_dhcpc_"));
    EXPECT_EQ(0, VimbraDhcpcStop("", 2));
}

TEST_F(Dhcpc, OtherFamiliesStartAnIpv6Listener) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 17, Take));
    EXPECT_TRUE(HasListener("ipc_dhcpcv6_eth0"));
    EXPECT_EQ(Body(17, "eth0"), daemon_.Requests()[0].body);
    EXPECT_EQ(1u, State("eth0", 17));
    EXPECT_EQ(0u, State("eth0", 10));
    // The two empty records are nobody's.
    EXPECT_EQ(0, VimbraDhcpcStart("", 0, Take));
    EXPECT_TRUE(HasListener("ipc_dhcpcv6_"));
    EXPECT_EQ(Body(0, ""), daemon_.Requests()[1].body);
    EXPECT_EQ(1105, VimbraDhcpcStop("eth0", 17));
    EXPECT_EQ(1105, VimbraDhcpcStop("", 0));
    EXPECT_EQ(1u, State("eth0", 17));
}

TEST_F(Dhcpc, RefusedStartIs1109AndForgotten) {
    daemon_.On(kStart, Answer::Code(22));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg error num : 22!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "ApicDhcpcStart error!"));
    EXPECT_EQ(2, log_.Count(Kind::kError));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "VimbraDhcpcStart", "leaving......"));
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    // The next start is a new one.
    daemon_.On(kStart, Answer::Code(0));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(2u, daemon_.Requests(kStart).size());
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, RefusedStartMovesTheHeadLikeAStop) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 2, Take));
    daemon_.Next(kStart, Answer::Code(1));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth2", 2, Take));
    EXPECT_THAT(Listed(), ElementsAre("eth1/2"));
}

TEST_F(Dhcpc, TransportFailureIs1109WithItsNumber) {
    daemon_.On(kStart, Answer::Raw(Pack().U32(kStart).U32(4).U32(0).U16(0)));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg return num : 14!"));
    EXPECT_EQ(0u, State("eth0", 2));
}

TEST_F(Dhcpc, DaemonThatClosesCountsAsDone) {
    daemon_.On(kStart, Answer::Close());
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(1u, State("eth0", 2));
}

TEST(DhcpcAlone, WithoutDaemonStartIs1109) {
    Capture log;
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(1109, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg return num : -1!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDhcpcStart", "ApicDhcpcStart error!"));
}

TEST(DhcpcAlone, WithoutInitTheListBeginsEmpty) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(nullptr, g_ptApiDhcpCInfo);
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt", "no exist dhcp info!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDhcpcStop", "FamilyMapDhcpcInfo error!"));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_THAT(Listed(), ElementsAre("eth0/2"));
    EXPECT_EQ(0, VimbraInit());
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0", "eth0/2"));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
}

TEST_F(Dhcpc, WithoutThreadStartFailsAndForgets) {
    const auto descriptors = OpenDescriptors();
    {
        const NoThreads none;
        EXPECT_EQ(-1, VimbraDhcpcStart("eth0", 2, Never));
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "create dhcp callback thread failed!"));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "ThreadSpawn", "THREAD: spawn() thread create error\n",
                         Where::kSyslog));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_THAT(Listed(), ElementsAre("/0"));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(1u, State("eth0", 2));
}

TEST_F(Dhcpc, StaleSocketFileIsReplaced) {
    { ScriptedDaemon stale("ipc_dhcpc_eth0"); }
    WriteFile("/tmp/ipc_dhcpc_eth0", "");
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, ListenerThatCannotBindEndsAndTheStartSucceeds) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_dhcpc_eth0", 0700));
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kThreadV4, "select error"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0u, State("eth0", 2));
    // It is there, though not started: only a stop removes it, and that asks nobody.
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "dhcpc 2 is not started!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStop",
                         "find a ptDhcpcInfo object, but thread maybe not run, so remove it!"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStop", "leaving......"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
}

// ---- A second start ----------------------------------------------------------------------------

TEST_F(Dhcpc, SecondStartRenewsInsteadOfAsking) {
    Process client({"udhcpc", "-i", "eth0"});
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    log_.Clear();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_EQ(SIGUSR1, client.EndedBy());
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStart",
                         "interface eth0, family 2 dhcp has been started"));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "VimbraDhcpcStart", "leaving......"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    // The first callback stays.
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, SecondStartSucceedsWithoutAProcess) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(log_.HasNoTrouble());
}

// ---- Stop --------------------------------------------------------------------------------------

TEST_F(Dhcpc, StopAsksTheDaemonAndForgets) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    log_.Clear();
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Body(2, "eth0")), daemon_.Requests()[1].raw);
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "VimbraDhcpcStop", "the pchIfaceName : eth0, the wSinFamily : 2"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStop", "leaving......"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStop", "FamilyMapDhcpcInfo error!"));
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Dhcpc, StopChecksNameThenFamilyBeforeItLooks) {
    EXPECT_EQ(1105, VimbraDhcpcStop(nullptr, 2));
    EXPECT_EQ(1105, VimbraDhcpcStop(kName17, 7));
    for (const int family : {0, 1, 7, 11, 17, 65535}) {
        EXPECT_EQ(1105, VimbraDhcpcStop("eth0", static_cast<u16>(family)));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStop",
                             "wSinFamily " + std::to_string(family) + " is invalid!"));
    }
    EXPECT_EQ(8, log_.Count(Kind::kError));
    EXPECT_EQ(0, log_.Count(Kind::kPrint));
    EXPECT_EQ(-1, VimbraDhcpcStop(kName16, 2));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Dhcpc, RefusedStopLeavesTheClient) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    daemon_.Next(kStop, Answer::Code(5));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStop", "send and recv msg error num : 5!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStop", "ApicDhcpcStop error!"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
}

TEST_F(Dhcpc, StartRightAfterAStopHasItsOwnListener) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, i < 4 ? Never : Take));
    }
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

}  // namespace
}  // namespace vimbra::tests
