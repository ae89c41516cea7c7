// Traceroute, from outside.
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <vimbra/common.h>
#include <vimbra/net_traceroute.h>
#include <vimbra/traceroute.h>

#include <csignal>
#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "slots.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr u32 kStart = 3329;
constexpr u32 kStop = 3330;
constexpr char kSocket[] = "ipc_traceroute";

struct Report {
    s32 result;
    TVimbraTracerouteCBInfo hop;
};

Recorder<Report> g_reports;

int OnHop(s32 nResult, TVimbraTracerouteCBInfo* ptHop) {
    g_reports.Add({nResult, *ptHop});
    return 0;
}

struct LegacyReport {
    s32 result, ttl, tripTime;
    u32 address;
    char* name;
    s32 user, errType, errCode;

    bool operator==(const LegacyReport&) const = default;
};

Recorder<LegacyReport> g_legacyReports;

void OnLegacyHop(s32 nResult, s32 nTtl, s32 nTripTime, u32 dwIpaddr, char* pchDomName, s32 nUserId,
                 s32 nErrType, s32 nErrCode) {
    g_legacyReports.Add(
        {nResult, nTtl, nTripTime, dwIpaddr, pchDomName, nUserId, nErrType, nErrCode});
}

TVimbraAddr Destination() {
    return Address("10.0.0.1");
}

// The slot of the name holds what would crash whoever followed it.
Bytes Hop(s32 user, bool isOver = false, u32 ttl = 3) {
    return Pack()
        .Address(2, "192.0.2.7")
        .U32(ttl)
        .S32(user)
        .S32(15)
        .U32(0xdeadbeef)
        .S32(11)
        .S32(12)
        .S32(isOver ? 1 : 0);
}

u32 BusySlots() {
    return CountBusy(g_ptApiTracerouteInfo);
}

class TracerouteBeforeInit : public AtDaemon {
 protected:
    s32 Start(s32 user, TVimbraTracerouteCallBack callback = OnHop) {
        return VimbraTracerouteStart(Destination(), &option_, user, callback);
    }

    TVimbraTracerouteOpt option_ = {30};
};

class Traceroute : public AfterInit<TracerouteBeforeInit, BusySlots> {
 protected:
    // A listener keeps the connection until the daemon closes it.
    static bool Send(u32 event, const Bytes& hop, const NotifyOptions& options = {}) {
        Connection connection(kSocket);
        Bytes message = Message(event, hop);
        if (options.size) {
            memcpy(message.data() + 4, &*options.size, 4);
        }
        return connection.Send(message) && connection.WaitRead();
    }
};

TEST_F(Traceroute, InitBuildsTenSlotsAndASemaphore) {
    u32 count = 0;
    for (const TTraceRtInfo* slot = g_ptApiTracerouteInfo; slot != nullptr; slot = slot->ptNext) {
        EXPECT_EQ(count == 0 ? VIMBRA_FAMILY_IPV4 : 0, slot->wSinFamily);
        EXPECT_EQ(0u, slot->bIsStarted);
        count++;
    }
    EXPECT_EQ(10u, count);
    const int semaphore = semget(7784, 1, 0);
    ASSERT_GE(semaphore, 0);
    EXPECT_EQ(1, semctl(semaphore, 0, GETVAL));
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Traceroute, StartSendsDestinationHopsAndId) {
    EXPECT_EQ(0, Start(5));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(kStart, daemon_.Requests()[0].type);
    EXPECT_EQ(Pack().Address(2, "10.0.0.1").U32(30).S32(5), daemon_.Requests()[0].body);
    EXPECT_TRUE(HasListener(kSocket));
    EXPECT_EQ(1, semctl(semget(7784, 1, 0), 0, GETVAL));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, VimbraTracerouteStop(5));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(kStop, daemon_.Requests()[1].type);
    EXPECT_EQ(Pack().S32(5), daemon_.Requests()[1].body);
    EXPECT_TRUE(AllGone());
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Traceroute, TheListenerIsBoundBeforeTheDaemonIsAsked) {
    daemon_.On(kStart,
               Answer::Code(0).After([](const Request&) { EXPECT_TRUE(HasListener(kSocket)); }));
    for (s32 round = 0; round < 20; round++) {
        EXPECT_EQ(0, Start(1));
        EXPECT_EQ(0, VimbraTracerouteStop(1));
    }
    EXPECT_TRUE(AllGone());
}

