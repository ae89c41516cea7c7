// Ping: starts, reports, listeners that end.
#include "ping.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/net_ping.h>
#include <vimbra/ping.h>

#include <array>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_F(Ping, InitBuildsTenSlots) {
    u32 count = 0;
    for (const TPingInfo* slot = g_ptApiPingInfo; slot != nullptr; slot = slot->ptNext) {
        EXPECT_EQ(count == 0 ? VIMBRA_FAMILY_IPV4 : 0, slot->wSinFamily);
        EXPECT_EQ(0u, slot->bIsStarted);
        count++;
    }
    EXPECT_EQ(10u, count);
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Ping, StartSendsDestinationOptionsAndId) {
    EXPECT_EQ(0, Start(5));
    ASSERT_EQ(1u, daemon_.Requests().size());
    const Request request = daemon_.Requests()[0];
    EXPECT_EQ(kStart, request.type);
    EXPECT_EQ(40u, request.size);
    EXPECT_EQ(Pack().Address(2, "10.0.0.1").S32(56).S32(1000).S32(64).S32(4).S32(5), request.body);
    EXPECT_TRUE(HasListener(kSocket));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, VimbraPingStop(5));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, StartSendsAnIpv6Destination) {
    TVimbraAddr destination = {};
    destination.wSinFamily = VIMBRA_FAMILY_IPV6;
    destination.tV6Addr.s6_addr[0] = 0xfd;
    destination.tV6Addr.s6_addr[15] = 1;
    EXPECT_EQ(0, VimbraPingStart(destination, &option_, 1, OnPing));
    EXPECT_EQ(Pack().Address(10, "fd00::1"), daemon_.Requests()[0].body.Slice(0, 20));
    EXPECT_EQ(0, VimbraPingStop(1));
}

TEST_F(Ping, OptionsAreNotChecked) {
    option_ = {-1, 0, -5, INT32_MAX};
    EXPECT_EQ(0, Start(INT32_MAX));
    EXPECT_EQ(Pack().S32(-1).S32(0).S32(-5).S32(INT32_MAX).S32(INT32_MAX),
              daemon_.Requests()[0].body.Slice(20, 20));
    EXPECT_EQ(0, VimbraPingStop(INT32_MAX));
}

TEST_F(Ping, StartChecksArgumentsInOrder) {
    TVimbraAddr destination = {};
    EXPECT_EQ(1105, VimbraPingStart(destination, nullptr, 0, OnPing));
    EXPECT_EQ(1105, VimbraPingStart(destination, &option_, 0, nullptr));
    EXPECT_EQ(
        2, log_.Count(Kind::kError, "VimbraPingStart", "the ptPingOpt or ptCallBackFunc is NULL!"));
    EXPECT_EQ(1105, VimbraPingStart(destination, &option_, 0, OnPing));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPingStart", "the dest wSinFamily 0 is invalid!"));
    destination.wSinFamily = 11;
    EXPECT_EQ(1105, VimbraPingStart(destination, &option_, 1, OnPing));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPingStart", "the dest wSinFamily 11 is invalid!"));
    EXPECT_EQ(1105, Start(0));
    EXPECT_EQ(1105, Start(-1));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraPingStart", "the nUserID must be more than 0!"));
    EXPECT_TRUE(daemon_.Requests().empty());
    EXPECT_TRUE(AllGone());
}

TEST_F(PingBeforeInit, FindsNoPlace) {
    EXPECT_EQ(-1, Start(1));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPingStart", "the user id has been up to the max!"));
    EXPECT_EQ(1305, VimbraPingStop(1));
    EXPECT_TRUE(daemon_.Requests().empty());
}

TEST_F(Ping, TheEleventhAtOnceIsRefused) {
    for (s32 user = 1; user <= 10; user++) {
        EXPECT_EQ(0, Start(user)) << user;
    }
    EXPECT_EQ(-1, Start(11));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPingStart", "the user id has been up to the max!"));
    EXPECT_EQ(10u, daemon_.Requests().size());
    // In the middle, so that an older and a newer listener stay.
    EXPECT_EQ(0, VimbraPingStop(4));
    EXPECT_EQ(0, Start(11));
    for (s32 user = 1; user <= 11; user++) {
        EXPECT_EQ(user == 4 ? 1305 : 0, VimbraPingStop(user)) << user;
    }
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, AnIdInUseIsRefused) {
    EXPECT_EQ(0, Start(3));
    EXPECT_EQ(-1, Start(3, OtherCallback));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPingStart",
                         "the userId 3 is pinging, please replace the user id!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify(kSocket, 0, Record(3, 64, 1, 0, 0)));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(0, VimbraPingStop(3));
}

