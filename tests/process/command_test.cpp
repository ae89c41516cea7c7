// Running programs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/log.h>
#include <vimbra/process.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

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

// An argument vector as execvp takes it.
struct Argv {
    Argv(std::initializer_list<const char*> words) : words_(words.begin(), words.end()) {
        for (std::string& word : words_) {
            pointers_.push_back(word.data());
        }
        pointers_.push_back(nullptr);
    }
    char** Get() { return pointers_.data(); }

 private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

s32 RunShell(const char* script, s32* pid = nullptr) {
    return VimbraExecShellProcess("sh", Argv({"sh", "-c", script}).Get(), pid);
}

struct Output {
    s32 code;
    s32 length = -7;
    std::string text;
};

Output Collect(const char* script, size_t size = 4096) {
    std::vector<char> buffer(size + 1, '#');
    Output output;
    output.code = VimbraExecShellPrcPipe("sh", Argv({"sh", "-c", script}).Get(), buffer.data(),
                                         static_cast<s32>(size), &output.length);
    EXPECT_EQ('#', buffer[size]);  // Never past what was given.
    if (output.length >= 0) {
        output.text.assign(buffer.data(), static_cast<size_t>(output.length));
    }
    return output;
}

std::atomic<int> g_childSignals;

void CountChildSignal(int) {
    g_childSignals++;
}

// The signal dispositions before and after are the same.
class KeptDisposition {
 public:
    explicit KeptDisposition(void (*handler)(int)) {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
        sigaddset(&action.sa_mask, SIGUSR2);
        sigaction(SIGCHLD, &action, nullptr);
        sigaction(SIGCHLD, nullptr, &before_);
    }
    ~KeptDisposition() {
        struct sigaction after = {};
        sigaction(SIGCHLD, nullptr, &after);
        EXPECT_EQ(before_.sa_handler, after.sa_handler);
        EXPECT_EQ(before_.sa_flags, after.sa_flags);
        EXPECT_EQ(1, sigismember(&after.sa_mask, SIGUSR2));
        signal(SIGCHLD, SIG_DFL);
    }

 private:
    struct sigaction before_ = {};
};

// Runs in a child of its own, which nobody needs afterwards.
int InChild(int (*body)()) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
}

// Without standard input and output, and with descriptors below this number alone.
void LeaveDescriptors(int end) {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(end);
    setrlimit(RLIMIT_NOFILE, &limit);
}

int LowestFree() {
    const int fd = fcntl(STDERR_FILENO, F_DUPFD, STDERR_FILENO + 1);
    close(fd);
    return fd;
}

// ---- VimbraExecShellProcess --------------------------------------------------------------------

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

// The soft limit of descriptors for a scope.
class DescriptorLimit {
 public:
    explicit DescriptorLimit(rlim_t limit) {
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before_));
        rlimit changed = before_;
        changed.rlim_cur = limit;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &changed));
    }
    ~DescriptorLimit() { EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before_)); }

 private:
    rlimit before_ = {};
};

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

// ---- VimbraExecShellPrcPipe --------------------------------------------------------------------

TEST(ExecShellPrcPipe, CollectsBothOutputs) {
    Capture log;
    const auto before = OpenDescriptors();
    const Output output = Collect("echo one; echo two >&2; exit 6");
    EXPECT_EQ(6, output.code);
    EXPECT_EQ(8, output.length);
    EXPECT_EQ("one\ntwo\n", output.text);
    EXPECT_TRUE(log.IsSilent());
    EXPECT_EQ(before, OpenDescriptors());
}

TEST(ExecShellPrcPipe, ReadsNoMoreThanTheSize) {
    EXPECT_EQ("0123", Collect("printf 0123456789", 4).text);
    EXPECT_EQ("0123456789", Collect("printf 0123456789", 10).text);
    EXPECT_EQ("", Collect("printf 0123456789", 0).text);
    EXPECT_EQ("", Collect("true").text);
    EXPECT_EQ(0, Collect("true").length);
}

TEST(ExecShellPrcPipe, WaitsAndThenReads) {
    // What the program leaves in the pipe is read at once after its end, however it came there.
    const Output output = Collect("printf a; sleep 0.1; printf b; sleep 0.1; printf c; exit 2");
    EXPECT_EQ(2, output.code);
    EXPECT_EQ("abc", output.text);
    // As much as a pipe holds.
    const Output full = Collect("head -c 65536 /dev/zero", 65536);
    EXPECT_EQ(0, full.code);
    EXPECT_EQ(65536, full.length);
}