// The lock of all starts on the machine is given back as often as it is taken.
TEST_F(Traceroute, ASignalDoesNotLetAStartPass) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, nullptr));
    const int semaphore = semget(7784, 1, 0);
    ASSERT_LE(0, semaphore);
    sembuf take = {0, -1, 0};
    ASSERT_EQ(0, semop(semaphore, &take, 1));
    std::thread starter([&] { EXPECT_EQ(0, Start(1)); });
    for (int i = 1; i <= 3; i++) {
        EXPECT_TRUE(WaitFor([&] { return semctl(semaphore, 0, GETNCNT) == 1; }));
        pthread_kill(starter.native_handle(), SIGUSR2);
        EXPECT_TRUE(WaitFor(
            [&] { return log_.Count(Kind::kError, "semaphore_p", "semaphore_p error") == i; }));
    }
    EXPECT_EQ(0u, daemon_.Connections());
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(semaphore, &give, 1));
    starter.join();
    EXPECT_EQ(1, semctl(semaphore, 0, GETVAL));
    EXPECT_EQ(0, VimbraTracerouteStop(1));
    EXPECT_TRUE(AllGone());
}

TEST_F(Traceroute, StartChecksArgumentsInOrder) {
    TVimbraAddr destination = {};
    EXPECT_EQ(1106, VimbraTracerouteStart(destination, nullptr, 0, OnHop));
    EXPECT_EQ(1106, VimbraTracerouteStart(destination, &option_, 0, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraTracerouteStart", "the ptCallBackFunc is NULL!"));
    EXPECT_EQ(1105, VimbraTracerouteStart(destination, &option_, 0, OnHop));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraTracerouteStart", "the dest wSinFamily 0 is invalid!"));
    EXPECT_EQ(1105, Start(0));
    EXPECT_EQ(1105, Start(-3));
    EXPECT_EQ(
        2, log_.Count(Kind::kError, "VimbraTracerouteStart", "the nUserID must be more than 0!"));
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Traceroute, AnIpv6DestinationIsRefused) {
    TVimbraAddr destination = {};
    destination.wSinFamily = VIMBRA_FAMILY_IPV6;
    EXPECT_EQ(1105, VimbraTracerouteStart(destination, &option_, 1, OnHop));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraTracerouteStart", "the dest wSinFamily 10 is invalid!"));
}

TEST_F(TracerouteBeforeInit, FindsNoPlace) {
    EXPECT_EQ(-1, Start(1));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraTracerouteStart", "the user id has been up to the max!"));
    EXPECT_EQ(0, VimbraTracerouteStop(1));
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Traceroute, TheEleventhAtOnceIsRefused) {
    for (s32 user = 1; user <= 10; user++) {
        EXPECT_EQ(0, Start(user)) << user;
    }
    EXPECT_EQ(-1, Start(11));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraTracerouteStart", "the user id has been up to the max!"));
    for (s32 user = 1; user <= 10; user++) {
        EXPECT_EQ(0, VimbraTracerouteStop(user)) << user;
    }
    EXPECT_TRUE(AllGone());
}

TEST_F(Traceroute, StartingABusyIdEndsItsTrace) {
    EXPECT_EQ(0, Start(3));
    EXPECT_EQ(-1, Start(3));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraTracerouteStart",
                         "the userId 3 is tracerouting, please replace the user id!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(AllGone());
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(0, Start(3));
    EXPECT_EQ(0, VimbraTracerouteStop(3));
}

TEST_F(Traceroute, ARefusedStartGivesThePlaceBack) {
    daemon_.Next(kStart, Answer::Code(22));
    EXPECT_EQ(-1, Start(1));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "ApicTracertStart", "send and recv msg error, nErrid = 22!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraTracerouteStart", "ApicPingStart error!"));
    EXPECT_TRUE(AllGone());
    daemon_.Next(kStart, Answer::Code(0).Size(3));
    EXPECT_EQ(-1, Start(1));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicTracertStart", "send and recv msg error, nRet = 16!"));
    EXPECT_TRUE(AllGone());
    EXPECT_EQ(0, Start(1));
    EXPECT_EQ(0, VimbraTracerouteStop(1));
}

TEST_F(Traceroute, EveryEventReachesTheCallbackWhole) {
    EXPECT_EQ(0, Start(9));
    for (u32 event = 101; event <= 106; event++) {
        EXPECT_TRUE(Send(event, Hop(9, false, event)));
    }
    ASSERT_TRUE(g_reports.WaitCount(6));
    for (u32 i = 0; i < 6; i++) {
        const Report report = g_reports.Events()[i];
        EXPECT_EQ(static_cast<s32>(101 + i), report.result);
        EXPECT_EQ(Hop(9, false, 101 + i), AsBytes(report.hop));
    }
    EXPECT_EQ(0, VimbraTracerouteStop(9));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Traceroute, OtherEventsAreLoggedAndTheTraceGoesOn) {
    EXPECT_EQ(0, Start(9));
    for (const u32 event : {0u, 100u, 107u, 0xffffffffu}) {
        EXPECT_TRUE(Send(event, Hop(9)));
    }
    EXPECT_TRUE(log_.WaitFor(Kind::kError, "TraceRtCBThread", "the unkonwn type = 0x0"));
    EXPECT_TRUE(log_.WaitFor(Kind::kError, "TraceRtCBThread", "the unkonwn type = 0x64"));
    EXPECT_TRUE(log_.WaitFor(Kind::kError, "TraceRtCBThread", "the unkonwn type = 0x6b"));
    EXPECT_TRUE(log_.WaitFor(Kind::kError, "TraceRtCBThread", "the unkonwn type = 0xffffffff"));
    EXPECT_TRUE(Send(101, Hop(9)));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(0, VimbraTracerouteStop(9));
}

