// Every allocation fails in its turn: the call says so, the files are as they were, and nothing is
// lost on the way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vimbra/vimbra.h>
// After the current interface.
#include <vimbra/list.h>
#include <vimbra/net.h>
#include <vimbra/thread.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/memory.hpp"
#include "../ground/processes.hpp"
#include "api/api_1x/api_dhcps/inotify_utils.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

constexpr char kPasswd[] = "root:x:0:0:::\nadmin:x:0:0:::\nguest:x:5:5:::\n";
constexpr char kInetd[] = "telnet stream tcp nowait root /sbin/telnetd x\na b c d e /f g\n";
constexpr char kResolv[] = "####eth0\nnameserver 1.1.1.1\n####eth1\nnameserver 2.2.2.2\n";

struct Operation {
    std::function<s32()> call;
    s32 refused;                     // what a call gives that found no memory
    std::vector<std::string> words;  // what is logged in one round or the other
};

class Memory : public testing::Test {
 protected:
    // Calls with the first, the second, ... allocation failing, until none does any more.
    void Run(const Operation& operation) {
        std::vector<std::string> seen;
        int rounds = 0;
        for (;; rounds++) {
            WriteFile("/etc/passwd", kPasswd);
            WriteFile("/etc/inetd.conf", kInetd);
            WriteFile("/etc/resolv.conf", kResolv);
            Capture log;
            t_failAt = rounds + 1;
            const s32 result = operation.call();
            const bool failed = t_failAt == 0;
            t_failAt = 0;
            for (const LogLine& line : log.Syslog()) {
                if (line.kind == Kind::kError || line.kind == Kind::kPerror) {
                    seen.push_back(line.text);
                }
            }
            if (!failed) {
                EXPECT_EQ(0, result);
                break;
            }
            EXPECT_EQ(operation.refused, result) << "allocation " << rounds;
            EXPECT_EQ(kPasswd, ReadFile("/etc/passwd"));
            EXPECT_EQ(kResolv, ReadFile("/etc/resolv.conf"));
            if (operation.refused != 0) {
                EXPECT_FALSE(seen.empty()) << "allocation " << rounds;
            }
        }
        EXPECT_LT(0, rounds);
        for (const std::string& text : operation.words) {
            EXPECT_THAT(seen, testing::Contains(text));
        }
    }
};

TEST_F(Memory, DnsSet) {
    char name[] = "eth0";
    TVimbraAddr server = {};
    server.wSinFamily = 2;
    Run({[&] { return VimbraDNSSet(name, 2, &server, 1); },
         -1,
         {"XMALLOC error", "ReadFromReslovconf error!", "SetDnsToList error!",
          "WriteToReslovconf error", "WriteToReslovconf error!"}});
}

TEST_F(Memory, DnsGet) {
    static TVimbraDnsAddrInfo info;
    Run({[] { return VimbraDNSGet(&info); }, -1, {"XMALLOC error", "ReadFromReslovconf error!"}});
}

TEST_F(Memory, AddUser) {
    char name[] = "new";
    Run({[&] { return VimbraAddNetUser(name, name); },
         -1,
         {"NetSetNetPwd error", "xstrdup error", "add_user_to_pwd_file error"}});
    Run({[&] { return NetAddNetCommonUser(name, name); },
         -1,
         {"NetSetNetPwd error", "xstrdup error", "add_user_to_pwd_file error", "write error!"}});
}

TEST_F(Memory, ModifyUser) {
    char name[] = "admin";
    Run({[&] { return VimbraModifyNetPwd(name, name); },
         -1,
         {"NetSetNetPwd error", "xstrdup error", "malloc error!", "creat list error!",
          "insert node to list error!", "modify_user_in_pwd_file error"}});
}

TEST_F(Memory, DeleteUser) {
    char name[] = "guest";
    Run({[&] {
             const FakeProcess inetd("inetd");
             return VimbraDelNetUser(name);
         },
         -1,
         {"the last root user is not removed!", "malloc error", "changeNetServiceOwner error!",
          "malloc error!", "creat list error!", "insert node to list error!",
          "delete_user_to_pwd_file error"}});
}