TEST_F(Ping, ARefusedStartGivesThePlaceBack) {
    daemon_.Next(kStart, Answer::Code(22));
    EXPECT_EQ(-1, Start(1));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPingStart", "send and recv msg error, nErrid = 22!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraPingStart", "ApicPingStart error!"));
    EXPECT_TRUE(AllGone());
    EXPECT_EQ(1305, VimbraPingStop(1));
    EXPECT_EQ(0, Start(1));
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, AStartWithoutAGoodReplyFails) {
    daemon_.Next(kStart, Answer::Code(0).Size(8));
    EXPECT_EQ(-1, Start(1));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicPingStart", "send and recv msg error, nRet = 16!"));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, ADaemonThatClosesCountsAsStarted) {
    daemon_.Default(Answer::Close());
    EXPECT_EQ(0, Start(1));
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, EventsReachTheCallback) {
    EXPECT_EQ(0, Start(9));
    EXPECT_TRUE(Notify(kSocket, 0, Record(9, 63, 12, 1, 0)));
    for (u32 event = 1; event <= 3; event++) {
        EXPECT_TRUE(Notify(kSocket, event, Record(9, 63, 12, 2, 0)));
    }
    ASSERT_TRUE(g_reports.WaitCount(4));
    const auto reports = g_reports.Events();
    EXPECT_EQ(0, reports[0].result);
    EXPECT_EQ(Pack().S32(63).S32(12).S32(1).S32(9).S32(0).S32(0), AsBytes(reports[0].info));
    for (s32 event = 1; event <= 3; event++) {
        EXPECT_EQ(event, reports[event].result);
        EXPECT_EQ(Pack().S32(0).S32(0).S32(2).S32(9).S32(0).S32(0), AsBytes(reports[event].info));
    }
    EXPECT_EQ(0, VimbraPingStop(9));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Ping, AnUnknownEventIsLoggedAndTheTestGoesOn) {
    EXPECT_EQ(0, Start(9));
    EXPECT_TRUE(Notify(kSocket, 4, Record(9, 1, 1, 1, 0)));
    EXPECT_TRUE(Notify(kSocket, 0xffffffff, Record(9, 1, 1, 1, 0)));
    EXPECT_TRUE(log_.WaitFor(Kind::kError, "PingCBThread", "the unkonwn type = 0x4"));
    EXPECT_TRUE(log_.WaitFor(Kind::kError, "PingCBThread", "the unkonwn type = 0xffffffff"));
    EXPECT_TRUE(Notify(kSocket, 0, Record(9, 1, 1, 1, 0)));
    EXPECT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(0, VimbraPingStop(9));
}

TEST_F(Ping, TheLastRecordIsReportedAndEndsTheTest) {
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 0, Record(2, 64, 3, 4, 1)));
    EXPECT_TRUE(AllGone());
    ASSERT_EQ(1u, g_reports.Events().size());
    EXPECT_EQ(4, g_reports.Events()[0].info.nSeq);
    EXPECT_EQ(1305, VimbraPingStop(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraPingStop", "the userId 2 has stopped ping"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, VimbraPingStop(2));
}

TEST_F(Ping, AClearedPlaceShowsIt) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, VimbraPingStop(2));
    EXPECT_EQ(0u, g_ptApiPingInfo->bIsStarted);
    EXPECT_EQ(-1, g_ptApiPingInfo->nUserId);
    EXPECT_EQ(static_cast<pthread_t>(-1), g_ptApiPingInfo->tThreadId);
    EXPECT_EQ(0, g_ptApiPingInfo->wSinFamily);
    EXPECT_EQ(nullptr, g_ptApiPingInfo->ptCallBackFunc);
}

TEST_F(Ping, RecordsOfOtherTestsAreDropped) {
    EXPECT_EQ(0, Start(1));
    EXPECT_EQ(0, Start(2));
    // The newest listener has the name.
    EXPECT_TRUE(Notify(kSocket, 0, Record(1, 64, 1, 1, 1)));
    EXPECT_TRUE(Notify(kSocket, 0, Record(2, 64, 1, 2, 0)));
    ASSERT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(2, g_reports.Events()[0].info.nUserID);
    EXPECT_EQ(2u, BusySlots());
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_EQ(0, VimbraPingStop(2));
    EXPECT_TRUE(AllGone());
}

class PingBadMessage : public Ping, public testing::WithParamInterface<size_t> {};

TEST_P(PingBadMessage, OfTheWrongLengthEndsTheListener) {
    EXPECT_EQ(0, Start(1));
    Connection connection(kSocket);
    const Bytes whole = Message(0, Record(1, 64, 1, 1, 0));
    EXPECT_TRUE(connection.Send(whole.Slice(0, GetParam())));
    connection.EndSending();
    EXPECT_TRUE(connection.WaitPeerClosed());
    connection.Close();
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "PingCBThread", "read message error"));
    EXPECT_TRUE(AllGone());
    EXPECT_TRUE(g_reports.Events().empty());
    EXPECT_EQ(1305, VimbraPingStop(1));
}

