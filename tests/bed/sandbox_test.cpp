// The bed's own tests: the launcher, from inside and, started once more, from outside.
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr const char* kSandbox = VIMBRA_SANDBOX_PATH;

std::set<std::string> Entries(const char* path) {
    std::set<std::string> names;
    DIR* directory = opendir(path);
    while (const dirent* entry = directory != nullptr ? readdir(directory) : nullptr) {
        if (entry->d_name[0] != '.') {
            names.insert(entry->d_name);
        }
    }
    if (directory != nullptr) {
        closedir(directory);
    }
    return names;
}

struct Outcome {
    int status = 0;
    std::string output;  // standard output and standard error
};

pid_t Start(
    const std::vector<std::string>& words, int output,
    const std::function<void()>& before = [] {}) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        before();
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        close(output);
        execv(arguments[0], arguments.data());
        _exit(99);
    }
    return child;
}

std::string ReadToEnd(int descriptor) {
    std::string text;
    char block[4096];
    for (ssize_t got = 0; (got = read(descriptor, block, sizeof block)) > 0;) {
        text.append(block, static_cast<size_t>(got));
    }
    return text;
}

Outcome Execute(
    const std::vector<std::string>& words, const std::function<void()>& before = [] {}) {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    const pid_t child = Start(words, ends[1], before);
    close(ends[1]);
    Outcome outcome;
    outcome.output = ReadToEnd(ends[0]);
    close(ends[0]);
    EXPECT_EQ(child, waitpid(child, &outcome.status, 0));
    return outcome;
}

Outcome Shell(const std::string& script) {
    return Execute({kSandbox, "--", "/bin/sh", "-c", script});
}

TEST(Sandbox, HasItsOwnProcesses) {
    EXPECT_EQ(2, getpid());
    EXPECT_EQ(1, getppid());
    for (const std::string& name : Entries("/proc")) {
        if (isdigit(name[0]) != 0) {
            EXPECT_TRUE(name == "1" || name == "2") << name;
        }
    }
}

TEST(Sandbox, HasAnEmptyTmp) {
    // Nothing but the way to a build tree that lies there.
    for (const std::string& name : Entries("/tmp")) {
        EXPECT_TRUE(std::string(VIMBRA_KEPT).starts_with("/tmp/" + name + "/")) << name;
    }
    struct stat status {};
    ASSERT_EQ(0, stat("/tmp", &status));
    EXPECT_EQ(01777u, status.st_mode & 07777);
    WriteFile("/tmp/mine", "x");
    EXPECT_EQ("no\n", Shell("test -e /tmp/mine || echo no").output);
}

TEST(Sandbox, HasAnEtcOfItsOwn) {
    const std::string before = ReadFile("/etc/passwd");
    EXPECT_NE("", before);
    EXPECT_EQ("2\n", Shell("echo x >> /etc/passwd && cp /etc/passwd /etc/new && "
                           "mv /etc/new /etc/passwd && rm /etc/group && mkdir /etc/mine && "
                           "echo $$")
                         .output);
    EXPECT_EQ(before, ReadFile("/etc/passwd"));
    EXPECT_EQ(0, access("/etc/group", F_OK));
    EXPECT_NE(0, access("/etc/mine", F_OK));
    WriteFile("/etc/resolv.conf", "nameserver 10.0.0.1\n");
    ASSERT_EQ(0, rename("/etc/resolv.conf", "/etc/passwd"));
    EXPECT_EQ("nameserver 10.0.0.1\n", ReadFile("/etc/passwd"));
}

TEST(Sandbox, HasTheDevicesDirectoriesInUsr) {
    for (const std::string directory : {"/usr/etc", "/usr/config"}) {
        WriteFile(directory + "/system/file", "mine");
        EXPECT_EQ("", Shell("echo yours > " + directory + "/system/file").output);
        EXPECT_EQ("mine", ReadFile(directory + "/system/file"));
    }
    EXPECT_EQ(0, access("/usr/bin/env", X_OK));
    struct statvfs status {};
    ASSERT_EQ(0, statvfs("/usr/bin", &status));
    EXPECT_NE(0u, status.f_flag & ST_RDONLY);
}

TEST(Sandbox, HasANetworkWithOnlyALoopback) {
    ifaddrs* list = nullptr;
    ASSERT_EQ(0, getifaddrs(&list));
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        EXPECT_STREQ("lo", entry->ifa_name);
        EXPECT_NE(0u, entry->ifa_flags & IFF_UP);
    }
    freeifaddrs(list);
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(80);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, listen(server, 1));
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(0, connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address));
    close(client);
    close(server);
}

TEST(Sandbox, HasItsOwnSemaphores) {
    EXPECT_EQ(-1, semget(7783, 1, 0));
    EXPECT_EQ(ENOENT, errno);
    ASSERT_LE(0, semget(7783, 1, IPC_CREAT | 0600));
    EXPECT_EQ("1\n", Shell("wc -l < /proc/sysvipc/sem").output);  // the heading
}

