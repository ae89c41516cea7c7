// NTP client: what the daemon reports, and the listener.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <vimbra/ntpc.h>

#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "failed_accept.hpp"
#include "ntpc.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST_F(Ntpc, ReportsReachTheCallback) {
    EXPECT_EQ(0, Start(2));
    const Bytes report = Pack().U64(0x0102030405060708).U32(9);
    EXPECT_TRUE(Notify(kSocket, 1, report));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    ASSERT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    // Room behind a short report is zero.
    EXPECT_EQ(Pack().Add(report).FillTo(kMost), g_events.Events()[0].report);
    EXPECT_EQ(Pack().FillTo(kMost), g_events.Events()[1].report);
    EXPECT_EQ(ThreadOf("VimbraNtpcCBThread"), g_events.Events()[0].thread);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, HeadAndBodyMayComeApart) {
    EXPECT_EQ(0, Start(2));
    Connection connection(kSocket);
    EXPECT_TRUE(connection.SendInPieces(Message(1, Pack().U32(77)), {12}));
    EXPECT_TRUE(connection.WaitPeerClosed());
    EXPECT_EQ(77u, g_events.Events().at(0).report.U32(0));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, UnknownTypeIsLoggedAndTheListenerGoesOn) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    EXPECT_TRUE(Notify(kSocket, 3, Pack().U32(1)));
    EXPECT_TRUE(Notify(kSocket6, 0, {}));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread, "the unkonwn type = 0x3"));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread6, "the unkonwn type = 0x0"));
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_EQ(0, VimbraNtpcStop(10));
}

TEST_F(Ntpc, LongestReportPassesLongerOnesAreDropped) {
    EXPECT_EQ(0, Start(2));
    const Bytes most = Bytes(std::vector<u8>(kMost, 0xa5));
    EXPECT_TRUE(Notify(kSocket, 1, most));
    EXPECT_EQ(most, g_events.Events().at(0).report);
    Bytes longer = most;
    longer.push_back(1);
    Notify(kSocket, 1, longer);
    for (const u32 size : {4097u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        EXPECT_TRUE(Notify(kSocket, 1, {}, {.size = size, .flag = 0, .wait = true}));
    }
    EXPECT_TRUE(WaitFor([&] {
        return log_.Count(Kind::kError, kThread, "the ntpc message body is too long!") == 5;
    }));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, ShortHeadEndsTheListener) {
    for (const u16 family : {2, 10}) {
        const char* const socket = family == 2 ? kSocket : kSocket6;
        const size_t threads = Threads();
        const auto descriptors = OpenDescriptors();
        EXPECT_EQ(0, Start(family));
        {
            Connection connection(socket);
            connection.Send(Pack().Zeros(11));
            EXPECT_TRUE(connection.WaitPeerClosed());
        }
        EXPECT_TRUE(log_.Has(Kind::kError, family == 2 ? kThread : kThread6,
                             "read ntpc message head error"));
        EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
        EXPECT_FALSE(HasListener(socket));
        EXPECT_EQ(descriptors, OpenDescriptors());
        // Still started: the stop asks the daemon and finds no thread.
        EXPECT_EQ(-1, Start(family, Never));
        log_.Clear();
        EXPECT_EQ(0, VimbraNtpcStop(family));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStop", "ntpc ThreadKill error!"));
        EXPECT_EQ(Pack().U16(family), daemon_.Requests(kStop).back().body);
    }
}

TEST_F(Ntpc, ShortBodyEndsTheListener) {
    for (const u16 family : {2, 10}) {
        const char* const socket = family == 2 ? kSocket : kSocket6;
        EXPECT_EQ(0, Start(family));
        EXPECT_TRUE(Notify(socket, 1, {1, 2, 3}, {.size = 4, .flag = 0, .wait = true}));
        EXPECT_TRUE(log_.Has(Kind::kError, family == 2 ? kThread : kThread6,
                             "read ntpc message body error"));
        EXPECT_TRUE(WaitForNoListener(socket));
        EXPECT_EQ(0, VimbraNtpcStop(family));
    }
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
}

TEST_F(Ntpc, RefusedStartWhoseListenerHasEndedSaysSo) {
    daemon_.On(kStart, Answer::Code(1).After([](const Request&) {
        Connection connection(kSocket);
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
        EXPECT_TRUE(WaitForNoListener(kSocket));
    }));
    EXPECT_EQ(-1, Start(2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStart", "ntpc ThreadKill error!"));
}

TEST_F(Ntpc, ManyStartsAndStopsLeaveNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 30; i++) {
        for (const u16 family : {2, 10}) {
            EXPECT_EQ(0, Start(family));
            EXPECT_EQ(0, VimbraNtpcStop(family));
        }
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(1, SemaphoreValue());
}

TEST_F(Ntpc, FailedAcceptGoesOn) {
    // A sanitizer wants descriptors for what it has not seen yet, such as the end of a thread of
    // the bed's.
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(daemon_.WaitIdle());
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_TRUE(daemon_.WaitIdle());
    g_events.Clear();
    const Gate gate;
    g_events.InCallback([&] { gate.Pass(); });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, {}, {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    ExpectFailedAcceptGoesOn(log_, kThread, kSocket, gate);
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

}  // namespace
}  // namespace vimbra::tests
