// Finding processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/log.h>
#include <vimbra/process.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

using namespace bed;

namespace {

char kProc[] = "/proc/";

// A real process of this command line, which sleeps until the end.
class Sleeper {
 public:
    // The program's name in /proc is that of the copied file.
    Sleeper(const std::string& name, const std::vector<std::string>& words) {
        const std::string path = "/tmp/" + name;
        WriteFile(path, ReadFile("/bin/sleep"));
        EXPECT_EQ(0, chmod(path.c_str(), 0755));
        std::vector<char*> argv;
        for (const std::string& word : words) {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            execv(path.c_str(), argv.data());
            _exit(1);
        }
        EXPECT_TRUE(WaitFor([&] {
            return ReadFile("/proc/" + std::to_string(pid_) + "/cmdline").starts_with(words[0]) &&
                   ReadFile("/proc/" + std::to_string(pid_) + "/comm").starts_with(name);
        }));
    }
    ~Sleeper() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    s32 Pid() const { return pid_; }

 private:
    pid_t pid_ = -1;
};

s32 ByName(const char* service, const char* path = kProc) {
    return GetServicePid(const_cast<char*>(path), const_cast<char*>(service));
}

s32 ByCmdline(const char* service, const char* keyword = nullptr, const char* path = kProc) {
    return GetServicePidFromCmdline(const_cast<char*>(path), const_cast<char*>(service),
                                    const_cast<char*>(keyword));
}

s32 ByCmdline2(const char* service, const char* keyword, const char* except,
               const char* path = kProc) {
    return GetServicePidFromCmdline2(const_cast<char*>(path), const_cast<char*>(service),
                                     const_cast<char*>(keyword), const_cast<char*>(except));
}

// ---- The real /proc ----------------------------------------------------------------------------

TEST(FindProcess, ByName) {
    Capture log;
    EXPECT_EQ(0, ByName("udhcpd-test"));
    const Sleeper sleeper("udhcpd-test", {"something-else", "1000"});
    EXPECT_EQ(sleeper.Pid(), ByName("udhcpd-test"));
    EXPECT_EQ(sleeper.Pid(), ByName("dhcpd-te"));
    EXPECT_EQ(0, ByName("something-else"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(FindProcess, ByCmdline) {
    Capture log;
    const Sleeper sleeper("sleeper", {"udhcpc-test", "1000", "0.5"});
    EXPECT_EQ(sleeper.Pid(), ByCmdline("udhcpc-test"));
    EXPECT_EQ(sleeper.Pid(), ByCmdline("c-test 1000 0.5"));  // Blanks between the words.
    EXPECT_EQ(sleeper.Pid(), ByCmdline("udhcpc-test", "1000"));
    EXPECT_EQ(sleeper.Pid(), ByCmdline("1000", "udhcpc-test"));
    EXPECT_EQ(0, ByCmdline("udhcpc-test", "2000"));
    EXPECT_EQ(0, ByCmdline("udhcpc-absent", "1000"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(FindProcess, ByCmdlineWithExceptions) {
    Capture log;
    const Sleeper sleeper("sleeper", {"udhcpc-test", "1000", "0.5"});
    const Sleeper other("sleeper2", {"udhcpc-test", "3000", "0.25"});
    EXPECT_EQ(other.Pid(), ByCmdline2("udhcpc-test", nullptr, " 1000"));
    EXPECT_EQ(sleeper.Pid(), ByCmdline2("udhcpc-test", nullptr, " 3000"));
    EXPECT_EQ(sleeper.Pid(), ByCmdline2("udhcpc-test", "0.5", "3000"));
    EXPECT_EQ(0, ByCmdline2("udhcpc-test", "0.5", "1000"));
    EXPECT_EQ(0, ByCmdline2("udhcpc-test", nullptr, "udhcpc"));
    EXPECT_TRUE(log.IsSilent());
}

TEST(FindProcess, CheckCmd) {
    Capture log;
    const Sleeper sleeper("udhcpd-test", {"x", "1000"});
    EXPECT_EQ(1, CheckCmdByPid(sleeper.Pid(), "udhcpd-test"));
    EXPECT_EQ(1, CheckCmdByPid(sleeper.Pid(), "dhcpd"));
    EXPECT_EQ(1, CheckCmdByPid(sleeper.Pid(), ""));
    EXPECT_EQ(0, CheckCmdByPid(sleeper.Pid(), "udhcpc"));
    EXPECT_EQ(0, CheckCmdByPid(sleeper.Pid(), "udhcpd-test\n"));
    EXPECT_TRUE(log.IsSilent());
    for (s32 pid : {999999, 0, -1, 2147483647}) {
        EXPECT_EQ(0, CheckCmdByPid(pid, "udhcpd"));
        EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid",
                            "can't find udhcpd in pid directory " + std::to_string(pid) + "!"));
    }
    EXPECT_EQ(-1, CheckCmdByPid(sleeper.Pid(), nullptr));
}

TEST(FindProcess, ProcessesThatComeAndGo) {
    // Whatever vanishes between the directory's entry and its file is passed over.
    std::atomic<bool> stop = false;
    std::thread spawner([&] {
        while (!stop) {
            const pid_t pid = fork();
            if (pid == 0) {
                _exit(0);
            }
            waitpid(pid, nullptr, 0);
        }
    });
    for (int i = 0; i < 200; i++) {
        EXPECT_EQ(0, ByName("no-such-name"));
        EXPECT_EQ(0, ByCmdline("no-such-command-line"));
    }
    stop = true;
    spawner.join();
}

// ---- A directory that looks like /proc ---------------------------------------------------------

char kFake[] = "/tmp/proc/";

void Fake(const std::string& entry, const std::string& file, const std::string& text) {
    WriteFile(kFake + entry + "/" + file, text);
}

TEST(FakeProc, OnlyTheFirstLineOfStatusCounts) {
    Fake("12", "status", "Name:\tinetd\nState:\tS (sleeping)\nudhcpd\n");
    EXPECT_EQ(12, ByName("inetd", kFake));
    EXPECT_EQ(12, ByName("Name:\tinetd", kFake));
    EXPECT_EQ(0, ByName("udhcpd", kFake));
    EXPECT_EQ(0, ByName("sleeping", kFake));
}

TEST(FakeProc, OnlyDirectoriesHaveAName) {
    WriteFile("/tmp/elsewhere/status", "inetd\n");
    WriteFile(std::string(kFake) + "13", "inetd\n");
    ASSERT_EQ(0, symlink("/tmp/elsewhere", "/tmp/proc/14"));
    EXPECT_EQ(0, ByName("inetd", kFake));
}

TEST(FakeProc, AnyEntryHasACmdline) {
    WriteFile("/tmp/elsewhere/cmdline", "inetd");
    ASSERT_EQ(0, mkdir("/tmp/proc", 0755));
    ASSERT_EQ(0, symlink("/tmp/elsewhere", "/tmp/proc/14"));
    EXPECT_EQ(14, ByCmdline("inetd", nullptr, kFake));
}

TEST(FakeProc, ThePathBringsItsSlash) {
    Fake("12", "status", "inetd\n");
    Fake("12", "cmdline", "inetd");
    EXPECT_EQ(12, ByName("inetd", "/tmp/proc/"));
    EXPECT_EQ(0, ByName("inetd", "/tmp/proc"));
    EXPECT_EQ(0, ByCmdline("inetd", nullptr, "/tmp/proc"));
    WriteFile("/tmp/proc12/status", "inetd\n");
    EXPECT_EQ(12, ByName("inetd", "/tmp/proc"));
}

TEST(FakeProc, StatusThatMayNotBeWrittenIsPassedOver) {
    Fake("12", "status", "inetd\n");
    ASSERT_EQ(0, mount("/tmp/proc/12", "/tmp/proc/12", nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0,
              mount(nullptr, "/tmp/proc/12", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr));
    EXPECT_EQ(0, ByName("inetd", kFake));
}

TEST(FakeProc, ANameThatIsNoNumberIsZero) {
    Fake("self", "cmdline", "inetd");
    EXPECT_EQ(0, ByCmdline("inetd", nullptr, kFake));
}

TEST(FakeProc, BytesBelow32AreBlanks) {
    Fake("12", "cmdline",
         std::string("a\0b\x01"
                     "c\td\ne\x1f"
                     "f\0",
                     13));
    EXPECT_EQ(12, ByCmdline("a b c d e f ", nullptr, kFake));
    Fake("12", "cmdline", "a\x7f\x80\xff z");  // Unsigned: these stay.
    EXPECT_EQ(12, ByCmdline("a\x7f\x80\xff z", nullptr, kFake));
}

TEST(FakeProc, TheFirst999BytesOfACmdlineCount) {
    Fake("12", "cmdline", std::string(990, 'x') + "123456789" + "inetd");
    EXPECT_EQ(12, ByCmdline("x123456789", nullptr, kFake));
    EXPECT_EQ(0, ByCmdline("9i", nullptr, kFake));
    EXPECT_EQ(0, ByCmdline("inetd", nullptr, kFake));
}

TEST(FakeProc, LongAndOddFiles) {
    Fake("12", "status", std::string(100000, 'x'));
    Fake("13", "status", std::string("in\0etd", 6));
    Fake("14", "status", "");
    Fake("15", "cmdline", "");
    Fake("16", "cmdline", std::string(100000, '\xff'));
    ASSERT_EQ(0, mkdir("/tmp/proc/17", 0755));
    ASSERT_EQ(0, mkdir("/tmp/proc/17/status", 0755));
    ASSERT_EQ(0, mkdir("/tmp/proc/17/cmdline", 0755));
    Fake(std::string(255, '9'), "cmdline", "many nines");
    EXPECT_EQ(0, ByName("inetd", kFake));
    EXPECT_EQ(12, ByName(std::string(1000, 'x').c_str(), kFake));
    EXPECT_EQ(0, ByName(std::string(1001, 'x').c_str(), kFake));
    EXPECT_EQ(0, ByCmdline("inetd", nullptr, kFake));
    ByCmdline("many nines", nullptr, kFake);  // No such process id; nothing to expect of it.
    EXPECT_EQ(0, ByCmdline2("inetd", nullptr, "x", kFake));
}

TEST(FakeProc, AnEmptyCmdlineMatchesNothing) {
    Fake("15", "cmdline", "");
    EXPECT_EQ(0, ByCmdline("a", nullptr, kFake));
    EXPECT_EQ(0, ByCmdline("", "a", kFake));
    EXPECT_EQ(15, ByCmdline("", nullptr, kFake));  // Except nothing.
}

TEST(FakeProc, ALongPath) {
    std::string path = "/tmp/proc";
    for (int i = 0; i < 1900; i++) {
        path += "/.";
    }
    path += "/";
    Fake("12", "status", "inetd\n");
    EXPECT_EQ(12, ByName("inetd", path.c_str()));
    const std::string tooLong(5000, '/');
    Capture log;
    EXPECT_EQ(-1, ByName("inetd", tooLong.c_str()));
    EXPECT_EQ(-1, ByCmdline("inetd", nullptr, tooLong.c_str()));
    // The directory can be opened, but there is no room for what is in it.
    std::string brim = "/tmp/proc";
    while (brim.size() < 4090) {
        brim += '/';
    }
    EXPECT_EQ(0, ByName("inetd", brim.c_str()));
    EXPECT_EQ(0, ByCmdline("inetd", nullptr, brim.c_str()));
}

TEST(FakeProc, NoDirectory) {
    Capture log;
    EXPECT_EQ(-1, ByName("x", "/tmp/absent/"));
    EXPECT_TRUE(log.Has(Kind::kError, "GetServicePid", "open direct error."));
    EXPECT_EQ(-1, ByCmdline("x", nullptr, "/tmp/absent/"));
    EXPECT_TRUE(log.Has(Kind::kError, "GetServicePidFromCmdline", "open direct error."));
    EXPECT_EQ(-1, ByCmdline2("x", nullptr, "y", "/tmp/absent/"));
    EXPECT_TRUE(log.Has(Kind::kError, "GetServicePidFromCmdline2", "open direct error."));
    log.Clear();
    EXPECT_EQ(-1, ByCmdline2("x", nullptr, nullptr, "/tmp/absent/"));
    EXPECT_TRUE(log.Has(Kind::kError, "GetServicePidFromCmdline2", "the pchExcept is !NULL"));
    EXPECT_EQ(1, log.Count(Kind::kError));
}

TEST(FakeProc, NullArguments) {
    char name[] = "x";
    EXPECT_EQ(-1, GetServicePid(nullptr, name));
    EXPECT_EQ(-1, GetServicePid(kFake, nullptr));
    EXPECT_EQ(-1, GetServicePidFromCmdline(nullptr, name, nullptr));
    EXPECT_EQ(-1, GetServicePidFromCmdline(kFake, nullptr, nullptr));
    EXPECT_EQ(-1, GetServicePidFromCmdline2(nullptr, name, nullptr, name));
    EXPECT_EQ(-1, GetServicePidFromCmdline2(kFake, nullptr, nullptr, name));
}

TEST(FakeProc, SearchesKeepNoDescriptors) {
    Fake("12", "status", "inetd\n");
    Fake("12", "cmdline", "inetd");
    const auto before = OpenDescriptors();
    for (int i = 0; i < 20; i++) {
        ByName("inetd", kFake);
        ByName("absent", kFake);
        ByCmdline("inetd", nullptr, kFake);
        ByCmdline2("inetd", nullptr, "inetd", kFake);
        CheckCmdByPid(getpid(), "x");
        CheckCmdByPid(999999, "x");
    }
    EXPECT_EQ(before, OpenDescriptors());
}

// Leaves the process so many more descriptors, for as long as it lives.
class FewDescriptors {
 public:
    explicit FewDescriptors(int count) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const int lowest = dup(STDIN_FILENO);
        close(lowest);
        const rlimit few = {static_cast<rlim_t>(lowest + count), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
    rlimit before_;
};

TEST(CheckCmd, WithoutDescriptors) {
    Capture log;
    VimbraLogPrint("The system log has its own.");
    log.Clear();
    {
        const FewDescriptors none(0);
        EXPECT_EQ(-1, CheckCmdByPid(getpid(), "x"));
    }
    EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid", "read dir error!"));
    EXPECT_EQ(1u, log.Syslog().size());
    log.Clear();
    {
        const FewDescriptors forTheDirectory(1);
        EXPECT_EQ(-1, CheckCmdByPid(getpid(), "x"));
    }
    EXPECT_TRUE(log.Has(Kind::kPerror, "CheckCmdByPid", "open file error:"));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid",
                        "open file error:[/proc/" + std::to_string(getpid()) + "/comm]!"));
    EXPECT_EQ(2u, log.Syslog().size());
}

// ---- CheckCmdByPid on a /proc of its own -------------------------------------------------------

class OtherProc {
 public:
    OtherProc() { EXPECT_EQ(0, mount("none", "/proc", "tmpfs", 0, nullptr)) << strerror(errno); }
    ~OtherProc() { EXPECT_EQ(0, umount("/proc")) << strerror(errno); }
};

TEST(CheckCmd, FilesThatFail) {
    Capture log;
    const OtherProc proc;
    ASSERT_EQ(0, mkdir("/proc/12", 0755));
    EXPECT_EQ(-1, CheckCmdByPid(12, "x"));
    EXPECT_TRUE(log.Has(Kind::kPerror, "CheckCmdByPid", "access file error:"));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid", "access file error:[/proc/12/comm]!"));
    log.Clear();
    WriteFile("/proc/12/comm", "");
    EXPECT_EQ(-1, CheckCmdByPid(12, "x"));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid", "read file error:[/proc/12/comm]!"));
    EXPECT_EQ(0, log.Count(Kind::kPerror));
    log.Clear();
    // Read by nobody: a directory opens, but is not read.
    ASSERT_EQ(0, unlink("/proc/12/comm"));
    ASSERT_EQ(0, mkdir("/proc/12/comm", 0755));
    EXPECT_EQ(-1, CheckCmdByPid(12, "x"));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid", "read file error:[/proc/12/comm]!"));
}

TEST(CheckCmd, AtMost50BytesOfTheFirstLine) {
    const OtherProc proc;
    WriteFile("/proc/12/comm", std::string(45, 'x') + "12345678");
    EXPECT_EQ(1, CheckCmdByPid(12, "x12345"));
    EXPECT_EQ(0, CheckCmdByPid(12, "x123456"));
    WriteFile("/proc/12/comm", "one\ntwo\n");
    EXPECT_EQ(1, CheckCmdByPid(12, "one"));
    EXPECT_EQ(0, CheckCmdByPid(12, "two"));
}

TEST(CheckCmd, TheWholeNumberIsCompared) {
    Capture log;
    const OtherProc proc;
    WriteFile("/proc/123/comm", "x\n");
    EXPECT_EQ(0, CheckCmdByPid(12, "x"));
    EXPECT_TRUE(log.Has(Kind::kError, "CheckCmdByPid", "can't find x in pid directory 12!"));
}

}  // namespace
}  // namespace vimbra::tests
