// The NTP clients: real servers tell the time, the application is told how far the clock is off.
// Nothing here can change the machine's clock.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/net_ntpc.h>
#include <vimbra/ntpc.h>
#include <vimbra/ntpc_report.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "e2e.hpp"
#include "messages.hpp"
#include "ntp_client.hpp"
#include "ntp_server.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

namespace {

class VimbradNtp : public BesideAnNtpServer {};

// ---- Reports -----------------------------------------------------------------------------------

TEST_F(VimbradNtp, ApplicationIsToldTheOffset) {
    ASSERT_EQ(0, VimbraInit());
    for (const char* server : {kServer, kServer6}) {
        const size_t number = Events().size();
        ASSERT_EQ(0, VimbraNtpcStart(Address(server), 60, Take)) << daemon_.Log();
        const Event told = WaitEvent(number);
        EXPECT_EQ(30001u, told.event);
        EXPECT_EQ(server, TextOf(told.report.tServerIp));
        EXPECT_EQ(0u, told.report.dwError);
        EXPECT_THAT(told.report.llOffset, AllOf(Ge(-kNear), Le(kNear)));
        EXPECT_EQ(0u, told.report.bClockSet);
    }
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_EQ(0, VimbraNtpcStop(10));
    EXPECT_TRUE(NothingIsLeft());
    EXPECT_EQ(2u, Events().size());
}

TEST_F(VimbradNtp, LegacyApplicationIsToldTheOffset) {
    ASSERT_EQ(0, VimbraInit());
    EXPECT_EQ(0, NetCheckNtpcServer(inet_addr(kServer)));
    ASSERT_EQ(0, VimBraNtpcStart(inet_addr(kServer), 0, Take));
    EXPECT_EQ(30001u, WaitEvent().event);
    EXPECT_EQ(0, VimBraNtpcStop());
}

TEST_F(VimbradNtp, ApplicationIsToldThatTheServerDoesNotAnswer) {
    ASSERT_EQ(0, VimbraInit());
    ASSERT_EQ(0, VimbraNtpcStart(Address(kNobody), 60, Take));
    const Event told = WaitEvent();
    EXPECT_EQ(30002u, told.event);
    EXPECT_EQ(kNobody, TextOf(told.report.tServerIp));
    EXPECT_EQ(static_cast<u32>(ETIMEDOUT), told.report.dwError);
    EXPECT_EQ(0, told.report.llOffset);
    EXPECT_EQ(0u, told.report.bClockSet);
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

// Positive is behind, on any way to the server.
TEST_F(VimbradNtp, OffsetIsWhatTheClockLacks) {
    for (const double skew : {3.5, -2.25, 86400.0 * 365 * 20, -86400.0 * 365 * 20}) {
        const SkewedNtpServer server(skew);
        const Listener listener(kSocket);
        ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
        const Report told = WaitReport(listener);
        EXPECT_EQ(kSynchronised, told.type);
        EXPECT_EQ(Server("127.0.0.1"), told.server);
        EXPECT_NEAR(skew * 1e6, static_cast<double>(told.offset), kNear);
        EXPECT_EQ(0u, told.clockSet);
        ASSERT_EQ(0, Ask(kStop, StopBody()));
    }
}

TEST_F(VimbradNtp, ThatThereIsNoWayIsToldAtOnce) {
    const Listener listener(kSocket);
    const Listener listener6(kSocket6);
    ASSERT_EQ(0, Ask(kStart, StartBody("198.51.100.1")));
    ASSERT_EQ(0, Ask(kStart, StartBody("2001:db8::1")));
    for (const Listener* each : {&listener, &listener6}) {
        const Report told = WaitReport(*each);
        EXPECT_EQ(kFailed, told.type);
        EXPECT_EQ(static_cast<u32>(ENETUNREACH), told.error);
    }
    EXPECT_EQ(Server("2001:db8::1"), WaitReport(listener6).server);
    EXPECT_EQ("", Directories());
    EXPECT_EQ(std::string::npos, daemon_.Log().find("chronyd"));
}

TEST_F(VimbradNtp, ServerIsToldWithoutWhatItsFamilyDoesNotUse) {
    const Listener listener(kSocket);
    Bytes body = StartBody(kServer);
    for (size_t at : {4u, 5u, 10u, 21u}) {
        body[at] = 0xff;
    }
    ASSERT_EQ(0, Ask(kStart, body));
    EXPECT_EQ(Server(kServer), WaitReport(listener).server);
}

TEST_F(VimbradNtp, BothFamiliesAreIndependent) {
    const Listener listener(kSocket);
    const Listener listener6(kSocket6);
    ASSERT_EQ(0, Ask(kStart, StartBody(kNobody)));
    ASSERT_EQ(0, Ask(kStart, StartBody(kServer6)));
    EXPECT_EQ(kSynchronised, WaitReport(listener6).type);
    ASSERT_EQ(0, Ask(kStop, StopBody(10)));
    EXPECT_EQ(kFailed, WaitReport(listener).type);
    EXPECT_EQ(1u, listener6.Messages().size());
}

// ---- Start and stop ----------------------------------------------------------------------------

TEST_F(VimbradNtp, StartTakesThePlaceOfWhatRuns) {
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, StartBody(kNobody)));
    ASSERT_EQ(0, Ask(kStart, StartBody(kNobody)));
    ASSERT_EQ(0, Ask(kStart, StartBody(kServer)));
    const Report told = WaitReport(listener);
    EXPECT_EQ(kSynchronised, told.type);
    EXPECT_EQ(Server(kServer), told.server);
    // Those before would have told their failure by now.
    EXPECT_EQ(ETIMEDOUT, Ask(kCheck, Server(kNobody)));
    EXPECT_EQ(1u, listener.Messages().size());
    EXPECT_TRUE(NothingIsLeft());
}

