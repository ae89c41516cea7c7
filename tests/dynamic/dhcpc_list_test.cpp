// DHCP client: the list of clients, and how long a listener lives that is no longer in it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/dhcpc.h>
#include <vimbra/thread.h>

#include <chrono>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "dhcpc.hpp"
#include "no_threads.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// ---- The list ----------------------------------------------------------------------------------

TEST_F(Dhcpc, ListBeginsWithTwoEmptyRecords) {
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0"));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(2));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(2, "eth0"));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(0, ""));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 10, Take));
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0", "eth0/2", "eth1/10"));
    const TDhcpcInfo* info = FamilyMapDhcpcInfoExt(10, "eth1");
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(1u, info->bDhcpcStarted);
    EXPECT_EQ(Take, info->pfNetDhcpcNotifyCallBack);
    EXPECT_EQ(0, info->nPid);
    EXPECT_NE(0u, info->DhcpcThreadID);
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(10, "eth0"));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(2, nullptr));
    // Only the first two records are looked at.
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(2));
}

TEST_F(Dhcpc, StoppingMovesTheHead) {
    for (const char* name : {"a", "b", "c", "d"}) {
        EXPECT_EQ(0, VimbraDhcpcStart(name, 2, Take));
    }
    EXPECT_EQ(0, VimbraDhcpcStop("c", 2));
    // The one before it is the first now, the one after it stays, the others are lost.
    EXPECT_THAT(Listed(), ElementsAre("b/2", "d/2"));
    EXPECT_EQ(1u, State("b", 2));
    EXPECT_EQ(0u, State("a", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("a", 2));
    EXPECT_EQ("b/2", Listed()[0]);
    EXPECT_EQ(FamilyMapDhcpcInfoExt(2, "b"), FamilyMapDhcpcInfo(2));
    // What was lost goes on.
    EXPECT_TRUE(Notify("ipc_dhcpc_a", kLease, Lease("a")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, StoppingTheSecondOfTwoKeepsTheFirst) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("eth1", 2));
    EXPECT_THAT(Listed(), ElementsAre("eth0/2"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(Dhcpc, StoppingTheHeadEmptiesTheList) {
    EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("b", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("b", 2));
    EXPECT_THAT(Listed(), ElementsAre("a/2", "c/2"));
    EXPECT_EQ(0, VimbraDhcpcStop("a", 2));
    EXPECT_THAT(Listed(), IsEmpty());
    EXPECT_EQ(nullptr, g_ptApiDhcpCInfo);
    log_.Clear();
    EXPECT_EQ(0u, State("c", 2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt", "no exist dhcp info!"));
    // It can be used again.
    EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
    EXPECT_THAT(Listed(), ElementsAre("c/2"));
    EXPECT_EQ(FamilyMapDhcpcInfoExt(2, "c"), FamilyMapDhcpcInfo(2));
}

// A client that fell out of the list is ended by the next of its name, once that one serves the
// socket in its place; not before.
TEST_F(Dhcpc, LostClientGoesOnWhenTheNextOfItsNameDoesNotBind) {
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(0, VimbraDhcpcStart(name, 2, Take));
    }
    const TDhcpcInfo* lost = FamilyMapDhcpcInfoExt(2, "a");
    EXPECT_EQ(0, VimbraDhcpcStop("c", 2));
    EXPECT_THAT(Listed(), ElementsAre("b/2"));
    const auto isStarted = [lost] {
        return __atomic_load_n(&lost->bDhcpcStarted, __ATOMIC_ACQUIRE) != 0;
    };
    {
        const NoThreads none;
        EXPECT_EQ(-1, VimbraDhcpcStart("a", 2, Never));
    }
    EXPECT_TRUE(isStarted());
    EXPECT_EQ(0, VimbraDhcpcStart("b", 2, Take));
    ASSERT_EQ(0, rename("/tmp/ipc_dhcpc_a", "/tmp/kept"));
    ASSERT_EQ(0, mkdir("/tmp/ipc_dhcpc_a", 0700));
    EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Never));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kThreadV4, "select error"));
    EXPECT_TRUE(isStarted());
    EXPECT_EQ(0, VimbraDhcpcStop("a", 2));
    ASSERT_EQ(0, rmdir("/tmp/ipc_dhcpc_a"));
    ASSERT_EQ(0, rename("/tmp/kept", "/tmp/ipc_dhcpc_a"));
    EXPECT_TRUE(Notify("ipc_dhcpc_a", kLease, Lease("a")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Take));
    EXPECT_FALSE(isStarted());
}

TEST_F(Dhcpc, ListenersAreDetachedFromTheirFirstStepOn) {
    for (const u16 family : {u16{2}, u16{10}}) {
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", family, Take));
        const pthread_t thread = FamilyMapDhcpcInfoExt(family, "eth0")->DhcpcThreadID;
        pthread_attr_t attributes;
        ASSERT_EQ(0, pthread_getattr_np(thread, &attributes));
        int state = PTHREAD_CREATE_JOINABLE;
        EXPECT_EQ(0, pthread_attr_getdetachstate(&attributes, &state));
        EXPECT_EQ(PTHREAD_CREATE_DETACHED, state);
        pthread_attr_destroy(&attributes);
        EXPECT_EQ(-1, ThreadDetach(thread));
        EXPECT_TRUE(
            Notify(family == 2 ? "ipc_dhcpc_eth0" : "ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30001u));
}

// ---- The ten seconds ---------------------------------------------------------------------------

using DhcpcSlow = Dhcpc;

constexpr std::chrono::seconds kLongPatience(60);

TEST_F(DhcpcSlow, StoppedListenersEndWithinTheTimeOut) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 10));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    daemon_.On(kStart, Answer::Code(1));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth1", 2, Take));
    // Not before.
    EXPECT_EQ(threads + 3, Threads());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }, kLongPatience));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV4, "thread will exit, interface eth0, family 2"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV6, "thread will exit, interface eth0, family 10"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV4, "thread will exit, interface eth1, family 2"));
    EXPECT_EQ(1, log_.Count(Kind::kPrint, kThreadV6, "wait time out!"));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, kThreadV4, "wait time out!"));
}

TEST_F(DhcpcSlow, StartedListenersOutliveTheTimeOut) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_TRUE(
        log_.WaitFor(Kind::kPrint, kThreadV6, "wait time out!", Where::kBoth, kLongPatience));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(DhcpcSlow, ManyStartsAndStopsLeaveNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }, kLongPatience));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

// Who fell out of the list cannot be stopped, but ends when it is replaced.
TEST_F(DhcpcSlow, LostClientsDoNotPileUp) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStart("b", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStop("b", 2));
        EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStop("a", 2));  // c is lost with it.
        EXPECT_THAT(Listed(), IsEmpty());
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads + 1; }, kLongPatience));
    EXPECT_TRUE(Notify("ipc_dhcpc_c", kLease, Lease("c")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("c", 2));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }, kLongPatience));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
