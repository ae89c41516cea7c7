// The NTP clients and the machine: the program that they ask with, the clock that they set.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
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
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

// ---- The program -------------------------------------------------------------------------------

TEST(VimbradNtpProgram, IsAskedForTheOffsetAlone) {
    Pretend(
        "chronyd",
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
    Pretend("chronyd",
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
        Pretend("chronyd", script);
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
    Pretend("chronyd", "echo 'Fatal error : no luck' >&2; exit 3");
    const Daemon daemon;
    EXPECT_EQ(EIO, Ask(kCheck, Server("127.0.0.1")));
    EXPECT_TRUE(
        daemon.WaitLog("warning: chronyd ended with exit status 3: Fatal error : no luck\n"));
}

TEST(VimbradNtpProgram, ThatDoesNotEndIsKilled) {
    Pretend("chronyd", "exec sleep 1000");
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
