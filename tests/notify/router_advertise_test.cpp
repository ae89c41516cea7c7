// Router advertisements: starts, notifications, listeners that end.
#include "router_advertise.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vimbra/router_advertise.h>

#include <list>
#include <string>
#include <utility>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

TEST_F(RouterAdvertise, InitBuildsFourSlotsOnce) {
    TRouterNotifyInfo* const first = g_ptApiRouterNotifyInfo;
    s32 id = 3584;
    for (TRouterNotifyInfo* slot = first; slot != nullptr; slot = slot->ptNext) {
        EXPECT_EQ(id++, slot->nUserId);
        EXPECT_EQ(0u, slot->bIsStarted);
        EXPECT_EQ(0u, slot->tThreadId);
    }
    EXPECT_EQ(3588, id);
    RouterAdvertiseInit();
    EXPECT_EQ(first, g_ptApiRouterNotifyInfo);
}

TEST_F(RouterAdvertise, StartSendsNameAndIdOnceTheListenerStands) {
    bool listening = false;
    daemon_.On(kStart,
               Answer::Code(0).After([&](const Request&) { listening = HasListener(kSocket); }));
    EXPECT_EQ(0, Start("eth0"));
    EXPECT_TRUE(listening);
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Pack().Text("eth0", 16).S32(3584)), daemon_.Requests()[0].raw);
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "VimbraRouterAdvertiseStart", "VimbraRouterAdvertiseStart ok!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(1u, g_ptApiRouterNotifyInfo->bIsStarted);
    EXPECT_EQ(0, Stop("eth0"));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().Text("eth0", 16)), daemon_.Requests()[1].raw);
    EXPECT_EQ(0u, g_ptApiRouterNotifyInfo->bIsStarted);
    EXPECT_EQ(0u, g_ptApiRouterNotifyInfo->tThreadId);
    EXPECT_EQ(nullptr, g_ptApiRouterNotifyInfo->pfRouterAdvertiseCB);
    EXPECT_EQ('\0', g_ptApiRouterNotifyInfo->achIfaceName[0]);
    EXPECT_EQ(3584, g_ptApiRouterNotifyInfo->nUserId);
    EXPECT_TRUE(WaitForNoListener(kSocket));
    ExpectLevel();
}

TEST_F(RouterAdvertise, PrintsItsSteps) {
    EXPECT_EQ(0, Start("eth1"));
    EXPECT_EQ(1, log_.Count(Kind::kPrint, "VimbraRouterAdvertiseStart", "the inface name : eth1",
                            Where::kStdout));
    EXPECT_EQ(1, log_.Count(Kind::kPrint, kFunction, "nBufSize : 480", Where::kStdout));
    EXPECT_EQ(
        1, log_.Count(Kind::kPrint, "VimbraRouterAdvertiseStart",
                      "VimbraRouterAdvertiseStart devname : eth1, nUserId : 3584", Where::kStdout));
    EXPECT_EQ(0, Stop("eth1"));
    EXPECT_EQ(1, log_.Count(Kind::kPrint, "VimbraRouterAdvertiseStop", "the pchIfaceName eth1",
                            Where::kStdout));
}

TEST_F(RouterAdvertise, NotificationReachesTheCallbackWhole) {
    ASSERT_EQ(0, Start("eth0"));
    ASSERT_TRUE(Notified());
    EXPECT_EQ(Change(), g_changes.Events()[0]);
    EXPECT_EQ(0, Stop("eth0"));
}

