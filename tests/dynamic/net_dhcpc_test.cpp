// DHCP client: the legacy calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/dhcpc.h>
#include <vimbra/net_dhcpc.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "dhcpc.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using NetDhcpc = Dhcpc;

TEST_F(NetDhcpc, LeaseIsConverted) {
    EXPECT_EQ(0, NetDhcpcStart(2, TakeLegacy, 1));
    EXPECT_EQ(Body(2, "eth2"), daemon_.Requests()[0].body);
    EXPECT_TRUE(Notify("ipc_dhcpc_eth2", kLease, Lease("eth2")));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth2", kFail, Lease("eth2", 0)));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth2", 0x507, Lease("eth2", 0)));
    ASSERT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    EXPECT_EQ(Pack()
                  .U32(0)
                  .In4("192.0.2.10")
                  .U32(24)
                  .In4("192.0.2.1")
                  .U32(1)
                  .In4("192.0.2.53")
                  .FillTo(276),
              g_events.Events()[0].record);
    EXPECT_EQ(Pack().U32(0).In4("192.0.2.10").U32(24).In4("192.0.2.1").FillTo(276),
              g_events.Events()[1].record);
    EXPECT_EQ(0, NetDhcpcStop(2));
    EXPECT_EQ(Body(2, "eth2"), daemon_.Requests(kStop)[0].body);
}

TEST_F(NetDhcpc, DnsCountIsBounded) {
    Pack lease;
    lease.Text("eth0", 16).Address(2, "192.0.2.10").Address(2, "192.0.2.1").U32(24).U32(60);
    EXPECT_EQ(0, NetDhcpcStart(0, TakeLegacy, 0));
    for (const u32 count : {63u, 64u, 65u, 0xffffffffu}) {
        Pack full = lease;
        full.U32(count);
        for (int i = 0; i < 64; i++) {
            full.Address(2, ("198.51.100." + std::to_string(i)).c_str());
        }
        EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, full));
    }
    ASSERT_EQ(4u, g_events.Count());
    EXPECT_EQ(63u, g_events.Events()[0].record.U32(16));
    EXPECT_EQ(0u, g_events.Events()[0].record.U32(20 + 63 * 4));
    for (int i = 1; i < 4; i++) {
        EXPECT_EQ(64u, g_events.Events()[i].record.U32(16));
        EXPECT_EQ(Pack().In4("198.51.100.63"), g_events.Events()[i].record.Slice(20 + 63 * 4, 4));
        EXPECT_EQ(276u, g_events.Events()[i].record.size());
    }
}

TEST_F(NetDhcpc, SecondStartReplacesTheCallback) {
    EXPECT_EQ(0, NetDhcpcStart(0, NeverLegacy, 0));
    EXPECT_EQ(0, NetDhcpcStart(0, TakeLegacy, 0));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_EQ(1u, g_events.Count());
}

TEST_F(NetDhcpc, NullCallbackIsNobody) {
    EXPECT_EQ(0, NetDhcpcStart(0, nullptr, 0));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
}

TEST_F(NetDhcpc, StartAndStopTakeAnyNumber) {
    for (const auto& [number, name] :
         std::vector<std::pair<u32, const char*>>{{0, "eth0"},
                                                  {3, "eth3"},
                                                  {0x7fffffff, "eth2147483647"},
                                                  {0xffffffff, "eth-1"},
                                                  {0x80000000, "eth-2147483648"}}) {
        daemon_.Forget();
        EXPECT_EQ(0, NetDhcpcStart(number, TakeLegacy, 0));
        EXPECT_EQ(0, NetDhcpcStop(number));
        ASSERT_EQ(2u, daemon_.Requests().size());
        EXPECT_EQ(Body(2, name), daemon_.Requests()[0].body);
        EXPECT_EQ(Body(2, name), daemon_.Requests()[1].body);
    }
}

TEST_F(NetDhcpc, OtherCallsKnowThreeNumbers) {
    TNetDhcpcLeaseBuffer buffer;
    TNetDhcpcState state;
    EXPECT_EQ(1201, NetDhcpcRenew(3));
    EXPECT_EQ(1201, NetDhcpcGetLeaseInfo(3, &buffer.tLegacy));
    EXPECT_EQ(1201, NetDhcpcGetIfstate(0xffffffff, &state));
    for (const char* function : {"NetDhcpcRenew", "NetDhcpcGetLeaseInfo", "NetDhcpcGetIfstate"}) {
        EXPECT_TRUE(log_.Has(Kind::kError, function, "NetDhcpcRenew interface_name failed"));
    }
}

TEST_F(NetDhcpc, StateLeaseAndRenewAreTheCurrentOnes) {
    TNetDhcpcState state = {9};
    EXPECT_EQ(0, NetDhcpcGetIfstate(1, &state));
    EXPECT_EQ(0u, state.dwDhcpcIsRun);
    EXPECT_EQ(-1, NetDhcpcRenew(1));
    EXPECT_EQ(0, NetDhcpcStart(1, TakeLegacy, 0));
    EXPECT_EQ(0, NetDhcpcGetIfstate(1, &state));
    EXPECT_EQ(1u, state.dwDhcpcIsRun);
    EXPECT_EQ(1105, NetDhcpcGetIfstate(1, nullptr));
    EXPECT_EQ(1108, NetDhcpcRenew(1));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth1", kLease, Lease("eth1")));
    TNetDhcpcLeaseBuffer buffer = {};
    EXPECT_EQ(0, NetDhcpcGetLeaseInfo(1, &buffer.tLegacy));
    EXPECT_EQ(Lease("eth1"), AsBytes(buffer.tLease));
    EXPECT_EQ(-1, NetDhcpcGetLeaseInfo(1, nullptr));
}

}  // namespace
}  // namespace vimbra::tests
