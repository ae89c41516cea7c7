// The NTP clients: real servers tell the time, the application is told how far the clock is off.
// Nothing here can change the machine's clock.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/net_ntpc.h>
#include <vimbra/vimbra.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <mutex>

#include "e2e.hpp"
#include "messages.hpp"
#include "ntp_server.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr u32 kStart = 0x901;
constexpr u32 kStop = 0x902;
constexpr u32 kCheck = 0x903;
constexpr u32 kSynchronised = 1;
constexpr u32 kFailed = 2;
constexpr char kSocket[] = "ipc_ntp";
constexpr char kSocket6[] = "ipc_ntpv6";

constexpr char kServer[] = "192.0.2.2";
constexpr char kServer6[] = "fd00::2";
// On the link, and nobody has it.
constexpr char kNobody[] = "192.0.2.77";

// Microseconds. An exchange tells the offset to half of the time that it takes, which on a busy
// machine is not little.
constexpr s64 kNear = 1'000'000;

Bytes Server(const char* text) {
    const bool v6 = std::string(text).find(':') != std::string::npos;
    return Pack().Address(v6 ? 10 : 2, text);
}

TVimbraAddr Addr(const char* text) {
    TVimbraAddr address{};
    const Bytes bytes = Server(text);
    memcpy(&address, bytes.data(), sizeof(address));
    return address;
}

Bytes StartBody(const char* server, u32 interval = 60) {
    const Bytes address = Server(server);
    return Pack().U16(address.U16(0)).Add(address).U32(interval);
}

Bytes StopBody(u16 family = 2) {
    return Pack().U16(family);
}

// A report as it stands on the wire.
struct Report {
    explicit Report(const Told& told)
        : type(told.type),
          server(told.body.Slice(0, 20)),
          error(told.body.U32(20)),
          offset(static_cast<s64>(u64{told.body.U32(28)} << 32 | told.body.U32(24))),
          clockSet(told.body.U32(32)) {
        EXPECT_EQ(40u, told.size);
        EXPECT_EQ(40u, told.body.size());
        EXPECT_EQ(0u, told.body.U32(36));
    }

    u32 type;
    Bytes server;
    u32 error;
    s64 offset;
    u32 clockSet;
};

Report WaitReport(const Listener& listener, size_t number = 0) {
    return Report(listener.Wait(number + 1)[number]);
}

// What the application's callback has got.
struct Event {
    u32 event;
    TVimbraNtpcReport report;
};
std::mutex g_mutex;
std::vector<Event> g_events;

int Take(u32 event, void* report) {
    const std::lock_guard lock(g_mutex);
    g_events.push_back({event, *static_cast<const TVimbraNtpcReport*>(report)});
    return 0;
}

std::vector<Event> Events() {
    const std::lock_guard lock(g_mutex);
    return g_events;
}

Event WaitEvent(size_t number = 0) {
    EXPECT_TRUE(WaitFor([number] { return Events().size() > number; }));
    std::vector<Event> events = Events();
    events.resize(std::max(events.size(), number + 1));
    return events[number];
}

std::string TextOf(const TVimbraAddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.wSinFamily, &address.tV6Addr, text, sizeof(text));
    return text;
}

