// Requests and answers that no call of the interface leads to.
#include <gtest/gtest.h>

#include <vimbra/bed.hpp>

#include "api/api_ping/api_ping.hpp"
#include "api/api_traceroute/api_traceroute.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST(TracerouteRequests, AllStopSendsWhatAStopSends) {
    ScriptedDaemon daemon;
    EXPECT_EQ(0, ApicTracertStop(3));
    EXPECT_EQ(0, ApicTracertAllStop(3));
    ASSERT_EQ(2u, daemon.Requests().size());
    EXPECT_EQ(3330u, daemon.Requests()[1].type);
    EXPECT_EQ(daemon.Requests()[0].raw, daemon.Requests()[1].raw);
    daemon.Default(Answer::Code(5));
    Capture log;
    EXPECT_EQ(ApicTracertStop(3), ApicTracertAllStop(3));
    EXPECT_EQ(1, log.Count(Kind::kError, "ApicTracertAllStop"));
}

TEST(PingRecords, UsersCountFromOne) {
    Capture log;
    PingInit();
    for (const s32 user : {0, -1}) {
        EXPECT_EQ(nullptr, FamilyMapBusyPingInfo(user));
        EXPECT_EQ(nullptr, FamilyMapFreePingInfo(user));
    }
    for (const char* function : {"FamilyMapBusyPingInfo", "FamilyMapFreePingInfo"}) {
        EXPECT_EQ(2, log.Count(Kind::kError, function, "the nUserId must be more than 0!"));
    }
    EXPECT_EQ(nullptr, FamilyMapBusyPingInfo(1));
    EXPECT_EQ(g_ptApiPingInfo, FamilyMapFreePingInfo(1));
}

}  // namespace
}  // namespace vimbra::tests