TEST(Sandbox, HasTheUsualDevicesButNoSystemLog) {
    EXPECT_NE(0, access("/dev/log", F_OK));
    EXPECT_EQ("", ReadFile("/dev/null"));
    WriteFile("/dev/null", "x");
    EXPECT_EQ(std::string(4, '\0'), Shell("head -c 4 /dev/zero").output);
    EXPECT_EQ(8u, Shell("head -c 8 /dev/urandom").output.size());
    EXPECT_EQ("ok\n", Shell("echo ok > /dev/stdout").output);
    WriteFile("/dev/shm/x", "x");
}

TEST(Sandbox, IsSeenByTheCommand) {
    EXPECT_EQ("1\n", Shell("echo $VIMBRA_SANDBOX").output);
}

TEST(Sandbox, EndsAsTheCommandDid) {
    EXPECT_EQ(0, Shell("true").status);
    const Outcome failed = Shell("exit 7");
    ASSERT_TRUE(WIFEXITED(failed.status));
    EXPECT_EQ(7, WEXITSTATUS(failed.status));
    const Outcome killed = Shell("kill -SEGV $$");
    ASSERT_TRUE(WIFSIGNALED(killed.status));
    EXPECT_EQ(SIGSEGV, WTERMSIG(killed.status));
    EXPECT_NE(std::string::npos, killed.output.find("signal 11"));
}

TEST(Sandbox, ComplainsInOneLine) {
    const Outcome missing = Execute({kSandbox, "--", "/no/such/command"});
    EXPECT_EQ(127, WEXITSTATUS(missing.status));
    EXPECT_EQ("vimbra-sandbox: cannot run /no/such/command: No such file or directory\n",
              missing.output);
    const Outcome empty = Execute({kSandbox});
    EXPECT_EQ(125, WEXITSTATUS(empty.status));
    EXPECT_TRUE(empty.output.starts_with("vimbra-sandbox: no command; usage: ")) << empty.output;
    const Outcome option = Execute({kSandbox, "--kep", "x", "true"});
    EXPECT_EQ(125, WEXITSTATUS(option.status));
    EXPECT_TRUE(option.output.starts_with("vimbra-sandbox: bad option --kep; ")) << option.output;
    EXPECT_EQ(125, WEXITSTATUS(Execute({kSandbox, "--keep"}).status));
}

TEST(Sandbox, TakesStragglersAlong) {
    // The reading end comes to its end only when the last holder of the pipe is gone.
    EXPECT_EQ("done\n", Shell("sleep 1000 & (setsid sleep 1000 &) ; echo done").output);
}

TEST(Sandbox, DiesWithItsLauncher) {
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    const pid_t launcher =
        Start({kSandbox, "--", "/bin/sh", "-c", "echo up; sleep 1000; sleep 1000"}, ends[1]);
    close(ends[1]);
    char text[3];
    ASSERT_EQ(3, read(ends[0], text, 3));
    kill(launcher, SIGKILL);
    EXPECT_EQ("", ReadToEnd(ends[0]));
    close(ends[0]);
    waitpid(launcher, nullptr, 0);
}

TEST(Sandbox, KeepsWhatItIsToldTo) {
    WriteFile("/tmp/kept/deep/file", "kept");
    WriteFile("/tmp/lost", "lost");
    mkdir("/tmp/kept/bin", 0755);
    EXPECT_EQ("kept", Execute({kSandbox, "--keep", "/tmp/kept", "--keep", "/tmp/kept/deep", "--",
                               "/bin/cat", "/tmp/kept/deep/file"})
                          .output);
    EXPECT_EQ(0, Execute({kSandbox, "--keep", "/tmp/kept", "--", "/bin/sh", "-c",
                          "test ! -e /tmp/lost && echo new > /tmp/kept/deep/file"})
                     .status);
    EXPECT_EQ("new\n", ReadFile("/tmp/kept/deep/file"));
    // The command's own directory, and the current one.
    WriteFile("/tmp/kept/bin/hello", "#!/bin/sh\npwd\n");
    chmod("/tmp/kept/bin/hello", 0755);
    EXPECT_EQ("/tmp/kept/deep\n", Execute({kSandbox, "--", "/tmp/kept/bin/hello"}, [] {
                                      if (chdir("/tmp/kept/deep") != 0) {
                                          _exit(98);
                                      }
                                  }).output);
}

// As root this drops to a user without rights; an ordinary user is one already.
TEST(Sandbox, ServesAnOrdinaryUser) {
    WriteFile("/tmp/sandbox/copy", ReadFile(kSandbox));
    chmod("/tmp/sandbox/copy", 0755);
    const bool manyUsers = ReadFile("/proc/self/uid_map").find("4294967295") != std::string::npos;
    const Outcome outcome =
        Execute({"/tmp/sandbox/copy", "--", "/bin/sh", "-c",
                 "id -u; echo x >> /etc/passwd && echo etc; touch /usr/etc/x && "
                 "echo usr; touch /dev/log && echo dev; echo $$; "
                 "wc -l < /proc/net/dev; exit 3"},
                [=] {
                    constexpr uid_t kNobody = 65534;
                    if (manyUsers && (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 ||
                                      setuid(kNobody) != 0)) {
                        _exit(98);
                    }
                });
    EXPECT_EQ("0\netc\nusr\ndev\n2\n3\n", outcome.output);
    EXPECT_EQ(3, WEXITSTATUS(outcome.status));
}

}  // namespace
}  // namespace vimbra::tests
