// DHCP client: what the daemon reports, and the callback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <vimbra/dhcpc.h>

#include <atomic>
#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "dhcpc.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST_F(Dhcpc, LeaseReachesTheCallbackAsItCame) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    const Bytes lease = Lease("eth0");
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, lease));
    ASSERT_EQ(1u, g_events.Count());
    EXPECT_EQ(30001u, g_events.Events()[0].event);
    EXPECT_EQ(lease, g_events.Events()[0].record);
    EXPECT_EQ(ThreadOf("VimbraDhcpcCBThreadV4"), g_events.Events()[0].thread);
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(lease, AsBytes(record));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Dhcpc, BeforeTheFirstReportTheLeaseIsTheName) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(Pack().Text("eth0", 16).FillTo(1348), AsBytes(record));
}

TEST_F(Dhcpc, RepeatedFailureIsToldOnceUntilALease) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    for (const u32 type : {kFail, kFail, kFail, kLease, kFail, kFail, kLease, kLease}) {
        EXPECT_TRUE(Notify("ipc_dhcpc_eth0", type, Lease("eth0")));
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u, 30001u, 30002u, 30001u, 30001u));
    EXPECT_EQ(3, log_.Count(Kind::kPrint, kThreadV4, "dhcp fail,do not report up layer again"));
}

TEST_F(Dhcpc, SuppressedFailureStillReplacesTheRecord) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kFail, Lease("eth0", 1)));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kFail, Lease("eth0", 2)));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 10, &record));
    EXPECT_EQ(2u, record.dwDnsNum);
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV6, "dhcp fail,do not report up layer again"));
}

TEST_F(Dhcpc, SuppressionIsEachClientsOwn) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kFail, Lease("eth0")));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth1", kFail, Lease("eth1")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u, 30002u));
}

TEST_F(Dhcpc, UnknownTypeIsLoggedAndItsRecordKept) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", 0xABCD0507, Lease("eth0", 3)));
    EXPECT_TRUE(log_.Has(Kind::kError, kThreadV4, "the unkonwn type = 0xabcd0507"));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(3u, record.dwDnsNum);
}

TEST_F(Dhcpc, ReportRenamesTheClient) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("wlan0")));
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_EQ(1u, State("wlan0", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_EQ(0, VimbraDhcpcStop("wlan0", 2));
    EXPECT_EQ(Body(2, "wlan0"), daemon_.Requests(kStop)[0].body);
}

TEST_F(Dhcpc, NameWithoutTerminatorIsBounded) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    Bytes lease = Pack().Text(kName16, 16);
    lease.resize(1348, 0xff);
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, lease));
    EXPECT_EQ(1u, State(kName16, 2));
    EXPECT_EQ(lease, g_events.Events().at(0).record);
    EXPECT_EQ(0, VimbraDhcpcStop(kName16, 2));
}

TEST_F(Dhcpc, WrongSizeIsDropped) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    for (const u32 size : {0u, 1347u, 1349u, 0xffffffffu}) {
        EXPECT_TRUE(
            Notify("ipc_dhcpc_eth0", kLease, Lease("x"), {.size = size, .flag = 0, .wait = true}));
        EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("x"),
                           {.size = size, .flag = 0, .wait = true}));
    }
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
    EXPECT_EQ(4, log_.Count(Kind::kError, kThreadV4, "the read data is too long!"));
    EXPECT_EQ(4, log_.Count(Kind::kError, kThreadV6, "the sended data is too long!"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30001u));
}

TEST_F(Dhcpc, ShortReadEndsAnIpv4Listener) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Pack().Zeros(1347)));
    EXPECT_TRUE(log_.Has(Kind::kPerror, kThreadV4, "read message error"));
    EXPECT_TRUE(WaitForNoListener("ipc_dhcpc_eth0"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    // A client remains that nobody serves.
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_THAT(Listed(), Contains("eth0/2"));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcGetLeaseInfo",
                         "dhcpc 2 , interface eth0 ,is not started!"));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_FALSE(HasListener("ipc_dhcpc_eth0"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(HasListener("ipc_dhcpc_eth0"));
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Dhcpc, EveryShortReadEndsAnIpv4Listener) {
    for (const size_t size : {0u, 1u, 12u, 1359u}) {
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
        {
            Connection connection("ipc_dhcpc_eth0");
            ASSERT_TRUE(connection.Connected());
            connection.Send(Message(kLease, Lease("eth0")).Slice(0, size));
            connection.EndSending();
            EXPECT_TRUE(connection.WaitPeerClosed());
        }
        EXPECT_TRUE(WaitFor([] { return State("eth0", 2) == 0; }));
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    }
    EXPECT_EQ(4, log_.Count(Kind::kPerror, kThreadV4, "read message error"));
}

TEST_F(Dhcpc, ShortReadLeavesAnIpv6Listener) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Pack().Zeros(1347)));
    {
        Connection connection("ipc_dhcpcv6_eth0");
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    EXPECT_EQ(2, log_.Count(Kind::kPerror, kThreadV6, "read message error"));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, DnsCountIsHandedOnAsItCame) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0", 0xffffffff)));
    EXPECT_EQ(0xffffffffu, g_events.Events().at(0).record.U32(64));
    EXPECT_EQ(1348u, g_events.Events().at(0).record.size());
}

TEST_F(Dhcpc, CallbackMayRenewAndReadTheLease) {
    std::atomic<bool> done = false;
    g_events.InCallback([&] {
        TVimbraDhcpcAddrInfo record = {};
        EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
        EXPECT_EQ(Lease("eth0"), AsBytes(record));
        EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
        done = true;
    });
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_TRUE(done);
}

TEST_F(Dhcpc, CallsWaitForARunningCallback) {
    const Gate gate;
    g_events.InCallback([&] { gate.Pass(); });
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(
        Notify("ipc_dhcpc_eth0", kLease, Lease("eth0"), {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    // These do without the lock.
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
    std::atomic<bool> stopped = false;
    std::thread stopper([&] {
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
        stopped = true;
    });
    EXPECT_TRUE(log_.WaitFor(Kind::kPrint, "VimbraDhcpcStop",
                             "the pchIfaceName : eth0, the wSinFamily : 2"));
    EXPECT_FALSE(stopped);
    EXPECT_EQ(0u, daemon_.Requests(kStop).size());
    gate.Open();
    stopper.join();
    EXPECT_EQ(1u, daemon_.Requests(kStop).size());
}

TEST_F(Dhcpc, ReportDuringTheStartRequestWaitsForIt) {
    daemon_.On(kStart, Answer::Code(0).After([&](const Request&) {
        EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0"),
                           {.size = {}, .flag = 0, .wait = false}));
    }));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(WaitFor([] { return !g_events.Events().empty(); }));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

}  // namespace
}  // namespace vimbra::tests