// How many clients are asking at this moment.
size_t Asking() {
    const std::string all = Shell("cat /proc/[0-9]*/cmdline 2>/dev/null | tr '\\0' ' '");
    size_t count = 0;
    for (size_t at = 0; (at = all.find("chronyd -Q", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

std::string Directories() {
    return Shell("ls -d /run/vimbrad/files.?????? 2>/dev/null || true");
}

bool NothingIsLeft() {
    return WaitFor([] { return Asking() == 0 && Directories().empty(); });
}

// A program that is run in chronyd's place.
void Pretend(const std::string& script) {
    WriteFile("/tmp/bin/chronyd", "#!/bin/sh\n" + script);
    ASSERT_EQ(0, chmod("/tmp/bin/chronyd", 0755));
    ASSERT_EQ(0, setenv("PATH", (std::string("/tmp/bin:") + getenv("PATH")).c_str(), 1));
}

class VimbradNtp : public BesideAnNtpServer {};

// ---- Reports -----------------------------------------------------------------------------------

TEST_F(VimbradNtp, ApplicationIsToldTheOffset) {
    ASSERT_EQ(0, VimbraInit());
    for (const char* server : {kServer, kServer6}) {
        const size_t number = Events().size();
        ASSERT_EQ(0, VimbraNtpcStart(Addr(server), 60, Take)) << daemon_.Log();
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
    ASSERT_EQ(0, VimbraNtpcStart(Addr(kNobody), 60, Take));
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
        EXPECT_EQ(1u, Asking());
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
    EXPECT_EQ(0, VimbraNtpcSerCheck(Addr(kServer)));
    EXPECT_EQ(0, VimbraNtpcSerCheck(Addr(kServer6)));
    EXPECT_EQ(-1, VimbraNtpcSerCheck(Addr("198.51.100.1")));
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

// ---- The program -------------------------------------------------------------------------------

TEST(VimbradNtpProgram, IsAskedForTheOffsetAlone) {
    Pretend(
        "echo \"$0 $*\" >> /tmp/asked; echo 'System clock wrong by -0.000125 seconds (ignored)'");
    // Even if it were not for what the program is told, it could not set the clock.
    ASSERT_EQ(0, prctl(PR_CAPBSET_DROP, CAP_SYS_TIME));
    const Daemon daemon({"--set-clock"});
    EXPECT_EQ(0, Ask(kCheck, Server("127.0.0.1")));
    const Listener listener(kSocket6);
    ASSERT_EQ(0, Ask(kStart, StartBody("::1")));
    EXPECT_EQ(kFailed, WaitReport(listener).type);
    constexpr char kCommand[] =
        "/tmp/bin/chronyd -Q -U -u root -t 5 pidfile /run/vimbrad/files\\.......\\/pid "
        "bindcmdaddress / cmdport 0 server ";
    EXPECT_THAT(ReadFile("/tmp/asked"),
                MatchesRegex(std::string(kCommand) + "127.0.0.1 iburst maxsamples 1\n" + kCommand +
                             "::1 iburst maxsamples 1\n"));
    EXPECT_TRUE(NothingIsLeft());
}

TEST(VimbradNtpProgram, ThatIsNotThereRefusesTheStart) {
    ASSERT_EQ(0, setenv("PATH", "/nowhere", 1));
    const Daemon daemon;
    ASSERT_EQ(0, setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1));
    EXPECT_EQ(ENOENT, Ask(kStart, StartBody("127.0.0.1")));
    EXPECT_EQ(ENOENT, Ask(kCheck, Server("::1")));
    EXPECT_TRUE(daemon.WaitLog("NTP client start: refused with 2: chronyd is missing ("));
    EXPECT_EQ("", Directories());
}

// One that could not be replaced goes on.
TEST(VimbradNtpProgram, ThatHasGoneLeavesWhatRuns) {
    Pretend(
        "touch /tmp/asking; while ! [ -e /tmp/go ]; do sleep 0.01; done;"
        "echo 'System clock wrong by 0.5 seconds (ignored)'");
    const std::string path = getenv("PATH");
    ASSERT_EQ(0, setenv("PATH", "/tmp/bin:/bin:/usr/bin", 1));
    const Daemon daemon;
    ASSERT_EQ(0, setenv("PATH", path.c_str(), 1));
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
    ASSERT_TRUE(WaitFor([] { return access("/tmp/asking", F_OK) == 0; }));
    ASSERT_EQ(0, unlink("/tmp/bin/chronyd"));
    EXPECT_EQ(ENOENT, Ask(kStart, StartBody("127.0.0.2")));
    WriteFile("/tmp/go", "");
    const Report told = WaitReport(listener);
    EXPECT_EQ(kSynchronised, told.type);
    EXPECT_EQ(Server("127.0.0.1"), told.server);
    EXPECT_EQ(500'000, told.offset);
}

TEST(VimbradNtpProgram, ThatFailsIsTold) {
    for (const char* script : {"echo 'Fatal error : no luck' >&2; exit 1",
                               "echo 'System clock wrong by 0.5 seconds (ignored)'; exit 1",
                               "echo 'System clock wrong by much'", "kill -9 $$", "exit 0"}) {
        Pretend(script);
        const Daemon daemon;
        const Listener listener(kSocket);
        ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
        const Report told = WaitReport(listener);
        EXPECT_EQ(kFailed, told.type) << script;
        EXPECT_EQ(static_cast<u32>(EIO), told.error) << script;
        EXPECT_EQ(0, told.offset) << script;
        EXPECT_EQ(EIO, Ask(kCheck, Server("::1"))) << script;
        EXPECT_TRUE(NothingIsLeft()) << script;
    }
}

TEST(VimbradNtpProgram, ThatFailsHasItsLastWordInTheLog) {
    Pretend("echo 'Fatal error : no luck' >&2; exit 3");
    const Daemon daemon;
    EXPECT_EQ(EIO, Ask(kCheck, Server("127.0.0.1")));
    EXPECT_TRUE(
        daemon.WaitLog("warning: chronyd ended with exit status 3: Fatal error : no luck\n"));
}

TEST(VimbradNtpProgram, ThatDoesNotEndIsKilled) {
    Pretend("exec sleep 1000");
    const Daemon daemon;
    const Listener listener(kSocket);
    ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
    EXPECT_EQ(ETIMEDOUT, Ask(kCheck, Server("127.0.0.1")));
    EXPECT_EQ(static_cast<u32>(ETIMEDOUT), WaitReport(listener).error);
    EXPECT_TRUE(WaitFor([] {
        return Shell("cat /proc/[0-9]*/cmdline 2>/dev/null | tr '\\0' ' '").find("sleep 1000") ==
               std::string::npos;
    }));
    EXPECT_EQ("", Directories());
}

// ---- The clock ---------------------------------------------------------------------------------

// The daemon with --set-clock, which may not set it, and whose calls that would are not carried
// out.
class VimbradNtpClock : public testing::Test {
 protected:
    void SetUp() override {
        ASSERT_EQ(0, prctl(PR_CAPBSET_DROP, CAP_SYS_TIME));
        // A sanitizer that looks for leaks cannot be traced.
        ASSERT_EQ(0, setenv("ASAN_OPTIONS", "detect_leaks=0", 1));
    }

    // The calls end with `result`, of strace's kind.
    void Run(const std::string& result) {
        const std::string calls = "adjtimex,clock_adjtime,settimeofday,clock_settime";
        std::vector<std::string> command{"strace", "-D",
                                         "-o",     "/tmp/trace",
                                         "-e",     "signal=none",
                                         "-e",     "trace=" + calls,
                                         "-e",     "inject=" + calls + ":" + result};
        for (const std::string& each : DaemonCommand({"--set-clock", "--log-level=5"})) {
            command.push_back(each);
        }
        daemon_ = std::make_unique<Program>(command, "/tmp/vimbrad.log");
        ASSERT_TRUE(WaitForListener("api_daemon")) << daemon_->Output();
        // What the kernel thinks of it, in case the trace does not hold.
        const u64 kMayDo = std::stoull(Shell("sed -n 's/^CapEff:[^0-9a-f]*//p' /proc/" +
                                             std::to_string(daemon_->Pid()) + "/status"),
                                       nullptr, 16);
        ASSERT_EQ(0u, kMayDo >> CAP_SYS_TIME & 1);
    }

    static std::string LastChange() {
        const std::string trace = ReadFile("/tmp/trace");
        return trace.substr(std::min(trace.rfind("clock_adjtime("), trace.size()));
    }

    std::unique_ptr<Program> daemon_;
};

TEST_F(VimbradNtpClock, IsSetAtOnceByALargeOffset) {
    Run("retval=0");
    for (const double skew : {3.5, -3.25}) {
        const SkewedNtpServer server(skew);
        const Listener listener(kSocket);
        ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
        const Report told = WaitReport(listener);
        EXPECT_EQ(kSynchronised, told.type);
        EXPECT_EQ(0u, told.error);
        EXPECT_EQ(1u, told.clockSet);
        EXPECT_NEAR(skew * 1e6, static_cast<double>(told.offset), kNear);
        // Microseconds count upwards, below zero too.
        s64 seconds = told.offset / 1'000'000;
        s64 microseconds = told.offset % 1'000'000;
        if (microseconds < 0) {
            --seconds;
            microseconds += 1'000'000;
        }
        EXPECT_THAT(LastChange(),
                    AllOf(HasSubstr("{modes=ADJ_SETOFFSET,"),
                          HasSubstr("time={tv_sec=" + std::to_string(seconds) +
                                    ", tv_usec=" + std::to_string(microseconds) + "}")));
        ASSERT_EQ(0, Ask(kStop, StopBody()));
    }
}

TEST_F(VimbradNtpClock, GoesToASmallOffsetLittleByLittle) {
    Run("retval=0");
    for (const double skew : {0.06, -0.06}) {
        const SkewedNtpServer server(skew);
        const Listener listener(kSocket);
        // Until an exchange was quick enough for the offset to be told as a small one.
        EXPECT_TRUE(WaitFor([&] {
            EXPECT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
            const Report told = WaitReport(listener, listener.Messages().size());
            EXPECT_EQ(0, Ask(kStop, StopBody()));
            EXPECT_EQ(1u, told.clockSet);
            const std::string offset = std::to_string(told.offset);
            const bool isNear = std::abs(skew * 1e6 - static_cast<double>(told.offset)) < 6e4;
            if (isNear) {
                EXPECT_THAT(LastChange(),
                            HasSubstr("{modes=ADJ_OFFSET_SINGLESHOT, offset=" + offset + ","));
                EXPECT_THAT(LastChange(), Not(HasSubstr("ADJ_SETOFFSET")));
            }
            return isNear;
        }));
    }
}

TEST_F(VimbradNtpClock, ThatMayNotBeSetIsTold) {
    Run("error=EPERM");
    for (const double skew : {3.5, 0.06}) {
        const SkewedNtpServer server(skew);
        const Listener listener(kSocket);
        ASSERT_EQ(0, Ask(kStart, StartBody("127.0.0.1")));
        const Report told = WaitReport(listener);
        EXPECT_EQ(kFailed, told.type);
        EXPECT_EQ(static_cast<u32>(EPERM), told.error);
        EXPECT_EQ(0, told.offset);
        EXPECT_EQ(0u, told.clockSet);
        ASSERT_EQ(0, Ask(kStop, StopBody()));
    }
}

TEST_F(VimbradNtpClock, IsNotTouchedByACheck) {
    Run("retval=0");
    const SkewedNtpServer server(3.5);
    EXPECT_EQ(0, Ask(kCheck, Server("127.0.0.1")));
    EXPECT_EQ("", ReadFile("/tmp/trace"));
}

}  // namespace
}  // namespace vimbra::tests
