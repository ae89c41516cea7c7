// Running a program and waiting for it: VimbraExecShellProcess.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/log.h>
#include <vimbra/process.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

#include "command.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

bool g_waitFails = false;

}  // namespace

// Found by the library before the C library's.
extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
    if (g_waitFails) {
        errno = ECHILD;
        return -1;
    }
    return wait4(pid, status, options, nullptr);
}

namespace {

TEST(ExecShellProcess, ReturnsTheExitCode) {
    Capture log;
    for (int code : {0, 1, 42, 255}) {
        s32 pid = 0;
        const std::string script = "echo $$ > /tmp/pid; exit " + std::to_string(code);
        EXPECT_EQ(code, RunShell(script.c_str(), &pid));
        EXPECT_EQ(std::to_string(pid) + "\n", ReadFile("/tmp/pid"));
        EXPECT_EQ(-1, kill(pid, 0));  // It was waited for.
    }
    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(3, RunShell("exit 3", nullptr));
}

TEST(ExecShellProcess, ASignalledProgramHasCode0) {
    EXPECT_EQ(0, RunShell("kill -9 $$"));
}

TEST(ExecShellProcess, TheOutputGoesWhereThisProcessWrites) {
    Capture log;
    EXPECT_EQ(0, RunShell("echo out of the child"));
    EXPECT_TRUE(log.Has(Kind::kOther, kAny, "out of the child", Where::kStdout));
}

TEST(ExecShellProcess, AMissingProgramIsToldWhileThisProcessGoesOn) {
    Capture log;
    const auto before = OpenDescriptors();
    s32 pid = 0;
    EXPECT_EQ(255, VimbraExecShellProcess("/no/such/program", Argv({"program"}).Get(), &pid));
    EXPECT_TRUE(log.Has(Kind::kPerror, "VimbraExecShellProcess", "exec error:"));
    ASSERT_EQ(1, log.Count(Kind::kPerror));
    const LogLine line = log.Syslog()[0];
    EXPECT_EQ(ENOENT, line.errnoValue);
    EXPECT_EQ(strerror(ENOENT), line.errnoText);
    EXPECT_EQ(pid, line.pid);
    EXPECT_NE(getpid(), line.pid);
    EXPECT_EQ(before, OpenDescriptors());
    // The log still works, in both places.
    VimbraLogError("[VIMBRA_ERR]:PID[%d]:[%s](%d): after", getpid(), "Test", 1);
    EXPECT_TRUE(log.Has(Kind::kError, "Test", "after"));
}

TEST(ExecShellProcess, AProgramThatMayNotBeRun) {
    Capture log;
    WriteFile("/tmp/program", "#!/bin/sh\n");
    EXPECT_EQ(255, VimbraExecShellProcess("/tmp/program", Argv({"program"}).Get(), nullptr));
    EXPECT_EQ(EACCES, log.Syslog().at(0).errnoValue);
}

TEST(ExecShellProcess, AMissingProgramIsNotToldAtASilentLevel) {
    Capture log;
    VimbraDebugLevelSet(VIMBRA_LEVEL_ALART);
    EXPECT_EQ(255, VimbraExecShellProcess("/no/such/program", Argv({"program"}).Get(), nullptr));
    EXPECT_TRUE(log.IsSilent());
}

TEST(ExecShellProcess, AFailedChildRunsNoExitHandlers) {
    Capture log;
    // Where a child of any kind would be seen.
    static int* counter;
    counter = static_cast<int*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(counter));
    atexit([] { ++*counter; });
    printf("pending");  // Must come out once.
    EXPECT_EQ(255, VimbraExecShellProcess("/no/such/program", Argv({"program"}).Get(), nullptr));
    EXPECT_EQ(0, *counter);
    fflush(stdout);
    const std::string text = log.StdoutText();
    EXPECT_EQ(text.find("pending"), text.rfind("pending"));
}