TEST(ExecShellPrcPipe, TheProgramHasNoOtherDescriptorOfThePipes) {
    // A library that runs programs must not leak descriptors into them: two more, for the output.
    WriteFile("/tmp/count", "ls /proc/self/fd | wc -l > /tmp/number");
    EXPECT_EQ(0, RunShell("exec sh /tmp/count"));
    const std::string before = ReadFile("/tmp/number");
    EXPECT_EQ(0, Collect("exec sh /tmp/count").code);
    EXPECT_EQ(before, ReadFile("/tmp/number"));
    const Output output = Collect("ls -l /proc/self/fd; readlink /proc/self/fd/1");
    ASSERT_EQ(0, output.code);
    const size_t end = output.text.rfind('\n', output.text.size() - 2);
    const std::string pipe = output.text.substr(end + 1, output.text.size() - end - 2);
    size_t count = 0;
    for (size_t at = output.text.find(pipe); at != std::string::npos;
         at = output.text.find(pipe, at + 1)) {
        count++;
    }
    EXPECT_EQ(3u, count) << output.text;  // Standard output and error, and readlink's word.
}

TEST(ExecShellPrcPipe, AMissingProgramIsToldInTheOutputToo) {
    Capture log;
    const auto before = OpenDescriptors();
    char buffer[200] = {};
    s32 length = 0;
    EXPECT_EQ(255, VimbraExecShellPrcPipe("/no/such/program", Argv({"x"}).Get(), buffer,
                                          sizeof(buffer), &length));
    EXPECT_TRUE(log.Has(Kind::kPerror, "VimbraExecShellPrcPipe", "exec error:"));
    EXPECT_EQ(1, log.Count(Kind::kPerror));
    ASSERT_GT(length, 0);
    const std::vector<LogLine> lines = ParseLog({buffer, static_cast<size_t>(length)});
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("exec error:", lines[0].text);
    EXPECT_EQ(ENOENT, lines[0].errnoValue);
    EXPECT_EQ(before, OpenDescriptors());
}

TEST(ExecShellPrcPipe, OutputIsCollectedWithoutStandardDescriptors) {
    const int keep[3] = {dup(0), dup(1), dup(2)};
    close(0);
    close(1);
    close(2);
    const Output output = Collect("echo one; echo two >&2; exit 6");
    for (int fd : {0, 1, 2}) {
        dup2(keep[fd], fd);
        close(keep[fd]);
    }
    EXPECT_EQ(6, output.code);
    EXPECT_EQ("one\ntwo\n", output.text);
}

// A pipe would take the places of the standard descriptors, and there are no others for one end of it
// or for both.
TEST(ExecShellPrcPipe, APipeNeedsOtherPlacesThanTheStandardOnes) {
    for (const int places : {0, 1}) {
        static int chosen;
        chosen = places;
        EXPECT_EQ(0, InChild([] {
                      const int end = LowestFree() + chosen;
                      LeaveDescriptors(chosen == 0 ? STDERR_FILENO + 1 : end);
                      if (Collect("exit 5").code != -1) {
                          return 1;
                      }
                      // Nothing is left of it.
                      return fcntl(STDIN_FILENO, F_GETFD) < 0 &&
                                     fcntl(STDOUT_FILENO, F_GETFD) < 0 &&
                                     (chosen == 0 || fcntl(end - 1, F_GETFD) < 0)
                                 ? 0
                                 : 2;
                  }))
            << places;
    }
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

TEST(ExecShellPrcPipe, AnotherChildIsLeftAlone) {
    const pid_t other = fork();
    if (other == 0) {
        _exit(77);
    }
    siginfo_t info = {};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT));
    EXPECT_EQ(5, Collect("exit 5").code);
    int status = 0;
    EXPECT_EQ(other, waitpid(other, &status, 0));
    EXPECT_EQ(77, WEXITSTATUS(status));
}

TEST(ExecShellPrcPipe, ManyRunsKeepNothing) {
    Capture log;
    const auto before = OpenDescriptors();
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(1, Collect("exit 1").code);
        char buffer[4];
        EXPECT_EQ(255, VimbraExecShellPrcPipe("/no/such", Argv({"x"}).Get(), buffer, 4, nullptr));
    }
    EXPECT_EQ(before, OpenDescriptors());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

