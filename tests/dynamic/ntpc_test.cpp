// NTP client: start, stop, a server's test, the legacy calls.
#include "ntpc.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/log.h>
#include <vimbra/net_ntpc.h>
#include <vimbra/ntpc.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;

namespace {

// ---- Start -------------------------------------------------------------------------------------

TEST_F(Ntpc, StartAsksTheDaemonOnceTheListenerStands) {
    bool listening = false;
    daemon_.On(kStart,
               Answer::Code(0).After([&](const Request&) { listening = HasListener(kSocket); }));
    EXPECT_EQ(0, VimbraNtpcStart(Server4(), 0xfffffffe, Take));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, StartBody4(0xfffffffe)), daemon_.Requests()[0].raw);
    EXPECT_EQ(26u, daemon_.Requests()[0].size);
    EXPECT_EQ(1u, daemon_.Requests()[0].reads);
    EXPECT_TRUE(listening);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=0"));
    EXPECT_THAT(ThreadNames(), Contains(ThreadOf("VimbraNtpcCBThread")));
    EXPECT_EQ(1, SemaphoreValue());
    // Only the callback, the thread and the flag are kept.
    EXPECT_EQ(Bytes(Pack().Zeros(20)), AsBytes(g_ptApiNtpCInfo->tServerIp));
    EXPECT_EQ(0u, g_ptApiNtpCInfo->m_dwSyncTimeInterval);
    EXPECT_EQ(Take, g_ptApiNtpCInfo->pfNtpcNotifyCallBack);
    EXPECT_NE(0u, g_ptApiNtpCInfo->tNtpcThreadID);
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, Ipv6IsIndependent) {
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, Start(10));
    EXPECT_EQ(Message(kStart, Pack().U16(10).Address(10, "2001:db8::123").U32(60)),
              daemon_.Requests()[1].raw);
    EXPECT_TRUE(HasListener(kSocket6));
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_TRUE(Notify(kSocket6, 1, {1, 2, 3}));
    EXPECT_EQ(ThreadOf("VimbraNtpcCBThreadV6"), g_events.Events().at(0).thread);
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=1"));
    EXPECT_EQ(0, VimbraNtpcStop(10));
    EXPECT_EQ(Message(kStop, Pack().U16(10)), daemon_.Requests(kStop)[1].raw);
}