TEST_F(Traceroute, RecordsOfOtherTracesReachTheNewestListener) {
    EXPECT_EQ(0, Start(1));
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Send(101, Hop(1)));
    ASSERT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(1, g_reports.Events()[0].hop.nUserId);
    EXPECT_EQ(0, VimbraTracerouteStop(2));
    EXPECT_EQ(0, VimbraTracerouteStop(1));
    EXPECT_TRUE(AllGone());
}

TEST_F(Traceroute, TheLastHopIsReportedAndEndsTheTrace) {
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Send(102, Hop(2, true)));
    EXPECT_TRUE(log_.WaitFor(Kind::kPrint, "TraceRtCBThread", "the user 2 traceroute is over!"));
    EXPECT_TRUE(AllGone());
    ASSERT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(1, g_reports.Events()[0].hop.nIsOver);
    EXPECT_EQ(0, VimbraTracerouteStop(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraTracerouteStop", "the user id 2 has been stopped!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
}

TEST_F(Traceroute, AConnectionIsNotClosedBetweenHops) {
    EXPECT_EQ(0, Start(2));
    Connection connection(kSocket);
    EXPECT_TRUE(connection.Send(Message(101, Hop(2))));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_TRUE(Send(101, Hop(2)));
    EXPECT_TRUE(g_reports.WaitCount(2));
    EXPECT_FALSE(connection.WaitPeerClosed(std::chrono::milliseconds(50)));
    EXPECT_EQ(0, VimbraTracerouteStop(2));
    EXPECT_TRUE(connection.WaitPeerClosed());
}

TEST_F(Traceroute, ALongTraceKeepsNoDescriptors) {
    EXPECT_EQ(0, Start(2));
    const size_t before = OpenDescriptors().size();
    for (size_t i = 1; i <= 300; i++) {
        EXPECT_TRUE(Send(101, Hop(2)));
    }
    EXPECT_TRUE(g_reports.WaitCount(300));
    // A few of the last ones may still be open; which peers have closed is seen at the next hop.
    EXPECT_LE(OpenDescriptors().size(), before + 16);
    EXPECT_EQ(0, VimbraTracerouteStop(2));
    EXPECT_TRUE(AllGone());
}

TEST_F(Traceroute, StopChecksTheId) {
    EXPECT_EQ(1105, VimbraTracerouteStop(0));
    EXPECT_EQ(1105, VimbraTracerouteStop(-1));
    EXPECT_EQ(2,
              log_.Count(Kind::kError, "VimbraTracerouteStop", "the nUserID must be more than 0!"));
}

TEST_F(Traceroute, StoppingAnUnknownIdSucceeds) {
    EXPECT_EQ(0, VimbraTracerouteStop(12));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraTracerouteStop", "the user id 12 has been stopped!"));
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Traceroute, ARefusedStopIs1403AndTheTraceGoesOn) {
    EXPECT_EQ(0, Start(6));
    daemon_.Next(kStop, Answer::Code(5));
    EXPECT_EQ(1403, VimbraTracerouteStop(6));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicTracertStop", "send and recv msg error, nErrid = 5!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraTracerouteStop", "Stop traceroute failed!"));
    EXPECT_TRUE(Send(101, Hop(6)));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(0, VimbraTracerouteStop(6));
    EXPECT_TRUE(AllGone());
}

class TracerouteBadMessage : public Traceroute, public testing::WithParamInterface<size_t> {};

TEST_P(TracerouteBadMessage, OfTheWrongLengthEndsTheListener) {
    EXPECT_EQ(0, Start(1));
    Connection connection(kSocket);
    EXPECT_TRUE(connection.Send(Message(101, Hop(1)).Slice(0, GetParam())));
    connection.EndSending();
    EXPECT_TRUE(connection.WaitPeerClosed());
    connection.Close();
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "TraceRtCBThread", "read message error"));
    EXPECT_TRUE(AllGone());
    EXPECT_TRUE(g_reports.Events().empty());
}

INSTANTIATE_TEST_SUITE_P(Lengths, TracerouteBadMessage, testing::Values(0, 1, 11, 12, 59));