TEST_F(VimbradNtp, StopEndsTheProgram) {
    const Listener listener(kSocket);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, Ask(kStart, StartBody(kNobody)));
        // An exec has an instant in which the program is in place and its arguments are not.
        EXPECT_TRUE(WaitFor([] { return Asking() == 1; }));
        EXPECT_EQ(0, Ask(kStop, StopBody()));
        EXPECT_TRUE(NothingIsLeft());
    }
    EXPECT_EQ(ETIMEDOUT, Ask(kCheck, Server(kNobody)));
    EXPECT_THAT(listener.Messages(), IsEmpty());
}

TEST_F(VimbradNtp, ClientGoesOnWhenNobodyListens) {
    ASSERT_EQ(0, Ask(kStart, StartBody(kServer)));
    EXPECT_TRUE(daemon_.WaitLog("/tmp/ipc_ntp: no such file or directory: 1 messages dropped"));
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, StartBody(kServer)));
    EXPECT_EQ(kSynchronised, WaitReport(listener).type);
}

TEST_F(VimbradNtp, EndOfTheDaemonEndsClientsAndChecks) {
    ASSERT_EQ(0, Ask(kStart, StartBody(kNobody)));
    ASSERT_EQ(0, Ask(kStart, StartBody("fd00::77")));
    Connection checking("api_daemon");
    ASSERT_TRUE(checking.Send(Message(kCheck, Server(kNobody))));
    ASSERT_TRUE(WaitFor([] { return Asking() == 3; }));
    EXPECT_EQ(0, daemon_.Stop());
    EXPECT_EQ(0u, Asking());
    EXPECT_EQ("", Directories());
    EXPECT_TRUE(checking.WaitPeerClosed());
}

TEST_F(VimbradNtp, Refusals) {
    const auto start = [](u16 family, const Bytes& server) {
        return Ask(kStart, Pack().U16(family).Add(server).U32(60));
    };
    EXPECT_EQ(EINVAL, start(0, Server(kServer)));
    EXPECT_EQ(EINVAL, start(11, Server(kServer)));
    EXPECT_EQ(EINVAL, start(10, Server(kServer)));
    EXPECT_EQ(EINVAL, start(2, Server(kServer6)));
    EXPECT_EQ(EINVAL, start(2, Pack().Zeros(20)));
    for (const char* nobody : {"0.0.0.0", "::", "224.0.1.1", "ff02::101"}) {
        EXPECT_EQ(EINVAL, Ask(kStart, StartBody(nobody))) << nobody;
        EXPECT_EQ(EINVAL, Ask(kCheck, Server(nobody))) << nobody;
    }
    EXPECT_EQ(EINVAL, Ask(kCheck, Pack().Zeros(20)));
    EXPECT_EQ(EINVAL, Ask(kStart, Pack().Zeros(25)));
    EXPECT_EQ(EINVAL, Ask(kStop, StopBody(0)));
    EXPECT_EQ(EINVAL, Ask(kStop, StopBody(11)));
    EXPECT_EQ(0, Ask(kStop, StopBody(2)));
    EXPECT_EQ(0, Ask(kStop, StopBody(10)));
    EXPECT_EQ(std::string::npos, daemon_.Log().find("chronyd"));
}