TEST_F(RouterAdvertise, ConnectionsAreLeftOpenForTheDaemonToClose) {
    ASSERT_EQ(0, Start("eth0"));
    std::list<Connection> kept;
    for (size_t i = 1; i <= 5; i++) {
        ASSERT_TRUE(Post(kept, 0, Change()));
        ASSERT_TRUE(WaitFor([=] { return g_changes.Count() == i; }));
    }
    for (Connection& connection : kept) {
        EXPECT_FALSE(connection.WaitPeerClosed(std::chrono::milliseconds(20)));
    }
    EXPECT_EQ(0, Stop("eth0"));
    for (Connection& connection : kept) {
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    kept.clear();
    ExpectLevel();
}

TEST_F(RouterAdvertise, DescriptorsDoNotRunOut) {
    ASSERT_EQ(0, Start("eth0"));
    const size_t before = OpenDescriptors().size();
    for (int i = 0; i < 300; i++) {
        ASSERT_TRUE(Notified());
    }
    // At most the last connection has not been looked at again.
    EXPECT_LE(OpenDescriptors().size(), before + 2);
    // A daemon that never closes does not make them run out either.
    std::list<Connection> kept;
    for (size_t i = 1; i <= 100; i++) {
        ASSERT_TRUE(Post(kept, 0, Change()));
        ASSERT_TRUE(WaitFor([=] { return g_changes.Count() == 300 + i; }));
    }
    EXPECT_LE(OpenDescriptors().size(), before + 20);
    EXPECT_EQ(0, Stop("eth0"));
    kept.clear();
    ExpectLevel();
}

TEST_F(RouterAdvertise, ArgumentsAreCheckedInOrder) {
    for (const char* name : {static_cast<const char*>(nullptr), "01234567890123456"}) {
        log_.Clear();
        EXPECT_EQ(1105, Start(name, nullptr));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart", "pchIfaceName is NULL!"));
        EXPECT_EQ(1105, Stop(name));
        EXPECT_TRUE(
            log_.Has(Kind::kError, "VimbraRouterAdvertiseStop", "pchIfaceName is invalid!"));
    }
    EXPECT_EQ(1106, Start("eth0", nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart", "pfRACallback is NULL!"));
    EXPECT_EQ(0u, daemon_.Requests().size());
}

TEST_F(RouterAdvertise, NameMayHave16Characters) {
    constexpr char kName[] = "0123456789abcdef";
    EXPECT_EQ(0, Start(kName));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Pack().Text(kName, 16).S32(3584), daemon_.Requests()[0].body);
    EXPECT_EQ(-1, Start(kName));
    EXPECT_EQ(0, Stop(kName));
}

TEST_F(RouterAdvertise, SecondStartOfAnInterfaceIsRefused) {
    ASSERT_EQ(0, Start("eth0"));
    EXPECT_EQ(-1, Start("eth0", OtherChange));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraRouterAdvertiseStart", "the interface eth0 has been start!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notified());
    EXPECT_EQ(0, Stop("eth0"));
}

TEST_F(RouterAdvertise, FifthInterfaceFindsNoSlot) {
    for (const char* name : {"eth0", "eth1", "eth2", "wlan0"}) {
        EXPECT_EQ(0, Start(name));
    }
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(3584 + static_cast<s32>(i), daemon_.Requests()[i].body.S32(16));
    }
    EXPECT_EQ(-1, Start("wlan1"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart",
                         "the interface wlan1 alloc memory failed!"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraRouterAdvertiseStart", "VimbraRouterAdvertiseStart err!"));
    EXPECT_EQ(4u, daemon_.Requests().size());
    // Once one has stopped there is room again. The stop message ends the newest listener.
    EXPECT_EQ(0, Stop("wlan0"));
    EXPECT_EQ(0, Start("wlan1"));
    for (const char* name : {"wlan1", "eth2", "eth1", "eth0"}) {
        EXPECT_EQ(0, Stop(name)) << name;
    }
    ExpectLevel();
}

TEST_F(RouterAdvertise, BeforeInitThereIsNoSlot) {
    TRouterNotifyInfo* const built = std::exchange(g_ptApiRouterNotifyInfo, nullptr);
    EXPECT_EQ(-1, Start("eth0"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart",
                         "the interface eth0 alloc memory failed!"));
    EXPECT_EQ(-1, Stop("eth0"));
    EXPECT_EQ(0u, daemon_.Requests().size());
    g_ptApiRouterNotifyInfo = built;
}

TEST_F(RouterAdvertise, StopOfAnInterfaceThatNeverRanIsRefused) {
    EXPECT_EQ(-1, Stop("eth0"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStop",
                         "the interface eth0 has been stopped!"));
    EXPECT_EQ(0u, daemon_.Requests().size());
}

TEST_F(RouterAdvertise, RefusedStartFreesTheSlot) {
    daemon_.Next(kStart, Answer::Code(22));
    EXPECT_EQ(-1, Start("eth0"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "ApicRouterAdvertiseStart", "send and recv msg error num : 22!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraRouterAdvertiseStart",
                         "ApicRouterAdvertiseStart error : -1!"));
    EXPECT_TRUE(
        log_.Has(Kind::kError, "VimbraRouterAdvertiseStart", "VimbraRouterAdvertiseStart err!"));
    EXPECT_FALSE(HasListener(kSocket));
    ExpectLevel();
    EXPECT_EQ(0, Start("eth0"));
    EXPECT_EQ(3584, daemon_.Requests()[1].body.S32(16));
    EXPECT_TRUE(Notified());
    EXPECT_EQ(0, Stop("eth0"));
}

TEST_F(RouterAdvertise, AnyOtherTypeEndsTheListener) {
    for (const u32 type : {1u, 2u, 0xffffffffu}) {
        ASSERT_EQ(0, Start("eth0"));
        EXPECT_TRUE(Notify(kSocket, type, Change()));
        EXPECT_TRUE(WaitForNoListener(kSocket));
        EXPECT_EQ(0u, g_changes.Count());
        EXPECT_EQ(-1, Stop("eth0"));
        ExpectLevel();
    }
}

TEST_F(RouterAdvertise, WrongSizeEndsTheListenerAndFreesItsSlot) {
    for (const u32 size : {467u, 469u, 0u, 0xffffffffu}) {
        log_.Clear();
        ASSERT_EQ(0, Start("eth0"));
        EXPECT_TRUE(Notify(kSocket, 0, Change(), {.size = size}));
        EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kFunction, "read message error"));
        EXPECT_TRUE(WaitForNoListener(kSocket));
        EXPECT_EQ(0u, g_changes.Count());
        // The slot is free, and no thread waits to be joined.
        EXPECT_EQ(-1, Stop("eth0"));
        EXPECT_EQ(0u, g_ptApiRouterNotifyInfo->bIsStarted);
        EXPECT_EQ(0u, g_ptApiRouterNotifyInfo->tThreadId);
        ExpectLevel();
    }
    EXPECT_EQ(0, Start("eth0"));
    EXPECT_EQ(0, Stop("eth0"));
}