TEST_F(Memory, ServiceStart) {
    char name[] = "ssh";
    char proto[] = "tcp";
    TVimbraServInfo info = {name, 22, proto, nullptr};
    Run({[&] {
             const FakeProcess inetd("inetd");
             return VimbraServiceStart(&info);
         },
         -1,
         {"XMALLOC error", "pchContent malloc error", "CreateInetdList error!",
          "Write list to file error!", "Apic Net Service Start failed",
          "there is no root user, cannot start net service!"}});
}

// Kept: what cannot be read counts as stopped; only the writing can fail.
TEST_F(Memory, ServiceStop) {
    char name[] = "telnetd";
    WriteFile("/etc/inetd.conf", kInetd);
    for (const int failing : {0, 1, 2}) {
        Capture log;
        t_failAt = failing + 1;
        EXPECT_EQ(0, VimbraServiceStop(name));
        t_failAt = 0;
        EXPECT_TRUE(log.Has(Kind::kError, "VimbraServiceStop", "ReadFromInetdFile error"));
        EXPECT_EQ(kInetd, ReadFile("/etc/inetd.conf"));
    }
    t_failAt = 4;
    EXPECT_EQ(-1, VimbraServiceStop(name));
    t_failAt = 0;
    EXPECT_EQ(kInetd, ReadFile("/etc/inetd.conf"));
}

TEST_F(Memory, Bond) {
    ScriptedDaemon daemon;
    char path[] = "/tmp";
    BondParam legacy = {{0, 1, 2}, 3, 0, path};
    std::vector<std::string> seen;
    const char* const kWords[] = {
        "BondParam.pchBondPath malloc error", "BondParam.achIface malloc error",
        "BondParam.achIface malloc error", "BondParam.achIface malloc error",
        "BondParam.pchActiveIface malloc error"};
    for (int i = 0; i < 5; i++) {
        Capture log;
        t_failAt = i + 1;
        EXPECT_EQ(-1, NetBondStart(0, &legacy));
        t_failAt = 0;
        EXPECT_TRUE(log.Has(Kind::kError, "NetBondStart", kWords[i]));
    }
    Capture log;
    t_failAt = 6;
    EXPECT_EQ(1109, NetBondStart(0, &legacy));
    t_failAt = 0;
    EXPECT_TRUE(log.Has(Kind::kPerror, "ApicBondStart", "XMALLOC error:"));
    t_failAt = 1;
    EXPECT_EQ(-1, VimbraBondStop());
    t_failAt = 0;
    EXPECT_EQ(0u, daemon.Requests().size());
    EXPECT_EQ(0, NetBondStart(0, &legacy));
}

// They have no body of their own to find memory for: it is the transport that finds none.
TEST_F(Memory, RequestsWithoutBody) {
    ScriptedDaemon daemon;
    struct {
        s32 (*call)();
        const char* function;
        const char* text;
    } const cases[] = {
        {NetDhcpsStop, "ApicDhcpsStopAll", "send and recv msg error:-1!¥n"},
        {VimbraWebsDisable, "ApicWebDisable", "send and recv msg error, nRet = -1!"},
        {VimbraBondStop, "ApicBondStop", "send and recv msg error:-1!"},
    };
    for (const auto& one : cases) {
        Capture log;
        t_failAt = 1;
        EXPECT_EQ(-1, one.call());
        t_failAt = 0;
        EXPECT_TRUE(log.Has(Kind::kPerror, "IpcApiSendAndRecv", "XMALLOC error"));
        EXPECT_TRUE(log.Has(Kind::kError, one.function, one.text));
    }
    EXPECT_EQ(0u, daemon.Requests().size());
}

