// Address conflicts: the watch of each family.
#include "ip_conflict.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/common.h>
#include <vimbra/ip_conflict.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

INSTANTIATE_TEST_SUITE_P(Families, Conflicts, testing::Values(0, 1),
                         [](const auto& which) { return which.param == 0 ? "V4" : "V6"; });

TEST_P(Conflicts, StartAndStopSendTheFamilyOnceTheListenerStands) {
    Capture log;
    ScriptedDaemon daemon;
    bool listening = false;
    daemon.On(kStart,
              Answer::Code(0).After([&](const Request&) { listening = HasListener(Socket()); }));
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    EXPECT_TRUE(listening);
    EXPECT_EQ(1u, Info()->bIsStarted);
    EXPECT_NE(0u, Info()->tThreadId);
    EXPECT_EQ(TakeConflict, Info()->pfIpConflictCB);
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    ASSERT_EQ(2u, daemon.Requests().size());
    EXPECT_EQ(Message(kStart, Pack().U16(Family())), daemon.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Pack().U16(Family())), daemon.Requests()[1].raw);
    EXPECT_TRUE(WaitForNoListener(Socket()));
    EXPECT_EQ(0u, Info()->bIsStarted);
    EXPECT_EQ(0u, Info()->tThreadId);
    EXPECT_EQ(nullptr, Info()->pfIpConflictCB);
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraIpConflictCheckStop", "Recycling resources...!"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraIpConflictCheckStop", "Recycling resources done!"));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST_P(Conflicts, BothKindsReachTheCallback) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    const Bytes body = GetParam() == 0 ? Conflict() : Conflict("eth1", 10, "2001:db8::7");
    EXPECT_TRUE(Notify(Socket(), 1, body));
    EXPECT_TRUE(Notify(Socket(), 2, body));
    const auto seen = g_seen.Events();
    ASSERT_EQ(2u, seen.size());
    for (u32 type = 1; type <= 2; type++) {
        EXPECT_EQ(type, seen[type - 1].type);
        EXPECT_EQ(kMac, seen[type - 1].mac);
        EXPECT_EQ(body.Slice(16, 20), seen[type - 1].address);
    }
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    EXPECT_TRUE(log.HasNoTrouble());
}

TEST_P(Conflicts, OtherTypesAreNamedAndDropped) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    for (const u32 type : {0u, 3u, 0x101u, 0xffffffffu}) {
        EXPECT_TRUE(Notify(Socket(), type, Conflict()));
    }
    EXPECT_TRUE(log.Has(Kind::kError, Function(), "the unkonwn type = 0x0"));
    EXPECT_TRUE(log.Has(Kind::kError, Function(), "the unkonwn type = 0x3"));
    EXPECT_TRUE(log.Has(Kind::kError, Function(), "the unkonwn type = 0x101"));
    EXPECT_TRUE(log.Has(Kind::kError, Function(), "the unkonwn type = 0xffffffff"));
    EXPECT_EQ(0u, g_seen.Count());
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
}

TEST_P(Conflicts, WrongSizeIsDroppedAndTheListenerGoesOn) {
    ScriptedDaemon daemon;
    for (const u32 size : {41u, 43u, 0u, 54u, 0xffffffffu}) {
        Capture log;
        ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
        g_seen.Clear();
        EXPECT_TRUE(Notify(Socket(), 1, Conflict(), {.size = size}));
        EXPECT_TRUE(log.Has(Kind::kError, Function(), "the sended data is too long!"));
        EXPECT_EQ(0u, g_seen.Count());
        EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
        EXPECT_EQ(1u, g_seen.Count());
        EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    }
}

TEST_P(Conflicts, ShortMessageIsDroppedAndTheListenerGoesOn) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    const Bytes whole = Message(1, Conflict());
    int dropped = 0;
    for (const size_t length : {0, 1, 12, 53}) {
        Connection daemonSide(Socket());
        ASSERT_TRUE(daemonSide.Send(whole.Slice(0, length)));
        daemonSide.EndSending();
        EXPECT_TRUE(daemonSide.WaitPeerClosed());
        EXPECT_EQ(++dropped, log.Count(Kind::kPerror, Function(), "read message error"));
    }
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
}

TEST_P(Conflicts, SecondStartIsRefusedAndKeepsTheFirstCallback) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    EXPECT_EQ(-1, VimbraIpConflictCheckStart(Family(), NoConflict));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStart",
                        "the wSimFamily " + Number() + " ip conflict has been started!"));
    EXPECT_EQ(1u, daemon.Requests().size());
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
}

