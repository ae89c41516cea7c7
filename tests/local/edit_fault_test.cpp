// Every editor of a file is killed at each of its calls, and has each of them fail, be interrupted
// and fall short. The file holds the old content or the new one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/wait.h>
#include <vimbra/account.h>
#include <vimbra/dns.h>
#include <vimbra/log.h>
#include <vimbra/service.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/injector.hpp"
#include "../ground/processes.hpp"
#include "files.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kPasswd[] = "/etc/passwd";
constexpr char kInetd[] = "/etc/inetd.conf";
constexpr char kInetdElsewhere[] = "/usr/config/system/inetd.conf";
constexpr char kResolv[] = "/etc/resolv.conf";

// Null stands for a file that is not there.
using Content = std::optional<std::string>;
using Contents = std::map<std::string, Content>;

struct Edit {
    const char* name;
    std::function<s32()> call;
    Contents before;
    Contents after;
    // Each failure is told by -1, and a success by 0. Services may be switched on or off and not
    // be told of it; an account may stay although its services have a new owner.
    bool isTold = true;
    // Where the file is changed in the second place because the first cannot be opened.
    Contents elsewhere = {};
};

void PrintTo(const Edit& edit, std::ostream* out) {
    *out << edit.name;
}

Content ContentOf(const std::string& path) {
    return access(path.c_str(), F_OK) == 0 ? Content(ReadFile(path)) : Content();
}

Contents Now(const Edit& edit) {
    Contents now;
    for (const auto& [path, content] : edit.before) {
        now[path] = ContentOf(path);
    }
    return now;
}

void Prepare(const Edit& edit) {
    for (const auto& [path, content] : edit.before) {
        Remove(path);
        if (content) {
            WriteFile(path, *content);
        }
    }
}

// The new content before a longer old one has been cut off.
Content Uncut(const std::string& path, const Content& before, const Content& after) {
    if (!before || !after || before->size() <= after->size()) {
        return after;
    }
    std::string filler(before->size() - after->size(), path == kResolv ? '\n' : '#');
    if (!after->empty() && after->back() != '\n') {
        filler.front() = '\n';
    }
    return *after + filler;
}

char g_name[] = "guest";
char g_new[] = "new";
char g_hash[] = "$1$abcdefgh$0123456789012345678901";
char g_short[] = "-";
char g_owner[] = "admin";
char g_long[] = "administrator";
char g_eth[] = "eth0";
char g_telnetd[] = "telnetd";
char g_tcp[] = "tcp";

constexpr char kAccounts[] = "root:x:0:0:::\nguest:hash:5:5:G:/g:/s\nadmin:x:0:0:A:/a:/bin/sh\n";
constexpr char kServices[] =
    "# comment\ntelnet stream tcp nowait root /sbin/telnetd x\na b c d e /f g\n";
constexpr char kServers[] =
    "# comment\n####eth0v6\nnameserver ::1\nnameserver ::2\n"
    "####eth0\nnameserver 1.1.1.1\n####eth1\nnameserver 2.2.2.2\n";

s32 SetServers(u16 family, size_t count) {
    static TVimbraAddr servers[3];
    for (TVimbraAddr& server : servers) {
        server = {};
        server.wSinFamily = family;
    }
    return VimbraDNSSet(g_eth, family, servers, static_cast<u32>(count));
}

s32 StartTelnetd() {
    TVimbraServInfo info = {g_telnetd, 23, g_tcp, nullptr};
    return VimbraServiceStart(&info);
}

constexpr char kTelnetLine[] =
    "telnet\tstream\ttcp\tnowait\troot\t/sbin/telnetd\t/sbin/telnetd -i  \n";