// ---- Checks ------------------------------------------------------------------------------------

TEST_F(VimbradNtp, Check) {
    EXPECT_EQ(0, VimbraNtpcSerCheck(Address(kServer)));
    EXPECT_EQ(0, VimbraNtpcSerCheck(Address(kServer6)));
    EXPECT_EQ(-1, VimbraNtpcSerCheck(Address("198.51.100.1")));
    EXPECT_EQ(0, Ask(kCheck, Server(kServer)));
    EXPECT_EQ(ENETUNREACH, Ask(kCheck, Server("198.51.100.1")));
    EXPECT_EQ(ENETUNREACH, Ask(kCheck, Server("2001:db8::1")));
    EXPECT_EQ(EACCES, Ask(kCheck, Server("192.0.2.255")));
    EXPECT_EQ(EINVAL, Ask(kCheck, Server("fe80::2")));
    EXPECT_EQ(ETIMEDOUT, Ask(kCheck, Server(kNobody)));
    EXPECT_TRUE(NothingIsLeft());
}

// A host without a server, and one that has no time to tell.
TEST_F(VimbradNtp, CheckOfAHostThatTellsNoTime) {
    EXPECT_EQ(ETIMEDOUT, Ask(kCheck, Server("192.0.2.1")));
    const Program server({"chronyd", "-d", "-x", "-u", "root", "allow all", "cmdport 0",
                          "bindcmdaddress /", "pidfile /tmp/timeless.pid"},
                         "/tmp/timeless.log");
    ASSERT_TRUE(WaitFor([] {
        return Shell("cat /proc/net/udp").find("00000000:007B") != std::string::npos;
    })) << server.Output();
    EXPECT_EQ(ETIMEDOUT, Ask(kCheck, Server("192.0.2.1")));
}

TEST_F(VimbradNtp, ManyChecksAtOnce) {
    std::vector<std::unique_ptr<Connection>> checks;
    for (int i = 0; i < 20; ++i) {
        checks.push_back(std::make_unique<Connection>("api_daemon"));
        ASSERT_TRUE(checks.back()->Send(Message(kCheck, Server(i % 2 == 0 ? kServer : kNobody))));
    }
    // One that does not wait for its answer.
    checks[1]->Close();
    for (size_t i = 0; i < checks.size(); ++i) {
        if (i != 1) {
            EXPECT_EQ(i % 2 == 0 ? 0 : ETIMEDOUT, checks[i]->Receive(16).S32(12)) << i;
        }
    }
    EXPECT_TRUE(NothingIsLeft());
}

// ---- The interval ------------------------------------------------------------------------------

class VimbradNtpSlow : public VimbradNtp {};

// The least interval is 16 seconds.
TEST_F(VimbradNtpSlow, ServerIsAskedOnceInAnInterval) {
    using Clock = std::chrono::steady_clock;
    const SkewedNtpServer server(3.5);
    const Listener listener(kSocket);
    const Clock::time_point before = Clock::now();
    ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1", 1)));
    ASSERT_TRUE(WaitFor([&] { return listener.Messages().size() == 3; }, std::chrono::seconds(80)));
    const std::chrono::duration<double> passed = Clock::now() - before;
    EXPECT_GE(passed.count(), 2 * 16.0);
    EXPECT_LE(passed.count(), 3 * 16.0);
    EXPECT_EQ(3, server.Asked());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(3.5e6, static_cast<double>(WaitReport(listener, i).offset), kNear);
    }
    ASSERT_EQ(0, Ask(kStop, StopBody()));
    EXPECT_TRUE(NothingIsLeft());
}

// A server that comes late is found: a failure shortens a long interval.
TEST_F(VimbradNtpSlow, FailureShortensTheInterval) {
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, StartBody("198.51.100.1", 4'000'000'000)));
    EXPECT_EQ(kFailed, WaitReport(listener).type);
    host_.Shell("ip address add 198.51.100.1/24 dev eth0");
    Shell("ip route add 198.51.100.0/24 dev eth0");
    ASSERT_TRUE(WaitFor([&] { return listener.Messages().size() == 2; }, std::chrono::seconds(90)));
    EXPECT_EQ(kSynchronised, WaitReport(listener, 1).type);
}

}  // namespace
}  // namespace vimbra::tests
