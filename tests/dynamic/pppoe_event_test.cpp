// PPPoE: what the daemon reports, and the listener.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "failed_accept.hpp"
#include "pppoe.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST_F(Pppoe, EventsReachTheCallback) {
    for (const char* socket : {kSocket, kSocket6}) {
        EXPECT_EQ(0, Start(socket == kSocket ? 2 : 10));
        EXPECT_TRUE(Notify(socket, 1, Addresses()));
        for (const u32 type : {2u, 3u, 4u, 5u}) {
            EXPECT_TRUE(Notify(socket, type, {}));
        }
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(1u, 2u, 3u, 4u, 5u, 1u, 2u, 3u, 4u, 5u));
    EXPECT_EQ(Addresses(), g_events.Events()[0].data);
    EXPECT_FALSE(g_events.Events()[1].hasData);
    EXPECT_EQ(Addresses(), g_events.Events()[5].data);
    EXPECT_EQ(ThreadOf("VimbraPppoeCBThread"), g_events.Events()[0].thread);
    EXPECT_TRUE(log_.HasNoTrouble());
    // The daemon's stop event does not stop anything here.
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=1", "11=0"));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, SizeOfAnEventIsNotChecked) {
    EXPECT_EQ(0, Start(2));
    // A body that is too short is zero behind what came, one that is too long is cut.
    EXPECT_TRUE(Notify(kSocket, 1, Pack().Address(2, "192.0.2.1")));
    EXPECT_TRUE(Notify(kSocket, 1, Pack().Add(Addresses()).Zeros(100),
                       {.size = 0xffffffff, .flag = 0, .wait = true}));
    EXPECT_TRUE(Notify(kSocket, 2, Addresses()));
    {
        Connection connection(kSocket);
        connection.Send(Pack().U32(3));
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    ASSERT_THAT(g_events.Kinds(), ElementsAre(1u, 1u, 2u, 3u));
    EXPECT_EQ(Pack().Address(2, "192.0.2.1").FillTo(80), g_events.Events()[0].data);
    EXPECT_EQ(Addresses(), g_events.Events()[1].data);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, UnknownTypeIsLogged) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    EXPECT_TRUE(Notify(kSocket, 6, {}));
    EXPECT_TRUE(Notify(kSocket6, 0xABCD, {}));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread, "the unkonwn type = 0x6"));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread6, "the unkonwn type = 0xabcd"));
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, PeerThatSaysNothing) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    for (const char* socket : {kSocket, kSocket6}) {
        Connection connection(socket);
        ASSERT_TRUE(connection.Connected());
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    EXPECT_TRUE(log_.Has(Kind::kError, kThread, "the unkonwn type = 0x0"));
    EXPECT_TRUE(log_.Has(Kind::kError, kThread6, "the peer connection has been closed!"));
    EXPECT_EQ(2, log_.Count(Kind::kError));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_TRUE(Notify(kSocket6, 2, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(2u, 2u));
    EXPECT_EQ(0, Stop(2));
    EXPECT_EQ(0, Stop(10));
}

TEST_F(Pppoe, StaleSocketFileIsReplaced) {
    WriteFile("/tmp/ipc_pppoe", "stale");
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_EQ(0, Stop(2));
}

TEST_F(Pppoe, ManyStartsAndStopsLeaveNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 30; i++) {
        for (const u16 family : {2, 10, 11}) {
            EXPECT_EQ(0, Start(family));
            EXPECT_EQ(0, Stop(family));
        }
    }
    EXPECT_EQ(90u, g_events.Count());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(Pppoe, FailedAcceptGoesOn) {
    // A sanitizer wants descriptors for what it has not seen yet, such as the end of a thread of
    // the bed's.
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(daemon_.WaitIdle());
    EXPECT_EQ(0, Stop(2));
    EXPECT_TRUE(daemon_.WaitIdle());
    g_events.Clear();
    const Gate gate;
    g_events.InCallback([&] { gate.Pass(); });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, Addresses(), {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    ExpectFailedAcceptGoesOn(log_, kThread, kSocket, gate);
    EXPECT_THAT(g_events.Kinds(), ElementsAre(1u, 2u));
    EXPECT_EQ(0, Stop(2));
}

}  // namespace
}  // namespace vimbra::tests