TEST(ExecShellProcess, ReapsAnyChild) {
    const pid_t other = fork();
    if (other == 0) {
        _exit(77);
    }
    // The other one has ended for sure: its exit code is what comes back first.
    siginfo_t info = {};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT));
    s32 pid = 0;
    EXPECT_EQ(77, RunShell("sleep 0.2; exit 5", &pid));
    EXPECT_NE(other, pid);
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_EQ(5, WEXITSTATUS(status));
}

TEST(ExecShellProcess, KeepsTheDispositionOfSigchld) {
    Capture log;
    for (auto handler : {CountChildSignal, SIG_IGN, SIG_DFL}) {
        KeptDisposition kept(handler);
        EXPECT_EQ(9, RunShell("exit 9"));
        EXPECT_EQ(255, VimbraExecShellProcess("/no/such", Argv({"such"}).Get(), nullptr));
        EXPECT_EQ(9, Collect("exit 9").code);
        char buffer[8];
        EXPECT_EQ(255,
                  VimbraExecShellPrcPipe("/no/such", Argv({"such"}).Get(), buffer, 8, nullptr));
    }
    EXPECT_EQ(0, g_childSignals);
}

TEST(ExecShellProcess, WithoutPipeThereIsNoOutput) {
    Capture log;
    const KeptDisposition kept(CountChildSignal);
    char buffer[8] = {};
    s32 length = 5;
    {
        const DescriptorLimit none(0);
        EXPECT_EQ(-1, VimbraExecShellPrcPipe("true", Argv({"true"}).Get(), buffer, 8, &length));
    }
    EXPECT_EQ(5, length);
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraExecShellPrcPipe", "pipe error!", Where::kStdout));
}

TEST(ExecShellProcess, WithoutPipeTheProgramIsRunAllTheSame) {
    Capture log;
    const DescriptorLimit none(0);
    // It cannot load its libraries, or is not there: not this process's failure.
    s32 pid = 0;
    EXPECT_EQ(255, VimbraExecShellProcess("/no/such", Argv({"such"}).Get(), &pid));
    EXPECT_GT(pid, 0);
}

TEST(ExecShellProcess, WithoutProcessItFails) {
    Capture log;
    EXPECT_EQ(0, InChild([] {
                  // The first process of a new namespace ends, and with it the namespace: no other
                  // starts.
                  if (unshare(CLONE_NEWPID) != 0 || RunShell("exit 0") != 0) {
                      return 10;
                  }
                  struct sigaction action = {};
                  action.sa_handler = CountChildSignal;
                  sigaction(SIGCHLD, &action, nullptr);
                  const auto before = OpenDescriptors();
                  s32 pid = 4711;
                  if (RunShell("exit 0", &pid) != -1 || pid != 4711) {
                      return 11;
                  }
                  const Output output = Collect("exit 0");
                  if (output.code != -1 || output.length != -7) {
                      return 12;
                  }
                  sigaction(SIGCHLD, nullptr, &action);
                  fflush(stdout);
                  return action.sa_handler == CountChildSignal && before == OpenDescriptors() ? 0
                                                                                              : 13;
              }));
    // The second call has no word for it.
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraExecShellProcess", "vfork error"));
    EXPECT_EQ(1, log.Count(Kind::kError));
}