const Edit kEdits[] = {
    {"AddUser",
     [] { return add_user_to_pwd_file(g_new, g_hash); },
     {{kPasswd, kAccounts}},
     {{kPasswd, std::string(kAccounts) + "new:" + g_hash + ":0:0:tolvane:/h:/s\n"}}},
    {"AddUserWhereTheNewlineLacks",
     [] { return add_user_to_pwd_file(g_new, g_hash); },
     {{kPasswd, "root:x:0:0:::"}},
     {{kPasswd, std::string("root:x:0:0:::\nnew:") + g_hash + ":0:0:tolvane:/h:/s\n"}}},
    {"AddFirstUser",
     [] { return add_user_to_pwd_file(g_new, g_hash); },
     {{kPasswd, std::nullopt}},
     {{kPasswd, std::string("new:") + g_hash + ":0:0:tolvane:/h:/s\n"}}},
    {"AddCommonUser",
     [] { return add_common_user_to_pwd_file(g_new, g_hash); },
     {{kPasswd, kAccounts}},
     {{kPasswd, std::string(kAccounts) + "new:" + g_hash + ":1000:1000::/:/s\n"}}},
    {"ModifyToALongerHash",
     [] { return modify_user_in_pwd_file(g_name, g_hash); },
     {{kPasswd, kAccounts}},
     {{kPasswd, std::string("root:x:0:0:::\nguest:") + g_hash +
                    ":5:5:G:/g:/s\nadmin:x:0:0:A:/a:/bin/sh\n"}}},
    {"ModifyToAShorterHash",
     [] { return modify_user_in_pwd_file(g_name, g_short); },
     {{kPasswd, kAccounts}},
     {{kPasswd, "root:x:0:0:::\nguest:-:5:5:G:/g:/s\nadmin:x:0:0:A:/a:/bin/sh\n"}}},
    {"ModifyWhereTheNewlineLacks",
     [] { return modify_user_in_pwd_file(g_name, g_short); },
     {{kPasswd, "root:x:0:0:::\nguest:hash:5:5:G:/g:/s"}},
     {{kPasswd, "root:x:0:0:::\nguest:-:5:5:G:/g:/s"}}},
    {"DeleteLine",
     [] { return del_user_from_pwd_file(g_name); },
     {{kPasswd, kAccounts}},
     {{kPasswd, "root:x:0:0:::\nadmin:x:0:0:A:/a:/bin/sh\n"}}},
    {"DeleteOnlyLine",
     [] { return del_user_from_pwd_file(g_name); },
     {{kPasswd, "guest:hash:5:5:G:/g:/s\n"}},
     {{kPasswd, ""}}},
    {"DeleteUser",
     [] { return VimbraDelNetUser(g_name); },
     {{kPasswd, kAccounts}, {kInetd, kServices}},
     {{kPasswd, "root:x:0:0:::\nadmin:x:0:0:A:/a:/bin/sh\n"},
      {kInetd, "telnet stream tcp nowait root /sbin/telnetd x\n\na b c d root /f g\n\n"}},
     false},
    {"ChangeOwner",
     [] { return ChangeNetServiceOwner(g_owner); },
     {{kInetd, kServices}},
     {{kInetd, "telnet stream tcp nowait admin /sbin/telnetd x\n\na b c d admin /f g\n\n"}}},
    {"ChangeOwnerToALongerName",
     [] { return ChangeNetServiceOwner(g_long); },
     {{kInetd, kServices}},
     {{kInetd,
       "telnet stream tcp nowait administrator /sbin/telnetd x\n\n"
       "a b c d administrator /f g\n\n"}}},
    // The file is read in one place and made in the other: an empty one would hide it.
    {"ChangeOwnerElsewhere",
     [] { return ChangeNetServiceOwner(g_owner); },
     {{kInetd, std::nullopt}, {kInetdElsewhere, "a b c d e /f g\n"}},
     {{kInetd, "a b c d admin /f g\n\n"}, {kInetdElsewhere, "a b c d e /f g\n"}},
     true,
     {{kInetd, std::nullopt}, {kInetdElsewhere, "a b c d admin /f g\n\n"}}},
    {"StartService",
     StartTelnetd,
     {{kPasswd, kAccounts}, {kInetd, "# comment\na b c d e /f g\n"}},
     {{kPasswd, kAccounts}, {kInetd, std::string("a b c d e /f g\n#telnetd\n") + kTelnetLine}},
     false},
    {"StartServiceWithoutALongComment",
     StartTelnetd,
     {{kPasswd, kAccounts}, {kInetd, "#" + std::string(200, 'c') + "\n" + kServices}},
     {{kPasswd, kAccounts}, {kInetd, std::string(kTelnetLine) + "a b c d e /f g\n"}},
     false},
    {"StartServiceElsewhere",
     StartTelnetd,
     {{kPasswd, kAccounts}, {kInetd, std::nullopt}, {kInetdElsewhere, "a b c d e /f g\n"}},
     {{kPasswd, kAccounts},
      {kInetd, std::string("a b c d e /f g\n#telnetd\n") + kTelnetLine},
      {kInetdElsewhere, "a b c d e /f g\n"}},
     false,
     {{kPasswd, kAccounts},
      {kInetd, std::nullopt},
      {kInetdElsewhere, std::string("a b c d e /f g\n#telnetd\n") + kTelnetLine}}},
    {"StopService",
     [] { return VimbraServiceStop(g_telnetd); },
     {{kInetd, kServices}},
     {{kInetd, "# comment\na b c d e /f g\n"}},
     false},
    {"SetServers",
     [] { return SetServers(2, 3); },
     {{kResolv, kServers}},
     {{kResolv,
       "####eth0v6\nnameserver ::1\nnameserver ::2\n"
       "####eth0\nnameserver 0.0.0.0\nnameserver 0.0.0.0\nnameserver 0.0.0.0\n"
       "####eth1\nnameserver 2.2.2.2\n"}}},
    {"SetServersOfIpv6",
     [] { return SetServers(10, 1); },
     {{kResolv, kServers}},
     {{kResolv,
       "####eth0v6\nnameserver ::\n####eth0\nnameserver 1.1.1.1\n####eth1\nnameserver 2.2.2.2\n"}}},
    {"ClearServers",
     [] { return SetServers(2, 0); },
     {{kResolv, kServers}},
     {{kResolv,
       "####eth0v6\nnameserver ::1\nnameserver ::2\n####eth0\n####eth1\nnameserver 2.2.2.2\n"}}},
    {"ClearServersOfIpv6",
     [] { return SetServers(10, 0); },
     {{kResolv, kServers}},
     {{kResolv, "####eth0v6\n####eth0\nnameserver 1.1.1.1\n####eth1\nnameserver 2.2.2.2\n"}}},
};

