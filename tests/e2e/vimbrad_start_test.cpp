// What may stand in the daemon's way when it starts, and how it tells that it serves.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>
#include <vimbra/route.h>

#include <cstring>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;

namespace {

constexpr char kSocket[] = "/tmp/api_daemon";
constexpr char kRunDir[] = "/run/vimbrad";
constexpr uid_t kNobody = 65534;

char g_lo[] = "lo";
char g_none[] = "none";

bool Serves() {
    u32 mtu = 0;
    return VimbraIfaceGetMtu(g_lo, &mtu) == 0 && mtu == 65536;
}

mode_t ModeOf(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 ? found.st_mode : 0;
}

std::string FailsToStart(const std::vector<std::string>& options = {}) {
    Program daemon(DaemonCommand(options), "/tmp/vimbrad.log");
    EXPECT_EQ(1, daemon.Wait());
    return daemon.Output();
}

TEST(VimbradRunDir, IsMadeForTheDaemonAlone) {
    const Daemon daemon;
    EXPECT_EQ(S_IFDIR | 0700u, ModeOf(kRunDir));
}

TEST(VimbradRunDir, MayBeAnother) {
    const Daemon daemon({"--run-dir=/tmp/other"});
    EXPECT_EQ(S_IFDIR | 0700u, ModeOf("/tmp/other"));
    EXPECT_EQ(0u, ModeOf(kRunDir));
}

TEST(VimbradRunDir, IsClosedToOthersWhenItWasOpen) {
    ASSERT_EQ(0, mkdir(kRunDir, 0777));
    const Daemon daemon;
    EXPECT_EQ(S_IFDIR | 0700u, ModeOf(kRunDir));
}

TEST(VimbradRunDir, OfAnotherUserIsRefused) {
    ASSERT_EQ(0, mkdir(kRunDir, 0700));
    // Where there is one user only, nobody else's directory can be had either.
    if (chown(kRunDir, kNobody, kNobody) == 0) {
        EXPECT_THAT(FailsToStart(),
                    HasSubstr("error: run directory /run/vimbrad belongs to user 65534"));
    }
}

TEST(VimbradRunDir, ThatIsALinkOrAFileIsRefused) {
    ASSERT_EQ(0, symlink("/tmp", kRunDir));
    EXPECT_THAT(FailsToStart(), HasSubstr("error: run directory /run/vimbrad is no directory"));
    ASSERT_EQ(0, unlink(kRunDir));
    WriteFile(kRunDir, "");
    EXPECT_THAT(FailsToStart(), HasSubstr("error: run directory /run/vimbrad is no directory"));
}

TEST(VimbradRunDir, WhatAnEarlierLifeLeftIsRemoved) {
    ASSERT_EQ(0, mkdir(kRunDir, 0700));
    ASSERT_EQ(0, mkdir("/run/vimbrad/files.abcdef", 0700));
    WriteFile("/run/vimbrad/files.abcdef/options", "password secret");
    WriteFile("/run/vimbrad/state.json.new", "{");
    const Daemon daemon;
    EXPECT_EQ(
        "",
        Shell("ls /run/vimbrad | grep -vx -e lock -e status -e .*-hook -e link-keeper || true"));
}

TEST(VimbradStart, SecondDaemonSaysWhoIsInTheWay) {
    Daemon daemon;
    EXPECT_THAT(FailsToStart(),
                HasSubstr("error: another daemon, process " +
                          std::to_string(daemon.Process().Pid()) + ", holds /run/vimbrad/lock"));
    EXPECT_TRUE(Serves());
}

TEST(VimbradStart, SecondDaemonWithARunDirOfItsOwnLeavesTheSocketAlone) {
    const Daemon daemon;
    EXPECT_THAT(FailsToStart({"--run-dir=/tmp/other"}),
                HasSubstr("error: another daemon answers on /tmp/api_daemon"));
    EXPECT_TRUE(Serves());
}

TEST(VimbradStart, LockOnTmpDoesNotMatter) {
    const int tmp = open("/tmp", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(0, flock(tmp, LOCK_EX));
    const Daemon daemon;
    EXPECT_TRUE(Serves());
    close(tmp);
}

TEST(VimbradStart, FileInTheWayIsMovedAside) {
    WriteFile(kSocket, "precious");
    const Daemon daemon;
    EXPECT_TRUE(Serves());
    EXPECT_EQ("precious", Shell("cat /tmp/in-the-way-of-vimbrad.*/api_daemon"));
    EXPECT_TRUE(daemon.WaitLog("warning: /tmp/api_daemon was no socket: moved to /tmp/in-the-way"));
}

TEST(VimbradStart, LinkInTheWayIsMovedAsideAndNotFollowed) {
    WriteFile("/tmp/target", "precious");
    ASSERT_EQ(0, symlink("/tmp/target", kSocket));
    const Daemon daemon;
    EXPECT_TRUE(Serves());
    EXPECT_EQ("precious", ReadFile("/tmp/target"));
}

TEST(VimbradStart, DirectoryInTheWayIsMovedAside) {
    ASSERT_EQ(0, mkdir(kSocket, 0755));
    WriteFile("/tmp/api_daemon/file", "precious");
    const Daemon daemon;
    EXPECT_TRUE(Serves());
    EXPECT_EQ("precious", Shell("cat /tmp/in-the-way-of-vimbrad.*/api_daemon/file"));
}

// Another user's process that listens where we want to. False where there is no other user.
class Squatter {
 public:
    Squatter() {
        int ready[2];
        EXPECT_EQ(0, pipe(ready));
        pid_ = fork();
        if (pid_ == 0) {
            Squat(ready[1]);
        }
        close(ready[1]);
        char word = 0;
        sits_ = read(ready[0], &word, 1) == 1;
        close(ready[0]);
    }
    ~Squatter() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Squatter(const Squatter&) = delete;
    Squatter& operator=(const Squatter&) = delete;

    bool Sits() const { return sits_; }

 private:
    [[noreturn]] static void Squat(int ready) {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, kSocket);
        if (setgid(kNobody) == 0 && setuid(kNobody) == 0 &&
            bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
            listen(fd, 0) == 0 && write(ready, "x", 1) == 1) {
            for (;;) {
                pause();
            }
        }
        _exit(1);
    }

    pid_t pid_ = -1;
    bool sits_ = false;
};

TEST(VimbradStart, ListenerOfAnotherUserGivesWay) {
    const Squatter squatter;
    if (squatter.Sits()) {
        const Daemon daemon;
        ASSERT_TRUE(daemon.WaitLog("listening on"));
        EXPECT_TRUE(Serves());
        EXPECT_TRUE(daemon.WaitLog("warning: user 65534 listened on /tmp/api_daemon: removed"));
    }
}

TEST(VimbradStart, ListenerOfAnotherUserWhoseQueueIsFullGivesWay) {
    const Squatter squatter;
    if (squatter.Sits()) {
        const Connection first("api_daemon");
        const Daemon daemon;
        ASSERT_TRUE(daemon.WaitLog("listening on"));
        EXPECT_TRUE(Serves());
    }
}

TEST(VimbradStart, GroupOfTheSocketCanBeNamed) {
    const Daemon daemon({"--group=daemon"});
    EXPECT_EQ("daemon 660\n", Shell("stat -c '%G %a' /tmp/api_daemon"));
}

TEST(VimbradStart, GroupThatIsNoneIsWrongUsage) {
    Program daemon(DaemonCommand({"--group=no-such-group"}), "/tmp/vimbrad.log");
    EXPECT_EQ(2, daemon.Wait());
    EXPECT_EQ("vimbrad: there is no group 'no-such-group'\n", daemon.Output());
}

TEST(VimbradStart, ServesWithStandardDescriptorsClosed) {
    const std::string command = "exec " + DaemonCommand().front() + " --log-level=5 <&- >&- 2>&-";
    Program daemon({"sh", "-c", command}, "/tmp/vimbrad.log");
    ASSERT_TRUE(WaitForListener("api_daemon"));
    for (int i = 0; i < 100; ++i) {
        u32 mtu = 0;
        EXPECT_NE(0, VimbraIfaceGetMtu(g_none, &mtu));
    }
    EXPECT_TRUE(Serves());
    daemon.Signal(SIGTERM);
    EXPECT_EQ(0, daemon.Wait());
}

TEST(VimbradStart, HangUpEndsNothing) {
    Daemon daemon;
    daemon.Process().Signal(SIGHUP);
    EXPECT_TRUE(Serves());
    EXPECT_TRUE(daemon.Running());
}

TEST(VimbradReady, ServiceManagerIsTold) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/tmp/notify");
    ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    setenv("NOTIFY_SOCKET", "/tmp/notify", 1);
    const auto next = [fd] {
        pollfd ready{fd, POLLIN, 0};
        char text[64] = "";
        if (poll(&ready, 1, 60'000) == 1) {
            static_cast<void>(recv(fd, text, sizeof(text) - 1, 0));
        }
        return std::string(text);
    };
    Daemon daemon;
    EXPECT_EQ("READY=1", next());
    EXPECT_EQ(0, daemon.Stop());
    EXPECT_EQ("STOPPING=1", next());
    close(fd);
}

TEST(VimbradReady, DescriptorIsWrittenToOnce) {
    // What waits for the end of the pipe has waited for the daemon to close it.
    const std::string command =
        "{ " + DaemonCommand().front() + " --ready-fd=3 3>&1 >/dev/null 2>&1 & } | od -An -c";
    EXPECT_EQ("  \\n\n", Shell(command));
    EXPECT_TRUE(Serves());
    Shell("kill $(cat /run/vimbrad/lock)");
    EXPECT_TRUE(WaitFor([] { return ModeOf(kSocket) == 0; }));
}

TEST(VimbradReady, DescriptorThatIsNotOpenIsWrongUsage) {
    for (const char* option : {"--ready-fd=77", "--ready-fd=0", "--ready-fd=x"}) {
        Program daemon(DaemonCommand({option}), "/tmp/vimbrad.log");
        EXPECT_EQ(2, daemon.Wait()) << option;
    }
}

// A daemon whose standard error is a pipe that is full.
class FullPipe {
 public:
    FullPipe() {
        EXPECT_EQ(0, pipe2(ends_, O_CLOEXEC));
        fcntl(ends_[1], F_SETPIPE_SZ, 4096);
        const std::string command = "exec " + DaemonCommand().front() + " --log-level=5 2>/proc/" +
                                    std::to_string(getpid()) + "/fd/" + std::to_string(ends_[1]);
        daemon_ = std::make_unique<Program>(std::vector<std::string>{"sh", "-c", command},
                                            "/tmp/vimbrad.log");
        EXPECT_TRUE(WaitForListener("api_daemon"));
    }
    ~FullPipe() {
        daemon_->Signal(SIGTERM);
        EXPECT_EQ(0, daemon_->Wait());
        close(ends_[0]);
        close(ends_[1]);
    }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;

