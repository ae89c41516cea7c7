// Commands, and descriptors that no program is to inherit.
#include "command.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vimbra/process.h>

#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

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