TEST_F(Memory, Requests) {
    ScriptedDaemon daemon;
    daemon.On(277, Answer::Body(Bytes(456)));
    char name[] = "eth0";
    static TVimbraDhcpsInfo pool;
    pool.tIpPoolStart.wSinFamily = pool.tIpPoolEnd.wSinFamily = pool.tRoutes.wSinFamily = 2;
    pool.dwIpPoolPrefix = 24;
    TVimbraDhcpsState state = {};
    Run({[] { return VimbraWebsEnable(80); }, -1, {"XMALLOC error"}});
    Run({[] { return VimbraWebsDisable(); }, -1, {"XMALLOC error"}});
    Run({[&] { return VimbraDhcpsStop(name, 2); }, -1, {"XMALLOC error"}});
    Run({[&] { return VimbraDhcpsGetState(name, 2, &state); }, -1, {"XMALLOC error"}});
    Run({[] { return NetDhcpsStop(); }, -1, {"XMALLOC error"}});
    t_failAt = 3;  // two for the question after the addresses
    EXPECT_EQ(1109, VimbraDhcpsStart(name, 2, &pool));
    t_failAt = 0;
    EXPECT_EQ(0, VimbraDhcpsStart(name, 2, &pool));
}

// The watcher goes with a line, the application stays.
TEST_F(Memory, LegacyDhcpServerStartsWithoutAWatcher) {
    Capture log;
    TDhcpServerConfInfo conf = {};
    t_failAt = 1;
    EXPECT_EQ(1105, NetDhcpsStart(&conf, nullptr))
        << "the configuration's fault, not the watcher's";
    EXPECT_EQ(0, t_failAt);
    t_failAt = 0;
    EXPECT_TRUE(log.Has(Kind::kPerror, "ThreadSpawn", "THREAD: spawn() malloc error"));
    EXPECT_EQ(0, log.Count(Kind::kError, "NetDhcpsStart"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDhcpsStart", "CheckDhcpsParam error!"));
}

TEST(MemoryOfQueues, WithoutMemoryTheProcessEnds) {
    EXPECT_EXIT(
        {
            t_failAt = 1;
            queue_create();
        },
        testing::ExitedWithCode(255), "");
}

TEST_F(Memory, LeaseWatcherEndsWithoutMemory) {
    constexpr char kLeases[] = "/usr/etc/udhcpd.leases";
    WriteFile(kLeases, std::string(44, '\0'));
    static char name[] = "watcher";
    const size_t threads = Threads();
    const auto watch = [](int failing) {
        // As NetDhcpsStart() starts it, with so many allocations left.
        ThreadSpawn(
            name,
            [](void* rounds) {
                t_failAt = 1 + static_cast<int>(reinterpret_cast<intptr_t>(rounds));
                VimbraDhcpsCBThread(nullptr);
            },
            reinterpret_cast<void*>(static_cast<intptr_t>(failing)), 0x200000, 0, 5);
    };
    {
        Capture log;
        watch(0);  // the queue
        EXPECT_TRUE(log.WaitFor(Kind::kPerror, "VimbraDhcpsCBThread", "XMALLOC error"));
        EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    }
    {
        Capture log;
        watch(1);  // the first event
        EXPECT_TRUE(WaitFor(
            [&] { return log.StdoutText().find("Watching = 1 items") != std::string::npos; }));
        std::ofstream(kLeases, std::ios::app) << "more";
        EXPECT_TRUE(log.WaitFor(Kind::kPerror, "read_events", "XMALLOC error"));
        EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    }
    for (const auto& [fd, target] : OpenDescriptors()) {
        EXPECT_EQ(std::string::npos, target.find("inotify")) << fd;
    }
}

// Nodes come from blocks, whose number of nodes nobody knows.
TEST_F(Memory, ListsStayAsTheyWere) {
    t_failAt = 1;
    EXPECT_EQ(nullptr, vimbra_g_list_append(nullptr, nullptr));
    EXPECT_EQ(0, t_failAt);
    GList* list = nullptr;
    size_t count = 0;
    for (t_failAt = 2; t_failAt > 0; count++) {
        list = vimbra_g_list_append(list, &count);
        ASSERT_EQ(list, vimbra_g_list_first(list));
    }
    const auto length = [&] {
        size_t nodes = 0;
        for (const GList* node = list; node != nullptr; node = node->next) {
            nodes++;
        }
        return nodes;
    };
    EXPECT_EQ(count - 1, length()) << "the last one found no memory";
    EXPECT_EQ(list, vimbra_g_list_append(list, &count));
    EXPECT_EQ(count, length());
}

}  // namespace

}  // namespace vimbra::tests
