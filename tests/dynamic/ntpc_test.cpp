// NTP client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/log.h>
#include <vimbra/net_ntpc.h>
#include <vimbra/ntpc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "no_threads.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr u32 kStart = 0x901;
constexpr u32 kStop = 0x902;
constexpr u32 kCheck = 0x903;
constexpr char kSocket[] = "ipc_ntp";
constexpr char kSocket6[] = "ipc_ntpv6";
constexpr char kThread[] = "NtpcCBThread";
constexpr char kThread6[] = "NtpcCBThreadV6";
constexpr size_t kMost = VIMBRA_NTPC_REPORT_MAX;

struct Event {
    u32 event;
    Bytes report;
    std::string thread;
};

// Never destroyed: listeners may outlive main().
Recorder<Event>& g_events = *new Recorder<Event>;

int Take(u32 event, void* report) {
    g_events.Add({event, Bytes(std::span(static_cast<const u8*>(report), kMost)), ThisThread()});
    return -1;
}

int Never(u32, void*) {
    ADD_FAILURE() << "the wrong callback";
    return 0;
}

TVimbraAddr Server4() {
    return Address("192.0.2.123");
}

TVimbraAddr Server6() {
    return Address("2001:db8::123");
}

Bytes StartBody4(u32 interval) {
    return Pack().U16(2).Address(2, "192.0.2.123").U32(interval);
}

s32 Start(u16 family, VimBraNtpcSyncTimeCallBack callback = Take) {
    return VimbraNtpcStart(family == 2 ? Server4() : Server6(), 60, callback);
}

std::vector<std::string> Started() {
    std::vector<std::string> started;
    for (const TNtpcInfo* info = g_ptApiNtpCInfo; info != nullptr; info = info->ptNext) {
        started.push_back(std::to_string(info->wSinFamiy) + "=" +
                          std::to_string(__atomic_load_n(&info->bNtpcStarted, __ATOMIC_ACQUIRE)));
    }
    return started;
}

int Semaphore() {
    return semget(7783, 1, 0);
}

int SemaphoreValue() {
    return semctl(Semaphore(), 0, GETVAL);
}

using Ntpc = Prepared;

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

// ---- The semaphore -----------------------------------------------------------------------------

TEST_F(Ntpc, InitMakesTheSemaphoreAndTwoClients) {
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0"));
    semid_ds set = {};
    ASSERT_EQ(0, semctl(Semaphore(), 0, IPC_STAT, &set));
    EXPECT_EQ(0666, set.sem_perm.mode & 0777);
    EXPECT_EQ(1u, set.sem_nsems);
    EXPECT_EQ(1, SemaphoreValue());
}

TEST_F(Ntpc, StartWaitsForTheSemaphore) {
    sembuf take = {0, -1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &take, 1));
    std::atomic<bool> started = false;
    std::thread starter([&] {
        EXPECT_EQ(0, Start(2));
        started = true;
    });
    EXPECT_TRUE(WaitFor([] { return semctl(Semaphore(), 0, GETNCNT) == 1; }));
    EXPECT_FALSE(started);
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(0u, daemon_.Connections());
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &give, 1));
    starter.join();
    EXPECT_EQ(1, SemaphoreValue());
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, SignalDoesNotLetAStartPass) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, nullptr));
    sembuf take = {0, -1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &take, 1));
    std::thread starter([] { EXPECT_EQ(0, Start(2)); });
    for (int i = 1; i <= 3; i++) {
        EXPECT_TRUE(WaitFor([] { return semctl(Semaphore(), 0, GETNCNT) == 1; }));
        pthread_kill(starter.native_handle(), SIGUSR2);
        EXPECT_TRUE(WaitFor(
            [&] { return log_.Count(Kind::kError, "semaphore_p", "semaphore_p error") == i; }));
    }
    EXPECT_EQ(0u, daemon_.Connections());
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &give, 1));
    starter.join();
    EXPECT_EQ(1, SemaphoreValue());
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, SemaphoreStaysTakenWithoutThread) {
    const auto descriptors = OpenDescriptors();
    {
        const NoThreads none;
        EXPECT_EQ(-1, Start(2, Never));
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStart", "create ntpc callback thread failed!"));
    EXPECT_EQ(0, SemaphoreValue());
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(descriptors, OpenDescriptors());
    // The lock is free.
    EXPECT_EQ(0, VimbraNtpcStop(2));
    // A start waits, until somebody else gives the semaphore back.
    std::thread starter([] { EXPECT_EQ(0, Start(2)); });
    EXPECT_TRUE(WaitFor([] { return semctl(Semaphore(), 0, GETNCNT) == 1; }));
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &give, 1));
    starter.join();
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, ListenerThatCannotBindLetsTheStarterGoOn) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_ntp", 0700));
    const size_t threads = Threads();
    EXPECT_EQ(0, Start(2));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kThread, "accept error"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(1, log_.Count(Kind::kPerror, kThread, "accept error"));
    EXPECT_EQ(1, SemaphoreValue());
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStop", "ntpc ThreadKill error!"));
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

// ---- Reports -----------------------------------------------------------------------------------

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

// Want of descriptors passes, and is waited out.
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
    Connection waiting(kSocket);
    ASSERT_TRUE(waiting.Connected());
    waiting.Send(Message(2, {}));
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const auto begin = std::chrono::steady_clock::now();
    gate.Open();
    EXPECT_TRUE(WaitFor([&] { return log_.Count(Kind::kPerror, kThread, "accept error") >= 3; }));
    EXPECT_LE(std::chrono::milliseconds(300), std::chrono::steady_clock::now() - begin);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_TRUE(waiting.WaitPeerClosed());
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    EXPECT_EQ(0, VimbraNtpcStop(2));
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