class EditFault : public testing::TestWithParam<Edit> {
 protected:
    void SetUp() override {
        VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
        setenv("HOME", "/h", 1);
        setenv("SHELL", "/s", 1);
        signal(SIGHUP, SIG_IGN);  // for the one that is to be told
        inetd_.emplace("inetd");
        signal(SIGHUP, SIG_DFL);
    }

    const Edit& The() const { return GetParam(); }

    // Nothing was lost, nothing half done, and the result tells what was done.
    void ExpectWhole(s32 result) const {
        const Contents now = Now(The());
        if (now == The().elsewhere) {
            EXPECT_EQ(0, result);
            return;
        }
        for (const auto& [path, content] : now) {
            EXPECT_THAT(content, testing::AnyOf(The().before.at(path), The().after.at(path)))
                << path;
        }
        if (The().isTold) {
            EXPECT_EQ(result == 0 ? The().after : The().before, now);
        }
    }

    std::optional<FakeProcess> inetd_;
};

INSTANTIATE_TEST_SUITE_P(All, EditFault, testing::ValuesIn(kEdits),
                         [](const auto& param) { return std::string(param.param.name); });

// Kills the call at each of its calls in turn, and looks at what it left.
void KillAtEach(const Edit& edit, const std::function<void(Injector&)>& arrange,
                const std::function<void()>& look) {
    for (size_t number = 1;; number++) {
        Prepare(edit);
        const pid_t child = fork();
        if (child == 0) {
            Injector injector;
            arrange(injector);
            injector.KillAt(number);
            edit.call();
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        SCOPED_TRACE("call " + std::to_string(number));
        if (WIFEXITED(status)) {
            EXPECT_LT(4u, number);
            EXPECT_EQ(edit.after, Now(edit));
            return;
        }
        ASSERT_EQ(SIGKILL, WTERMSIG(status));
        look();
    }
}

TEST_P(EditFault, KilledAtEachCall) {
    std::set<Contents> seen;
    KillAtEach(
        The(), [](Injector&) {},
        [&] {
            const Contents now = Now(The());
            seen.insert(now);
            for (const auto& [path, content] : now) {
                const Content& before = The().before.at(path);
                const Content& after = The().after.at(path);
                EXPECT_THAT(content, testing::AnyOf(before, after, Uncut(path, before, after)))
                    << path;
            }
        });
    EXPECT_TRUE(seen.contains(The().before));
    EXPECT_TRUE(seen.contains(The().after)) << "killed when all was done";
}

TEST_P(EditFault, EachCallFails) {
    for (size_t number = 1;; number++) {
        Prepare(The());
        Injector injector;
        injector.FailAt(number);
        const s32 result = The().call();
        injector.Stop();
        SCOPED_TRACE(injector.Failed() + ", call " + std::to_string(number));
        EXPECT_EQ(0u, injector.Blocks());
        EXPECT_TRUE(injector.Descriptors().empty());
        if (injector.Failed().empty()) {
            EXPECT_EQ(0, result);
            EXPECT_EQ(The().after, Now(The()));
            break;
        }
        ExpectWhole(result);
    }
}

TEST_P(EditFault, ACallFailsForGood) {
    for (const char* call : {"pread", "pwrite", "write", "ftruncate", "fallocate", "linkat"}) {
        Prepare(The());
        Injector injector;
        injector.FailEvery(call);
        const s32 result = The().call();
        injector.Stop();
        SCOPED_TRACE(call);
        ExpectWhole(result);
    }
}

TEST_P(EditFault, InterruptedCallsAreRepeated) {
    const std::set<std::string> kRepeated = {"open",  "pread",     "pwrite",
                                             "write", "ftruncate", "fallocate"};
    std::set<std::string> seen;
    for (size_t number = 1;; number++) {
        Prepare(The());
        Injector injector;
        injector.FailAt(number);
        injector.UseError(EINTR);
        const s32 result = The().call();
        injector.Stop();
        const std::string failed = injector.Failed();
        if (failed.empty()) {
            break;
        }
        if (kRepeated.contains(failed)) {
            seen.insert(failed);
            if (The().isTold) {
                EXPECT_EQ(0, result) << failed << ", call " << number;
            }
            EXPECT_EQ(The().after, Now(The())) << failed << ", call " << number;
        }
    }
    EXPECT_TRUE(seen.contains("open"));
    EXPECT_TRUE(seen.contains("write") || seen.contains("pwrite"));
}

TEST_P(EditFault, ShortWritesAreContinued) {
    Prepare(The());
    Injector injector;
    injector.onWrite = [](size_t size) { return static_cast<ssize_t>((size + 1) / 2); };
    EXPECT_EQ(0, The().call());
    injector.Stop();
    EXPECT_EQ(The().after, Now(The()));
}

// As on a disk that is full of a sudden, and that has its room again for the old content.
TEST_P(EditFault, AShortWriteIsTakenBack) {
    for (const int error : {ENOSPC, EIO}) {
        for (const size_t taken : {size_t{1}, size_t{10}, size_t{30}}) {
            Prepare(The());
            int writes = 0;
            Injector injector;
            injector.onWrite = [&](size_t size) -> ssize_t {
                writes++;
                errno = error;
                return writes == 1   ? static_cast<ssize_t>(std::min(taken, size))
                       : writes == 2 ? -1
                                     : static_cast<ssize_t>(size);
            };
            const s32 result = The().call();
            injector.Stop();
            ExpectWhole(result);
        }
    }
}

// Nobody knows why, but nothing was written, so it is a failure and not tried for ever.
TEST_P(EditFault, AWriteThatTakesNothingFails) {
    Prepare(The());
    Injector injector;
    injector.onWrite = [](size_t) { return 0; };
    const s32 result = The().call();
    injector.Stop();
    EXPECT_NE(0, result);
    ExpectWhole(result);
}

// Each has its own word for it.
TEST_P(EditFault, WhereTheFileSystemReservesNoRoom) {
    for (const int error : {EOPNOTSUPP, EINVAL, ENOSYS}) {
        Prepare(The());
        Injector injector;
        injector.FailEvery("fallocate");
        injector.UseError(error);
        const s32 result = The().call();
        injector.Stop();
        EXPECT_EQ(0, result);
        ExpectWhole(result);
    }
}

// On file systems that can neither reserve room nor make a file without a name only the name of a
// file that is made comes too early.
TEST_P(EditFault, WhereTheFileSystemKnowsLess) {
    const auto knowsLess = [](Injector& injector) {
        injector.FailEvery("fallocate");
        injector.UseError(EOPNOTSUPP);
        injector.onOpen = [](const char*, int flags) {
            errno = EOPNOTSUPP;
            return (flags & O_TMPFILE) == O_TMPFILE ? -1 : Injector::kReal;
        };
    };
    KillAtEach(The(), knowsLess, [&] {
        for (const auto& [path, content] : Now(The())) {
            const Content& before = The().before.at(path);
            const Content& after = The().after.at(path);
            EXPECT_THAT(content, testing::AnyOf(before.value_or(""), before, after,
                                                Uncut(path, before, after)))
                << path;
        }
    });
    for (size_t number = 1;; number++) {
        Prepare(The());
        Injector injector;
        knowsLess(injector);
        injector.FailAt(number);
        const s32 result = The().call();
        injector.Stop();
        if (injector.Calls().size() < number) {
            break;
        }
        SCOPED_TRACE(injector.Failed() + ", call " + std::to_string(number));
        ExpectWhole(result);
    }
}

// ---- What readers make of a content that was not cut -------------------------------------------

TEST(EditUncut, LoginsPassOverTheFiller) {
    for (const size_t length : {size_t{1}, size_t{2}, size_t{40}}) {
        for (const std::string last : {"guest:x:5:5:G:/g:/s\n", "guest:x:5:5:G:/g:/s"}) {
            std::string filler(length, '#');
            filler.front() = last.back() == '\n' ? '#' : '\n';
            WriteFile(kPasswd, "root:x:0:0:::\n" + last + filler);
            std::vector<std::string> seen;
            FILE* stream = fopen(kPasswd, "r");
            while (const passwd* entry = fgetpwent(stream)) {
                seen.push_back(std::string(entry->pw_name) + " " + entry->pw_shell);
            }
            fclose(stream);
            EXPECT_EQ((std::vector<std::string>{"root ", "guest /s"}), seen);
            EXPECT_EQ(VIMBRA_USER_ONE, check_user_in_pwd_file(g_name));
            EXPECT_EQ(0, add_user_to_pwd_file(g_new, g_hash));
            EXPECT_EQ(VIMBRA_USER_ONE, check_user_in_pwd_file(g_new));
            EXPECT_EQ(0, modify_user_in_pwd_file(g_name, g_hash));
            EXPECT_EQ(0, del_user_from_pwd_file(g_name));
            EXPECT_EQ(VIMBRA_USER_NONE, check_user_in_pwd_file(g_name));
        }
    }
}

TEST(EditUncut, ResolversPassOverEmptyLines) {
    WriteFile(kResolv, "####eth0\nnameserver 1.2.3.4\n" + std::string(300, '\n'));
    static TVimbraDnsAddrInfo info;
    EXPECT_EQ(0, VimbraDNSGet(&info));
    EXPECT_EQ(1u, info.dwDnsNum);
    EXPECT_EQ(0, SetServers(10, 0));
    EXPECT_EQ("####eth0v6\n####eth0\nnameserver 1.2.3.4\n", ReadFile(kResolv));
}

TEST(EditUncut, TheNextStartDropsAComment) {
    WriteFile(kPasswd, kAccounts);
    WriteFile(kInetd, "a b c d e /f g\n" + std::string(300, '#'));
    StartTelnetd();
    EXPECT_EQ(std::string("a b c d e /f g\n#telnetd\n") + kTelnetLine, ReadFile(kInetd));
}

}  // namespace
}  // namespace vimbra::tests