TEST_F(RouterAdvertise, ShortMessageEndsTheListener) {
    const Bytes whole = Message(0, Change());
    for (const size_t length : {0, 1, 12, 479}) {
        log_.Clear();
        ASSERT_EQ(0, Start("eth0"));
        Connection connection(kSocket);
        ASSERT_TRUE(connection.Send(whole.Slice(0, length)));
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
        EXPECT_EQ(1, log_.Count(Kind::kPerror, kFunction, "read message error"));
        EXPECT_TRUE(WaitForNoListener(kSocket));
        EXPECT_EQ(-1, Stop("eth0"));
    }
    ExpectLevel();
}

TEST_F(RouterAdvertise, WatchWhoseListenerEndsDuringTheStartIsNotLeftMarked) {
    daemon_.On(kStart, Answer::Code(0).After([&](const Request&) {
        EXPECT_TRUE(Notify(kSocket, 0, Change(), {.size = 1}));
        EXPECT_TRUE(WaitForNoListener(kSocket));
    }));
    EXPECT_EQ(0, Start("eth0"));
    EXPECT_EQ(0u, g_ptApiRouterNotifyInfo->bIsStarted);
    EXPECT_EQ(-1, Stop("eth0"));
    ExpectLevel();
}

TEST_F(RouterAdvertise, MissingCallbackIsToldAndTheListenerGoesOn) {
    ASSERT_EQ(0, Start("eth0"));
    g_ptApiRouterNotifyInfo->pfRouterAdvertiseCB = nullptr;
    std::list<Connection> kept;
    EXPECT_TRUE(Post(kept, 0, Change()));
    EXPECT_TRUE(log_.WaitFor(Kind::kError, kFunction, "pfRouterAdvertiseCB is NULL!"));
    EXPECT_TRUE(HasListener(kSocket));
    EXPECT_EQ(0, Stop("eth0"));
}

TEST_F(RouterAdvertise, NewestListenerTakesTheName) {
    ASSERT_EQ(0, Start("eth0", OtherChange));
    ASSERT_EQ(0, Start("eth1", TakeChange));
    EXPECT_TRUE(Notified("eth0"));
    EXPECT_TRUE(Notified("eth1"));
    EXPECT_EQ(0, Stop("eth0"));
    // eth0's stop message has ended the newest listener, which was eth1's.
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_EQ(-1, Stop("eth1"));
    ExpectLevel();
}

TEST_F(RouterAdvertise, NameThatCannotBeBoundLeavesTheSlotToTheStop) {
    ASSERT_EQ(0, mkdir((std::string("/tmp/") + kSocket).c_str(), 0777));
    EXPECT_EQ(0, Start("eth0"));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kFunction, "accept error"));
    EXPECT_EQ(1u, g_ptApiRouterNotifyInfo->bIsStarted);
    EXPECT_EQ(-1, Start("eth0"));
    EXPECT_EQ(0, Stop("eth0"));
    EXPECT_EQ(0u, g_ptApiRouterNotifyInfo->bIsStarted);
    ExpectLevel();
}

TEST_F(RouterAdvertise, ListenerRunsUnderItsName) {
    ASSERT_EQ(0, Start("eth0"));
    const auto names = ThreadNames();
    EXPECT_EQ(1, std::count(names.begin(), names.end(), "VimbraRouterNot"));
    EXPECT_EQ(0, Stop("eth0"));
}

}  // namespace
}  // namespace vimbra::tests
