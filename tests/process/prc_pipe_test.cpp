// Running a program for its output: VimbraExecShellPrcPipe.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/process.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "command.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

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

}  // namespace
}  // namespace vimbra::tests