TEST_F(Traceroute, AWrongSizeFieldEndsTheListener) {
    for (const u32 size : {47u, 49u}) {
        EXPECT_EQ(0, Start(1));
        log_.Clear();
        EXPECT_TRUE(Send(101, Hop(1), {.size = size}));
        EXPECT_TRUE(log_.WaitFor(Kind::kError, "TraceRtCBThread", "the sended data is too long!"));
        EXPECT_TRUE(AllGone());
    }
    EXPECT_TRUE(g_reports.Events().empty());
}

TEST_F(Traceroute, AListenerThatCannotBindDoesNotHoldTheStarterUp) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_traceroute", 0700));
    EXPECT_EQ(0, Start(1));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "TraceRtCBThread", "accept error"));
    EXPECT_TRUE(WaitRunning(0));
    EXPECT_EQ(1u, BusySlots());
    EXPECT_EQ(0, VimbraTracerouteStop(1));
    EXPECT_TRUE(AllGone());
}

Gate g_gate;

int BlockingCallback(s32 nResult, TVimbraTracerouteCBInfo* ptHop) {
    g_gate.Pass();
    return OnHop(nResult, ptHop);
}

TEST_F(Traceroute, ATraceThatIsEndedInItsCallbackLeavesTheNextAlone) {
    EXPECT_EQ(0, Start(8, BlockingCallback));
    EXPECT_TRUE(Send(101, Hop(8, true)));
    ASSERT_TRUE(g_gate.WaitArrived());
    EXPECT_EQ(-1, Start(8));  // takes the running trace's place away
    EXPECT_EQ(0, Start(8));
    g_gate.Open();
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_TRUE(WaitRunning(1));
    EXPECT_EQ(1u, BusySlots());
    EXPECT_EQ(0, VimbraTracerouteStop(8));
    EXPECT_TRUE(AllGone());
}

int StoppingCallback(s32 nResult, TVimbraTracerouteCBInfo* ptHop) {
    EXPECT_EQ(0, VimbraTracerouteStop(ptHop->nUserId));
    return OnHop(nResult, ptHop);
}

TEST_F(Traceroute, ATraceMayBeStoppedFromItsCallback) {
    EXPECT_EQ(0, Start(8, StoppingCallback));
    EXPECT_TRUE(Send(101, Hop(8)));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_TRUE(AllGone());
}

TEST_F(Traceroute, TheQueueIsSwitchedOff) {
    EXPECT_EQ(-1, ClearTraceRtMsgQueue(1));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "CreateMsgQueue", "msgget error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "ClearTraceRtMsgQueue",
                         "CreateMsgQueue NET_TRACEROUTE_BASE error!"));
}

TEST_F(Traceroute, LegacyReportsEightValues) {
    TTraceroutePara para = {htonl(0x0a000001), 30};
    EXPECT_EQ(0, NetTracerouteStart(&para, 5, OnLegacyHop));
    EXPECT_EQ(Pack().Address(2, "10.0.0.1").U32(30).S32(5), daemon_.Requests()[0].body);
    EXPECT_TRUE(Send(103, Hop(5)));
    ASSERT_TRUE(g_legacyReports.WaitCount(1));
    EXPECT_EQ((LegacyReport{103, 3, 15, htonl(0xc0000207), nullptr, 5, 11, 12}),
              g_legacyReports.Events()[0]);
    EXPECT_EQ(0, NetTracerouteStop(5));
    EXPECT_TRUE(AllGone());
}

TEST_F(Traceroute, LegacyStopSilencesEveryLegacyTrace) {
    TTraceroutePara para = {htonl(0x0a000001), 30};
    EXPECT_EQ(0, NetTracerouteStart(&para, 5, OnLegacyHop));
    EXPECT_EQ(0, NetTracerouteStop(99));
    EXPECT_TRUE(Send(101, Hop(5)));
    EXPECT_EQ(1105, NetTracerouteStart(&para, 0, OnLegacyHop));
    EXPECT_TRUE(Send(102, Hop(5)));
    ASSERT_TRUE(g_legacyReports.WaitCount(1));
    EXPECT_EQ(102, g_legacyReports.Events()[0].result);
    EXPECT_EQ(0, NetTracerouteStop(5));
}

TEST_F(Traceroute, LegacyStartWantsACallbackAndParameters) {
    TTraceroutePara para = {};
    log_.Clear();
    EXPECT_EQ(1106, NetTracerouteStart(&para, 5, nullptr));
    EXPECT_EQ(1105, NetTracerouteStart(nullptr, 5, OnLegacyHop));
    EXPECT_TRUE(log_.IsSilent());
}

}  // namespace
}  // namespace vimbra::tests