// ---- ExecCmd and VimbraExecCmdAndGetOutput -----------------------------------------------------

s32 Command(const std::string& command, s32 spare = 1) {
    std::vector<char> buffer(command.c_str(), command.c_str() + command.size() + 1);
    return ExecCmd(buffer.data(), static_cast<s32>(command.size()) + spare, 0);
}

TEST(ExecCmd, RunsItsWords) {
    Capture log;
    EXPECT_EQ(0, Command("touch  /tmp/one /tmp/two"));
    EXPECT_EQ(0, access("/tmp/one", F_OK));
    EXPECT_EQ(0, access("/tmp/two", F_OK));
    EXPECT_EQ(0, Command("echo quiet"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(ExecCmd, AFailureLogsCommandAndOutput) {
    Capture log;
    WriteFile("/tmp/fail", "echo out; echo err >&2; exit 3");
    EXPECT_EQ(-1, Command("sh /tmp/fail"));
    const auto lines = log.Syslog();
    ASSERT_EQ(2u, lines.size()) << log.Describe();
    EXPECT_EQ("sh", lines[0].text);  // Cut in place.
    EXPECT_EQ(Kind::kError, lines[0].kind);
    EXPECT_EQ("ExecCmd", lines[1].function);
    EXPECT_NE(std::string::npos, lines[1].raw.find("out\nerr"));
}

TEST(ExecCmd, AtMost2000BytesOfOutputAreLogged) {
    Capture log;
    WriteFile("/tmp/long", "head -c 3000 /dev/zero | tr '\\0' x; exit 1");
    EXPECT_EQ(-1, Command("sh /tmp/long"));
    EXPECT_TRUE(log.Has(Kind::kError, "ExecCmd", std::string(2000, 'x')));
}

TEST(ExecCmd, AMissingProgramIsAFailure) {
    Capture log;
    EXPECT_EQ(-1, Command("/no/such/program with words"));
    EXPECT_TRUE(log.Has(Kind::kPerror, "VimbraExecShellPrcPipe", "exec error:"));
    EXPECT_TRUE(log.Has(Kind::kError, "ExecCmd", "/no/such/program"));
}

TEST(ExecCmd, Refusals) {
    Capture log;
    EXPECT_EQ(-1, ExecCmd(nullptr, 10, 0));
    EXPECT_TRUE(log.Has(Kind::kError, "ExecCmd", "ExecCmd pchCmd is NULL!"));
    log.Clear();
    EXPECT_EQ(-1, Command("touch /tmp/one", 0));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraBufToArgv", "cmd length=14,the max length is 14"));
    EXPECT_TRUE(log.Has(Kind::kError, "ExecCmd", "touch /tmp/one"));
    EXPECT_NE(0, access("/tmp/one", F_OK));
    EXPECT_EQ(-1, Command(" true"));  // An empty first word is no program.
}

TEST(ExecCmd, NoWordAtAllIsNoProgram) {
    Capture log;
    EXPECT_EQ(-1, Command(""));
    EXPECT_TRUE(log.Has(Kind::kPerror, "VimbraExecShellPrcPipe", "exec error:"));
    EXPECT_TRUE(log.Has(Kind::kError, "ExecCmd", ""));
    log.Clear();
    char command[] = "";
    char output[512];
    EXPECT_EQ(-1, VimbraExecCmdAndGetOutput(command, sizeof(command), output, sizeof(output)));
    EXPECT_TRUE(log.Has(Kind::kPerror, "VimbraExecShellPrcPipe", "exec error:"));
}

TEST(ExecCmd, The64thWordIsTooMany) {
    Capture log;
    std::string command = "true";
    for (int i = 1; i < 63; i++) {
        command += " x";
    }
    EXPECT_EQ(0, Command(command));
    EXPECT_EQ(-1, Command(command + " x"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraBufToArgv", "argc=64,the max parame is 64"));
    EXPECT_TRUE(log.Has(Kind::kError, "ExecCmd", "true"));
    EXPECT_EQ(-1, Command(command + " x y z"));
}

TEST(ExecCmd, TheTypeHasNoEffect) {
    for (s32 type : {-1, 0, 1, 99}) {
        char command[] = "true";
        EXPECT_EQ(0, ExecCmd(command, sizeof(command), type));
    }
}

TEST(ExecCmdAndGetOutput, FillsTheCallersBuffer) {
    Capture log;
    char command[] = "echo hello  world";
    char output[32];
    memset(output, '#', sizeof(output));
    EXPECT_EQ(0, VimbraExecCmdAndGetOutput(command, sizeof(command), output, sizeof(output)));
    EXPECT_EQ(Pack().Text("hello world\n", 32), AsBytes(output));
    EXPECT_TRUE(log.IsSilent());
}

TEST(ExecCmdAndGetOutput, ALongOutputIsNotTerminated) {
    char command[] = "echo 0123456789";
    char output[6];
    memset(output, '#', sizeof(output));
    EXPECT_EQ(0, VimbraExecCmdAndGetOutput(command, sizeof(command), output, 5));
    EXPECT_EQ("01234#", std::string(output, 6));
}

TEST(ExecCmdAndGetOutput, AFailureKeepsTheOutput) {
    WriteFile("/tmp/fail", "echo why; exit 3");
    char command[] = "sh /tmp/fail";
    char output[32] = {};
    EXPECT_EQ(-1, VimbraExecCmdAndGetOutput(command, sizeof(command), output, sizeof(output)));
    EXPECT_STREQ("why\n", output);
}

TEST(ExecCmdAndGetOutput, Refusals) {
    Capture log;
    char command[] = "true";
    char output[8] = "kept";
    EXPECT_EQ(-1, VimbraExecCmdAndGetOutput(nullptr, 5, output, sizeof(output)));
    EXPECT_EQ(-1, VimbraExecCmdAndGetOutput(command, sizeof(command), nullptr, 8));
    EXPECT_EQ(2, log.Count(Kind::kError, "VimbraExecCmdAndGetOutput", "ExecCmd pchCmd is NULL!"));
    // Split first: a refused command leaves the output as it was.
    EXPECT_EQ(-1, VimbraExecCmdAndGetOutput(command, 4, output, sizeof(output)));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraExecCmdAndGetOutput", "true"));
    EXPECT_STREQ("kept", output);
    EXPECT_EQ(-1, VimbraExecCmdAndGetOutput(command, sizeof(command), output, -1));
    EXPECT_STREQ("kept", output);
}

// ---- CloseInheritFatherProcessFd ---------------------------------------------------------------

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(CloseInherit, ClosesFromTheLowestOn) {
    EXPECT_EQ(0, InChild([] {
                  rlimit limit = {2048, 2048};
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = limit.rlim_max;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  for (int fd : {40, 41, 500, 1023, 1024, 1500}) {
                      if (dup2(0, fd) < 0) {
                          return 10;
                      }
                  }
                  CloseInheritFatherProcessFd(41);
                  return IsOpen(40) && !IsOpen(41) && !IsOpen(500) && !IsOpen(1023) &&
                                 IsOpen(1024) && IsOpen(1500)
                             ? 0
                             : 1;
              }));
}

TEST(CloseInherit, TheLimitDoesNotMatter) {
    EXPECT_EQ(0, InChild([] {
                  if (dup2(0, 200) < 0) {
                      return 10;
                  }
                  rlimit limit;
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = 100;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  CloseInheritFatherProcessFd(30);
                  return IsOpen(200) ? 1 : 0;
              }));
}

TEST(CloseInherit, WithoutProcItClosesByNumber) {
    EXPECT_EQ(0, InChild([] {
                  for (int fd : {40, 41, 1023}) {
                      if (dup2(0, fd) < 0) {
                          return 10;
                      }
                  }
                  // Not a descriptor for the directory is left.
                  rlimit limit;
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = 0;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  CloseInheritFatherProcessFd(41);
                  return IsOpen(40) && !IsOpen(41) && !IsOpen(1023) ? 0 : 1;
              }));
}

TEST(CloseInherit, ALowestBelowZeroClosesAll) {
    EXPECT_EQ(0, InChild([] {
                  CloseInheritFatherProcessFd(-5);
                  return IsOpen(0) || IsOpen(1) || IsOpen(2) ? 1 : 0;
              }));
}

}  // namespace
}  // namespace vimbra::tests