TEST_P(Conflicts, RefusedStartIs0AndNotStarted) {
    Capture log;
    ScriptedDaemon daemon;
    daemon.Next(kStart, Answer::Code(13));
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict));
    EXPECT_EQ(0u, Info()->bIsStarted);
    EXPECT_EQ(0u, Info()->tThreadId);
    EXPECT_EQ(nullptr, Info()->pfIpConflictCB);
    EXPECT_TRUE(
        log.Has(Kind::kError, "ApicConflictCheckStart", "send and recv msg error, nErrid : 13!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStart",
                        "ApicConflictCheckStart wSinFamily " + Number() + " error!"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraIpConflictCheckStart", "Recycling resources...!"));
    EXPECT_TRUE(log.Has(Kind::kPrint, "VimbraIpConflictCheckStart", "Recycling resources done!"));
    EXPECT_TRUE(WaitForNoListener(Socket()));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
}

TEST_P(Conflicts, StartWithoutDaemonIs0AndNotStarted) {
    Capture log;
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict));
    EXPECT_TRUE(
        log.Has(Kind::kError, "ApicConflictCheckStart", "send and recv msg error, nRet : -1!"));
    EXPECT_EQ(0u, Info()->bIsStarted);
    EXPECT_TRUE(WaitForNoListener(Socket()));
}

TEST_P(Conflicts, DaemonThatClosesUnansweredHasRefused) {
    Capture log;
    ScriptedDaemon daemon;
    daemon.Next(kStart, Answer::Close());
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict));
    EXPECT_TRUE(
        log.Has(Kind::kError, "ApicConflictCheckStart", "send and recv msg error, nErrid : -1!"));
    EXPECT_EQ(0u, Info()->bIsStarted);
}

TEST_P(Conflicts, RefusedStopGoesOn) {
    Capture log;
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    daemon.Next(kStop, Answer::Code(4));
    EXPECT_EQ(-1, VimbraIpConflictCheckStop(Family()));
    EXPECT_TRUE(
        log.Has(Kind::kError, "ApicConflictCheckStop", "send and recv msg error, nErrid : 4!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStop",
                        "ApicConflictCheckStop wSinFamily " + Number() + " error!"));
    EXPECT_EQ(1u, Info()->bIsStarted);
    EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
}

TEST_P(Conflicts, StopOfAWatchThatNeverRanTellsTheDaemonAndFails) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(-1, VimbraIpConflictCheckStop(Family()));
    ASSERT_EQ(1u, daemon.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().U16(Family())), daemon.Requests()[0].raw);
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStop", "ThreadKill error!"));
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    EXPECT_EQ(-1, VimbraIpConflictCheckStop(Family()));
}

TEST_P(Conflicts, NameThatCannotBeBoundEndsTheListener) {
    ASSERT_EQ(0, mkdir((std::string("/tmp/") + Socket()).c_str(), 0777));
    Capture log;
    ScriptedDaemon daemon;
    const auto descriptors = OpenDescriptors();
    const size_t threads = Threads();
    EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), NoConflict));
    EXPECT_TRUE(log.WaitFor(Kind::kPerror, Function(), "accept error"));
    EXPECT_TRUE(log.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(-1, VimbraIpConflictCheckStop(Family()));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStop", "ThreadKill error!"));
}

TEST_P(Conflicts, RefusedStartWhoseListenerHasEndedIsMinusOne) {
    ASSERT_EQ(0, mkdir((std::string("/tmp/") + Socket()).c_str(), 0777));
    Capture log;
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    daemon.On(kStart, Answer::Code(1).After([&](const Request&) {
        EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    }));
    EXPECT_EQ(-1, VimbraIpConflictCheckStart(Family(), NoConflict));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStart", "ThreadKill error!"));
    EXPECT_EQ(0u, Info()->bIsStarted);
}

TEST_P(Conflicts, CallbackMayStopAndRestartTheWatch) {
    ScriptedDaemon daemon;
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    g_seen.InCallback([&] {
        EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
        EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    });
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    for (size_t i = 1; i <= 20; i++) {
        EXPECT_TRUE(Notify(Socket(), 1, Conflict()));
        EXPECT_EQ(i, g_seen.Count());
    }
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_P(Conflicts, ListenerRunsUnderItsName) {
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
    const auto names = ThreadNames();
    EXPECT_EQ(1, std::count(names.begin(), names.end(), "VimbraIpConfili"));
    EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
}

TEST(Conflict, StartBeforeInit) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(nullptr, g_ptIpConflictInfo);
    EXPECT_EQ(-1, VimbraIpConflictCheckStart(2, TakeConflict));
    EXPECT_TRUE(log.Has(Kind::kError, "FamilyMapIpConfictInfo", "the ip confilct is not inited!"));
    EXPECT_TRUE(
        log.Has(Kind::kError, "VimbraIpConflictCheckStart", "FamilyMapIpConfictInfo error!"));
    EXPECT_EQ(-1, VimbraIpConflictCheckStop(10));
    EXPECT_TRUE(
        log.Has(Kind::kError, "VimbraIpConflictCheckStop", "FamilyMapIpConfictInfo error!"));
    EXPECT_EQ(0u, daemon.Requests().size());
}