TEST_F(Ntpc, NullCallbackComesFirst) {
    EXPECT_EQ(1106, VimbraNtpcStart(TVimbraAddr{}, 1, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStart", "the ntpc callback function is null!"));
    EXPECT_EQ(1, log_.Count(Kind::kError));
    // Before any lock: a start that hangs does not hold it up.
    const Gate gate;
    daemon_.On(kStart, Answer::Code(0).Behind(gate));
    std::thread starter([] { EXPECT_EQ(0, Start(2)); });
    EXPECT_TRUE(daemon_.WaitRequests(1));
    EXPECT_EQ(1106, VimbraNtpcStart(Server4(), 1, nullptr));
    gate.Open();
    starter.join();
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, UnknownFamilyIsRefusedInSilenceToo) {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    TVimbraAddr server = {};
    server.wSinFamily = 3;
    log_.Clear();
    EXPECT_EQ(-1, VimbraNtpcStart(server, 1, [](u32, void*) { return 0; }));
    EXPECT_EQ(-1, VimbraNtpcStop(3));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(Ntpc, UnknownFamilyIsRefused) {
    for (const int family : {0, 7, 11, 65535}) {
        TVimbraAddr server = {};
        server.wSinFamily = static_cast<u16>(family);
        EXPECT_EQ(-1, VimbraNtpcStart(server, 1, Take));
        EXPECT_EQ(-1, VimbraNtpcStop(static_cast<u16>(family)));
        EXPECT_EQ(2, log_.Count(Kind::kError, "FamilyMapNtpcInfo",
                                "the sinfamily " + std::to_string(family) + " is invalid!"));
    }
    EXPECT_EQ(4, log_.Count(Kind::kError, "VimbraNtpcStart", "FamilyMapNtpcInfo error!"));
    EXPECT_EQ(4, log_.Count(Kind::kError, "VimbraNtpcStop", "FamilyMapNtpcInfo error!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST(NtpcAlone, WithoutInitNothingStarts) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(nullptr, g_ptApiNtpCInfo);
    EXPECT_EQ(-1, Start(2));
    EXPECT_EQ(-1, VimbraNtpcStop(10));
    EXPECT_EQ(2, log.Count(Kind::kError, "FamilyMapNtpcInfo", "the vimbra is not init!"));
    EXPECT_EQ(0u, daemon.Connections());
}

TEST_F(Ntpc, Ipv4ServersAreChecked) {
    const size_t threads = Threads();
    for (const char* bad : {"0.0.0.0", "0.1.2.3", "127.0.0.1", "240.0.0.1", "255.255.255.255"}) {
        EXPECT_EQ(-1, VimbraNtpcStart(Address(bad), 1, Never));
    }
    EXPECT_EQ(5, log_.Count(Kind::kError, "VimbraNtpcStart", "tServerIp ip is invaild"));
    EXPECT_EQ(5, log_.Count(Kind::kError));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(1, SemaphoreValue());
    for (const char* good : {"1.0.0.0", "126.1.1.1", "191.255.255.255", "223.1.1.1", "224.0.1.1"}) {
        EXPECT_EQ(0, VimbraNtpcStart(Address(good), 1, Take)) << good;
        EXPECT_EQ(0, VimbraNtpcStop(2));
    }
}

TEST_F(Ntpc, Ipv6ServersAreNot) {
    for (const char* any : {"::", "::1", "ff02::1"}) {
        EXPECT_EQ(0, VimbraNtpcStart(Address(any), 1, Take));
        EXPECT_EQ(0, VimbraNtpcStop(10));
    }
}

TEST_F(Ntpc, SecondStartIsRefusedAndTheClientGoesOn) {
    EXPECT_EQ(0, Start(2));
    // Before the address is looked at.
    EXPECT_EQ(-1, VimbraNtpcStart(Address("0.0.0.0"), 1, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStart", "ntpc-Client is already started"));
    EXPECT_EQ(1, log_.Count(Kind::kError));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, RefusedStartLeavesNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    daemon_.On(kStart, Answer::Code(110));
    for (const u16 family : {2, 10}) {
        EXPECT_EQ(-1, Start(family, Never));
        EXPECT_FALSE(HasListener(family == 2 ? kSocket : kSocket6));
    }
    EXPECT_EQ(2,
              log_.Count(Kind::kError, "ApicNtpcStart", "send and recv msg error, nErrid : 110!"));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraNtpcStart", "ntpc client start error!"));
    EXPECT_EQ(4, log_.Count(Kind::kError));
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(1, SemaphoreValue());
    daemon_.On(kStart, Answer::Code(0));
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST(NtpcAlone, WithoutDaemonEverythingFails) {
    Capture log;
    ASSERT_EQ(0, VimbraInit());
    EXPECT_EQ(-1, Start(2, Never));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicNtpcStart", "send and recv msg error, nRet : -1!"));
    EXPECT_EQ(-1, VimbraNtpcSerCheck(Server4()));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicNtpcSerCheck", "send and recv msg error, nRet : -1!"));
    // The lock is free again.
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

// ---- Stop --------------------------------------------------------------------------------------

TEST_F(Ntpc, StopAsksTheDaemonAndEndsTheListener) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, VimbraNtpcStop(2));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Pack().U16(2)), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0u, g_ptApiNtpCInfo->tNtpcThreadID);
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraNtpcStop", "ntpc-Client is already stoped"));
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Ntpc, RefusedStopChangesNothing) {
    EXPECT_EQ(0, Start(2));
    daemon_.Next(kStop, Answer::Code(9));
    EXPECT_EQ(-1, VimbraNtpcStop(2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicNtpcStop", "send and recv msg error:9!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStop", "ntpc client stop error!"));
    EXPECT_THAT(Started(), ElementsAre("2=1", "10=0"));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u));
    daemon_.Next(kStop, Answer::Raw(Pack().U32(0).U32(4).U32(0).U8(1)));
    EXPECT_EQ(-1, VimbraNtpcStop(2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicNtpcStop", "send and recv msg error:13!"));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, StopWaitsForARunningCallback) {
    const Gate gate;
    g_events.InCallback([&] { gate.Pass(); });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, {}, {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    std::atomic<int> stopped = 0;
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 2; i++) {
        stoppers.emplace_back([&] {
            EXPECT_EQ(0, VimbraNtpcStop(2));
            stopped++;
        });
    }
    EXPECT_TRUE(WaitForNoListener(kSocket));
    EXPECT_EQ(0, stopped);
    gate.Open();
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }
    EXPECT_EQ(1u, daemon_.Requests(kStop).size());
    EXPECT_EQ(1, log_.Count(Kind::kPrint, "VimbraNtpcStop", "ntpc-Client is already stoped"));
}

TEST_F(Ntpc, CallbackMayStopItsClient) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    g_events.InCallback([] { EXPECT_EQ(0, VimbraNtpcStop(2)); });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0"));
    EXPECT_EQ(0, Start(2));
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, CallbackMayRestartItsClient) {
    const size_t threads = Threads();
    std::atomic<int> restarts = 0;
    g_events.InCallback([&] {
        if (restarts++ == 0) {
            EXPECT_EQ(0, VimbraNtpcStop(2));
            EXPECT_EQ(0, Start(2));
        }
    });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_TRUE(Notify(kSocket, 2, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
}

// A callback in a call and the thread that waits for the callback do not wait for each other.
TEST_F(Ntpc, CallbackMayCallWhileItsClientIsStopped) {
    const Gate gate;
    g_events.InCallback([&] {
        gate.Pass();
        EXPECT_EQ(0, VimbraNtpcStop(2));
        EXPECT_EQ(0, Start(10));
        EXPECT_EQ(0, VimbraNtpcStop(10));
    });
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(Notify(kSocket, 1, {}, {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    std::thread stopper([&] { EXPECT_EQ(0, VimbraNtpcStop(2)); });
    EXPECT_TRUE(WaitForNoListener(kSocket));
    gate.Open();
    stopper.join();
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0"));
    EXPECT_EQ(1u, g_events.Count());
}

TEST_F(Ntpc, StopCutsAListenerThatReads) {
    for (const Bytes& sent : {Bytes(), Bytes(Pack().U32(1)), Bytes(Pack().U32(1).U32(8).U32(0))}) {
        const size_t threads = Threads();
        const auto descriptors = OpenDescriptors();
        EXPECT_EQ(0, Start(2));
        {
            Connection silent(kSocket);
            ASSERT_TRUE(silent.Connected());
            ASSERT_TRUE(
                WaitFor([&] { return OpenDescriptors().size() == descriptors.size() + 2; }));
            if (sent.size() == 12) {
                // The head alone: the body is waited for.
                silent.Send(sent);
                EXPECT_TRUE(silent.WaitRead());
            }
            EXPECT_EQ(0, VimbraNtpcStop(2));
            EXPECT_TRUE(silent.WaitPeerClosed());
        }
        EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
        EXPECT_EQ(descriptors, OpenDescriptors());
    }
}

// ---- Testing a server --------------------------------------------------------------------------

TEST_F(Ntpc, CheckAsksTheDaemon) {
    EXPECT_EQ(0, VimbraNtpcSerCheck(Server4()));
    EXPECT_EQ(0, VimbraNtpcSerCheck(Server6()));
    // No address is refused here.
    EXPECT_EQ(0, VimbraNtpcSerCheck(Address("0.0.0.0")));
    ASSERT_EQ(3u, daemon_.Requests().size());
    EXPECT_EQ(Message(kCheck, Pack().Address(2, "192.0.2.123")), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kCheck, Pack().Address(10, "2001:db8::123")), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_FALSE(HasListener(kSocket));
}

TEST_F(Ntpc, CheckFailsWithItsReasons) {
    for (const int family : {0, 11, 65535}) {
        TVimbraAddr server = {};
        server.wSinFamily = static_cast<u16>(family);
        EXPECT_EQ(-1, VimbraNtpcSerCheck(server));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcSerCheck",
                             "sinFamily  " + std::to_string(family) + " is not support !"));
    }
    EXPECT_EQ(0u, daemon_.Connections());
    daemon_.On(kCheck, Answer::Code(2));
    EXPECT_EQ(-1, VimbraNtpcSerCheck(Server4()));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicNtpcSerCheck", "send and recv msg error, nErrid : 2!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcSerCheck", "ntpc check error!"));
}

// ---- Legacy ------------------------------------------------------------------------------------

TEST_F(Ntpc, LegacyNamesForward) {
    EXPECT_EQ(0, VimBraNtpcStart(Word("192.0.2.123"), 5, Take));
    EXPECT_EQ(Message(kStart, StartBody4(5)), daemon_.Requests()[0].raw);
    EXPECT_TRUE(Notify(kSocket, 1, {}));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimBraNtpcStop());
    EXPECT_EQ(Message(kStop, Pack().U16(2)), daemon_.Requests()[1].raw);
    EXPECT_EQ(0, NetCheckNtpcServer(Word("192.0.2.123")));
    EXPECT_EQ(Message(kCheck, Pack().Address(2, "192.0.2.123")), daemon_.Requests()[2].raw);
    EXPECT_EQ(1106, VimBraNtpcStart(0, 5, nullptr));
    EXPECT_EQ(-1, VimBraNtpcStart(Word("127.0.0.1"), 5, Take));
}

}  // namespace
}  // namespace vimbra::tests