INSTANTIATE_TEST_SUITE_P(Lengths, PingBadMessage, testing::Values(0, 1, 11, 12, 31));

TEST_F(Ping, AWrongSizeFieldEndsTheListener) {
    for (const u32 size : {19u, 21u, 0u, 0xffffffffu}) {
        EXPECT_EQ(0, Start(1));
        log_.Clear();
        EXPECT_TRUE(Notify(kSocket, 0, Record(1, 64, 1, 1, 0), {.size = size}));
        EXPECT_TRUE(log_.WaitFor(Kind::kError, "PingCBThread", "the sended data is too long!"));
        EXPECT_TRUE(AllGone());
    }
    EXPECT_TRUE(g_reports.Events().empty());
}

TEST_F(Ping, AListenerThatCannotBindLeavesTheTestToItsOwner) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_ping", 0700));
    EXPECT_EQ(0, Start(1));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, "PingCBThread", "accept error"));
    EXPECT_TRUE(WaitRunning(0));
    EXPECT_EQ(1u, BusySlots());
    EXPECT_EQ(0, VimbraPingStop(1));
    EXPECT_TRUE(AllGone());
}

// Stops its own test and starts it anew, all from its callback.
int RestartingCallback(s32, TVimbraPingCBInfo* ptInfo) {
    static TVimbraPingOpt option = {1, 1, 1, 1};
    EXPECT_EQ(0, VimbraPingStop(ptInfo->nUserID));
    EXPECT_EQ(0, VimbraPingStart(Destination(), &option, ptInfo->nUserID, OnPing));
    return 0;
}

TEST_F(Ping, ATestMayBeRestartedFromItsCallback) {
    EXPECT_EQ(0, Start(8, RestartingCallback));
    EXPECT_TRUE(Notify(kSocket, 0, Record(8, 64, 1, 1, 1)));
    EXPECT_TRUE(WaitRunning(1));
    // The old thread, whose record was its last, has not taken the new test's place away.
    EXPECT_EQ(1u, BusySlots());
    EXPECT_TRUE(Notify(kSocket, 0, Record(8, 64, 1, 2, 0)));
    ASSERT_TRUE(g_reports.WaitCount(1));
    EXPECT_EQ(2, g_reports.Events()[0].info.nSeq);
    EXPECT_EQ(0, VimbraPingStop(8));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, LegacyReportsSevenValues) {
    TPingOpt option = {56, 1000, 64, 4};
    EXPECT_EQ(0, NetPingStart(htonl(0x0a000001), &option, 5, OnLegacyPing));
    EXPECT_EQ(Pack().Address(2, "10.0.0.1").S32(56).S32(1000).S32(64).S32(4).S32(5),
              daemon_.Requests()[0].body);
    EXPECT_TRUE(Notify(kSocket, 0, Record(5, 63, 12, 1, 0)));
    for (u32 event = 1; event <= 3; event++) {
        EXPECT_TRUE(Notify(kSocket, event, Record(5, 63, 12, 2, 0)));
    }
    ASSERT_TRUE(g_legacyReports.WaitCount(4));
    const auto reports = g_legacyReports.Events();
    EXPECT_EQ((std::array<s32, 7>{0, 63, 12, 1, 5, 0, 0}), reports[0]);
    for (s32 event = 1; event <= 3; event++) {
        EXPECT_EQ((std::array<s32, 7>{event, 0, 0, 2, 5, 0, 0}), reports[event]);
    }
    EXPECT_EQ(0, NetPingStop(5));
    EXPECT_TRUE(AllGone());
}

TEST_F(Ping, LegacyStopSilencesEveryLegacyTest) {
    TPingOpt option = {56, 1000, 64, 4};
    EXPECT_EQ(0, NetPingStart(htonl(0x0a000001), &option, 5, OnLegacyPing));
    EXPECT_EQ(1305, NetPingStop(99));
    EXPECT_TRUE(Notify(kSocket, 0, Record(5, 63, 12, 1, 0)));
    EXPECT_TRUE(g_legacyReports.Events().empty());
    // A start that is refused for its argument gives them a callback all the same.
    EXPECT_EQ(1105, NetPingStart(0, nullptr, 0, OnLegacyPing));
    EXPECT_TRUE(Notify(kSocket, 0, Record(5, 63, 12, 1, 0)));
    EXPECT_TRUE(g_legacyReports.WaitCount(1));
    EXPECT_EQ(0, NetPingStop(5));
}

TEST_F(Ping, LegacyStartWantsACallback) {
    TPingOpt option = {};
    EXPECT_EQ(1106, NetPingStart(0, &option, 5, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "NetPingStart", "the ping callback function is null!"));
    EXPECT_EQ(1105, NetPingStop(0));
}

}  // namespace
}  // namespace vimbra::tests