    // What is in the pipe by now.
    std::string Read() const {
        pollfd ready{ends_[0], POLLIN, 0};
        std::string text(65536, '\0');
        const ssize_t count =
            poll(&ready, 1, 0) == 1 ? read(ends_[0], text.data(), text.size()) : 0;
        text.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return text;
    }

 private:
    int ends_[2];
    std::unique_ptr<Program> daemon_;
};

TEST(VimbradLog, FullPipeStopsNobodyAndWhatIsLostIsCounted) {
    const FullPipe daemon;
    for (int i = 0; i < 500; ++i) {
        ASSERT_TRUE(Serves());
    }
    EXPECT_THAT(daemon.Read(), HasSubstr("listening on"));
    EXPECT_TRUE(Serves());
    EXPECT_THAT(daemon.Read(), HasSubstr(" log lines were lost: nobody took them\n"));
}

TEST(VimbradLog, SystemLogIsWrittenToInstead) {
    Capture capture;
    Daemon daemon({"--syslog"});
    const auto logged = [&capture] {
        for (const LogLine& line : capture.Syslog()) {
            if (line.raw.find("]: listening on /tmp/api_daemon") != std::string::npos) {
                return line.raw;
            }
        }
        return std::string();
    };
    EXPECT_TRUE(WaitFor([&logged] { return !logged().empty(); }));
    EXPECT_THAT(logged(), testing::StartsWith("<30>"));
    EXPECT_THAT(logged(), HasSubstr(" vimbrad["));
    EXPECT_EQ("", daemon.Log());
}

TEST(VimbradLog, SystemLogThatNobodyReadsStopsNobody) {
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    ASSERT_EQ(0, bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    const Daemon daemon({"--syslog", "--log-level=5"});
    for (int i = 0; i < 500; ++i) {
        ASSERT_TRUE(Serves());
    }
    close(log);
}

}  // namespace
}  // namespace vimbra::tests