TEST(Conflict, InitBuildsTwoRecordsOnce) {
    IpConflictCheckInit();
    TIpConflictInfo* const first = g_ptIpConflictInfo;
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, first->ptNext);
    EXPECT_EQ(2, first->wSinFamily);
    EXPECT_EQ(10, first->ptNext->wSinFamily);
    EXPECT_EQ(nullptr, first->ptNext->ptNext);
    EXPECT_EQ(0u, first->tThreadId);
    IpConflictCheckInit();
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(first, g_ptIpConflictInfo);
}

TEST(Conflict, ArgumentsAreCheckedInOrder) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(1106, VimbraIpConflictCheckStart(7, nullptr));
    EXPECT_TRUE(
        log.Has(Kind::kError, "VimbraIpConflictCheckStart", "the callback function is null!"));
    for (const u16 family : {0, 1, 3, 9, 11, 65535}) {
        const std::string text = "wSinFamily " + std::to_string(family) + " is invalid!";
        EXPECT_EQ(1105, VimbraIpConflictCheckStart(family, TakeConflict));
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStart", text));
        EXPECT_EQ(1105, VimbraIpConflictCheckStop(family));
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraIpConflictCheckStop", text));
    }
    EXPECT_EQ(0u, daemon.Requests().size());
}

TEST(Conflict, FamiliesAreIndependent) {
    ASSERT_EQ(0, VimbraInit());
    ScriptedDaemon daemon;
    ASSERT_EQ(0, VimbraIpConflictCheckStart(2, TakeConflict));
    ASSERT_EQ(0, VimbraIpConflictCheckStart(10, TakeConflict));
    EXPECT_EQ(0, VimbraIpConflictCheckStop(2));
    EXPECT_TRUE(Notify(kSockets[1], 1, Conflict("eth0", 10, "2001:db8::1")));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(10));
}

// The head is everybody's to see and to change; behind the second record nobody looks.
TEST(Conflict, LookupGoesThroughTheHeadAndItsSuccessorOnly) {
    ASSERT_EQ(0, VimbraInit());
    Capture log;
    ScriptedDaemon daemon;
    TIpConflictInfo* const own = g_ptIpConflictInfo;
    TIpConflictInfo* const ownIpv6 = own->ptNext;
    TIpConflictInfo second = {};
    second.ptNext = ownIpv6;
    second.wSinFamily = 7;
    own->ptNext = &second;
    EXPECT_EQ(-1, VimbraIpConflictCheckStart(10, NoConflict));
    EXPECT_TRUE(log.Has(Kind::kError, "FamilyMapIpConfictInfo", "the wSinFamily 10 is invalid!"));
    EXPECT_EQ(0u, daemon.Requests().size());
    own->ptNext = nullptr;
    EXPECT_EQ(-1, VimbraIpConflictCheckStart(10, NoConflict));
    own->ptNext = ownIpv6;

    // A record of the application's is as good, and nothing beside it is touched.
    struct {
        TIpConflictInfo info;
        u8 guard[64];
    } foreign = {};
    memset(foreign.guard, 0xa5, sizeof(foreign.guard));
    foreign.info.ptNext = own;
    foreign.info.wSinFamily = 10;
    g_ptIpConflictInfo = &foreign.info;
    EXPECT_EQ(0, VimbraIpConflictCheckStart(10, TakeConflict));
    EXPECT_EQ(1u, foreign.info.bIsStarted);
    EXPECT_NE(0u, foreign.info.tThreadId);
    EXPECT_EQ(0u, ownIpv6->bIsStarted);
    EXPECT_TRUE(Notify(kSockets[1], 1, Conflict("eth0", 10, "2001:db8::1")));
    EXPECT_EQ(1u, g_seen.Count());
    EXPECT_EQ(0, VimbraIpConflictCheckStop(10));
    EXPECT_EQ(0u, foreign.info.bIsStarted);
    EXPECT_EQ(0u, foreign.info.tThreadId);
    EXPECT_EQ(Bytes(64, 0xa5), Bytes(std::span<const u8>(foreign.guard)));
    g_ptIpConflictInfo = own;
}

}  // namespace
}  // namespace vimbra::tests