TEST(ExecShellProcess, AWaitThatFails) {
    Capture log;
    const auto before = OpenDescriptors();
    const KeptDisposition kept(CountChildSignal);
    g_waitFails = true;
    EXPECT_EQ(-1, RunShell("exit 0"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraExecShellProcess", "wait error"));
    const Output output = Collect("exit 0");
    g_waitFails = false;
    EXPECT_EQ(-1, output.code);
    EXPECT_EQ(-7, output.length);
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraExecShellPrcPipe", "wait error"));
    EXPECT_EQ(before, OpenDescriptors());
}

TEST(ExecShellProcess, AHandlerDoesNotRunInTheChild) {
    // Pending in the child alone it would run on this process's memory.
    static std::atomic<int> runs;
    static pid_t self;
    self = getpid();
    struct sigaction action = {};
    action.sa_handler = [](int) { runs += getpid() == self ? 1 : 1000; };
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    EXPECT_EQ(0, RunShell("kill -USR1 $PPID"));
    EXPECT_TRUE(WaitFor([] { return runs > 0; }));
    EXPECT_EQ(1, runs);
    // The program has the default disposition and the caller's mask.
    EXPECT_EQ(0, RunShell("exec grep -q '^SigBlk:.0*$' /proc/self/status"));
    EXPECT_EQ(0, RunShell("kill -USR1 $$; exit 3"));
}

TEST(ExecShellProcess, AnInterruptedWaitGoesOn) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));  // No SA_RESTART.
    EXPECT_EQ(4, RunShell("kill -USR1 $PPID; sleep 0.1; kill -USR1 $PPID; exit 4"));
    EXPECT_EQ(4, Collect("kill -USR1 $PPID; sleep 0.1; kill -USR1 $PPID; exit 4").code);
}

TEST(ExecShellProcess, InheritsTheSignalMask) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    EXPECT_EQ(0, RunShell("exec grep -q '^SigBlk:.0*800$' /proc/self/status"));
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(1, sigismember(&now, SIGUSR2));
    EXPECT_EQ(0, sigismember(&now, SIGUSR1));
}

TEST(ExecShellProcess, NullArguments) {
    Capture log;
    char buffer[4];
    s32 length = 5;
    EXPECT_EQ(-1, VimbraExecShellProcess(nullptr, Argv({"x"}).Get(), nullptr));
    EXPECT_EQ(-1, VimbraExecShellProcess("true", nullptr, nullptr));
    EXPECT_EQ(-1, VimbraExecShellPrcPipe(nullptr, Argv({"x"}).Get(), buffer, 4, &length));
    EXPECT_EQ(-1, VimbraExecShellPrcPipe("true", nullptr, buffer, 4, &length));
    EXPECT_EQ(-1, VimbraExecShellPrcPipe("true", Argv({"x"}).Get(), nullptr, 4, &length));
    EXPECT_EQ(-1, VimbraExecShellPrcPipe("true", Argv({"x"}).Get(), buffer, -1, &length));
    EXPECT_EQ(5, length);
    EXPECT_TRUE(log.IsSilent());
}

TEST(ExecShellProcess, NewProcessSafeDoesNothing) {
    Capture log;
    const auto before = OpenDescriptors();
    NewProcessSafe();
    EXPECT_EQ(before, OpenDescriptors());
    EXPECT_TRUE(log.IsSilent());
}

// Only the reason of a failure would be told through it.
TEST(ExecShellProcess, RunsWithoutAPipeOfItsOwn) {
    EXPECT_EQ(7, InChild([] {
                  LeaveDescriptors(STDERR_FILENO + 1);
                  return RunShell("exit 7", nullptr);
              }));
}

TEST(ExecShellProcess, AnIgnoredSignalStaysIgnoredAndAHandledOneIsNot) {
    signal(SIGUSR1, SIG_IGN);
    signal(SIGUSR2, CountChildSignal);
    const Output output = Collect("grep SigIgn /proc/self/status; grep SigCgt /proc/self/status");
    unsigned long ignored = 0;
    unsigned long caught = 0;
    ASSERT_EQ(2, sscanf(output.text.c_str(), "SigIgn: %lx SigCgt: %lx", &ignored, &caught));
    constexpr unsigned long kBoth = 1UL << (SIGUSR1 - 1) | 1UL << (SIGUSR2 - 1);
    EXPECT_EQ(1UL << (SIGUSR1 - 1), ignored & kBoth);
    EXPECT_EQ(0u, caught & kBoth);
    signal(SIGUSR1, SIG_DFL);
    signal(SIGUSR2, SIG_DFL);
}

}  // namespace
}  // namespace vimbra::tests
