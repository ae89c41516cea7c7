// DHCP client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>
#include <vimbra/net_dhcpc.h>
#include <vimbra/thread.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "no_threads.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr u32 kStart = 0x501;
constexpr u32 kStop = 0x502;
constexpr u32 kLease = 0x505;
constexpr u32 kFail = 0x506;
constexpr u32 kRenew = 0x507;

constexpr char kName16[] = "a-name-of-16-cha";
constexpr char kName17[] = "a-name-of-17-char";

constexpr char kThreadV4[] = "DhcpcCBThreadV4";
constexpr char kThreadV6[] = "DhcpcCBThreadV6";

struct Event {
    u32 event;
    Bytes record;
    std::string thread;
};

// Never destroyed: listeners may outlive main().
Recorder<Event>& g_events = *new Recorder<Event>;

int Take(u32 event, VimbraDhcpcAddrInfo* info) {
    g_events.Add({event, AsBytes(*info), ThisThread()});
    return 7;
}

int TakeLegacy(u32 event, TNetDhcpcNotify* notify) {
    g_events.Add({event, AsBytes(*notify), ThisThread()});
    return 7;
}

int Never(u32, VimbraDhcpcAddrInfo*) {
    ADD_FAILURE() << "the wrong callback";
    return 0;
}

int NeverLegacy(u32, TNetDhcpcNotify*) {
    ADD_FAILURE() << "the wrong callback";
    return 0;
}

Bytes Body(u16 family, std::string_view name) {
    return Pack().U16(family).Text(name, 16);
}

// A lease of one DNS server; `count` is what it claims to have.
Bytes Lease(std::string_view name, u32 count = 1) {
    return Pack()
        .Text(name, 16)
        .Address(2, "192.0.2.10")
        .Address(2, "192.0.2.1")
        .U32(24)
        .U32(3600)
        .U32(count)
        .Address(2, "192.0.2.53")
        .FillTo(1348);
}

// The names and families of the list, as applications see it.
std::vector<std::string> Listed() {
    std::vector<std::string> names;
    for (const TDhcpcInfo* info = g_ptApiDhcpCInfo; info != nullptr; info = info->ptNext) {
        names.push_back(
            std::string(info->tDhcpcAddr.achDevName, strnlen(info->tDhcpcAddr.achDevName, 16)) +
            "/" + std::to_string(info->wSinfamily));
    }
    return names;
}

u32 State(const char* name, u16 family) {
    TVimbraDhcpcState state = {99};
    EXPECT_EQ(0, VimbraDhcpcGetIfstate(name, family, &state));
    return state.dwDhcpcIsRun;
}

// A process whose command line is `words`, until it is signalled.
class Process {
 public:
    explicit Process(std::vector<std::string> words) {
        words.push_back("1000");
        std::vector<char*> argv;
        // sleep(1) takes all of its arguments for times: the words go into the first.
        std::string joined;
        for (size_t i = 0; i + 1 < words.size(); i++) {
            joined += (i > 0 ? " " : "") + words[i];
        }
        argv = {joined.data(), words.back().data(), nullptr};
        char* environment[] = {nullptr};
        EXPECT_EQ(0, posix_spawn(&pid_, "/bin/sleep", nullptr, nullptr, argv.data(), environment));
        const std::string path = "/proc/" + std::to_string(pid_) + "/cmdline";
        EXPECT_TRUE(WaitFor([&] { return ReadFile(path).starts_with(joined); }));
    }
    ~Process() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Process(const Process&) = delete;

    // The signal that it got.
    int Wait() {
        int status = 0;
        EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
        pid_ = -1;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    bool Lives() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
    pid_t pid_ = -1;
};

using Dhcpc = Prepared;

// ---- Start -------------------------------------------------------------------------------------

TEST_F(Dhcpc, StartAsksTheDaemonOnceTheListenerStands) {
    bool listening = false;
    daemon_.On(kStart, Answer::Code(0).After(
                           [&](const Request&) { listening = HasListener("ipc_dhcpc_eth0"); }));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Body(2, "eth0")), daemon_.Requests()[0].raw);
    EXPECT_EQ(1u, daemon_.Requests()[0].reads);
    EXPECT_TRUE(listening);
    EXPECT_TRUE(log_.HasNoTrouble());
    for (const char* text : {"entering......", "the IfaceName : eth0, Family : 2",
                             "FamilyMapDhcpcInfo fail, malloc new!", "leaving......"}) {
        EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStart", text));
    }
    EXPECT_EQ(2, log_.Count(Kind::kPrint, "FamilyMapDhcpcInfoExt", "interface = , family = 0"));
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt", "the family 2,iface is eth0 , not found!"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_THAT(ThreadNames(), Contains(ThreadOf("VimbraDhcpcCBThreadV4")));
}

TEST_F(Dhcpc, Ipv6HasASocketAndAThreadOfItsOwn) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    ASSERT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Body(10, "eth0")), daemon_.Requests()[0].raw);
    EXPECT_TRUE(HasListener("ipc_dhcpcv6_eth0"));
    EXPECT_FALSE(HasListener("ipc_dhcpc_eth0"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV6, "server_path ipc_dhcpcv6_eth0"));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    ASSERT_EQ(1u, g_events.Count());
    EXPECT_EQ(ThreadOf("VimbraDhcpcCBThreadV6"), g_events.Events()[0].thread);
}

TEST_F(Dhcpc, BothFamiliesOfAnInterfaceRunSideBySide) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_EQ(2u, daemon_.Requests(kStart).size());
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 10));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_EQ(0u, State("eth0", 10));
}

TEST_F(Dhcpc, StartRefusesNamesThenTheCallback) {
    EXPECT_EQ(1105, VimbraDhcpcStart(nullptr, 2, Take));
    EXPECT_EQ(1105, VimbraDhcpcStart(kName17, 2, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraDhcpcStart", "pchIfaceName is invalid!"));
    EXPECT_EQ(1106, VimbraDhcpcStart("eth0", 2, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "the ptDhcpcCallBack is NULL!"));
    EXPECT_EQ(3, log_.Count(Kind::kError));
    EXPECT_EQ(3, log_.Count(Kind::kPrint, "VimbraDhcpcStart", "entering......"));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0"));
}

TEST_F(Dhcpc, NameOf16CharactersFillsItsField) {
    EXPECT_EQ(0, VimbraDhcpcStart(kName16, 2, Take));
    EXPECT_EQ(Body(2, kName16), daemon_.Requests()[0].body);
    const std::string socket = std::string("ipc_dhcpc_") + kName16;
    EXPECT_TRUE(Notify(socket, kLease, Lease(kName16)));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(1u, State(kName16, 2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt",
                         std::string("interface = ") + kName16 + ", family = 2"));
    EXPECT_EQ(0, VimbraDhcpcStop(kName16, 2));
    EXPECT_EQ(Body(2, kName16), daemon_.Requests(kStop)[0].body);
}

TEST_F(Dhcpc, EmptyNameIsAName) {
    EXPECT_EQ(0, VimbraDhcpcStart("", 2, Take));
    EXPECT_EQ(Body(2, ""), daemon_.Requests()[0].body);
    EXPECT_TRUE(HasListener("ipc_dhcpc_"));
    EXPECT_EQ(0, VimbraDhcpcStop("", 2));
}

TEST_F(Dhcpc, OtherFamiliesStartAnIpv6Listener) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 17, Take));
    EXPECT_TRUE(HasListener("ipc_dhcpcv6_eth0"));
    EXPECT_EQ(Body(17, "eth0"), daemon_.Requests()[0].body);
    EXPECT_EQ(1u, State("eth0", 17));
    EXPECT_EQ(0u, State("eth0", 10));
    // The two empty records are nobody's.
    EXPECT_EQ(0, VimbraDhcpcStart("", 0, Take));
    EXPECT_TRUE(HasListener("ipc_dhcpcv6_"));
    EXPECT_EQ(Body(0, ""), daemon_.Requests()[1].body);
    EXPECT_EQ(1105, VimbraDhcpcStop("eth0", 17));
    EXPECT_EQ(1105, VimbraDhcpcStop("", 0));
    EXPECT_EQ(1u, State("eth0", 17));
}

TEST_F(Dhcpc, RefusedStartIs1109AndForgotten) {
    daemon_.On(kStart, Answer::Code(22));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg error num : 22!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "ApicDhcpcStart error!"));
    EXPECT_EQ(2, log_.Count(Kind::kError));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "VimbraDhcpcStart", "leaving......"));
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    // The next start is a new one.
    daemon_.On(kStart, Answer::Code(0));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(2u, daemon_.Requests(kStart).size());
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, RefusedStartMovesTheHeadLikeAStop) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 2, Take));
    daemon_.Next(kStart, Answer::Code(1));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth2", 2, Take));
    EXPECT_THAT(Listed(), ElementsAre("eth1/2"));
}

TEST_F(Dhcpc, TransportFailureIs1109WithItsNumber) {
    daemon_.On(kStart, Answer::Raw(Pack().U32(kStart).U32(4).U32(0).U16(0)));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg return num : 14!"));
    EXPECT_EQ(0u, State("eth0", 2));
}

TEST_F(Dhcpc, DaemonThatClosesCountsAsDone) {
    daemon_.On(kStart, Answer::Close());
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(1u, State("eth0", 2));
}

TEST(DhcpcAlone, WithoutDaemonStartIs1109) {
    Capture log;
    EXPECT_EQ(0, VimbraInit());
    EXPECT_EQ(1109, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg return num : -1!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDhcpcStart", "ApicDhcpcStart error!"));
}

TEST(DhcpcAlone, WithoutInitTheListBeginsEmpty) {
    Capture log;
    ScriptedDaemon daemon;
    EXPECT_EQ(nullptr, g_ptApiDhcpCInfo);
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt", "no exist dhcp info!"));
    EXPECT_TRUE(log.Has(Kind::kError, "VimbraDhcpcStop", "FamilyMapDhcpcInfo error!"));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_THAT(Listed(), ElementsAre("eth0/2"));
    EXPECT_EQ(0, VimbraInit());
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0", "eth0/2"));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
}

TEST_F(Dhcpc, WithoutThreadStartFailsAndForgets) {
    const auto descriptors = OpenDescriptors();
    {
        const NoThreads none;
        EXPECT_EQ(-1, VimbraDhcpcStart("eth0", 2, Never));
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStart", "create dhcp callback thread failed!"));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "ThreadSpawn", "THREAD: spawn() thread create error\n",
                         Where::kSyslog));
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_THAT(Listed(), ElementsAre("/0"));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(1u, State("eth0", 2));
}

TEST_F(Dhcpc, StaleSocketFileIsReplaced) {
    { ScriptedDaemon stale("ipc_dhcpc_eth0"); }
    WriteFile("/tmp/ipc_dhcpc_eth0", "");
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, ListenerThatCannotBindEndsAndTheStartSucceeds) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_dhcpc_eth0", 0700));
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "MakeAddrServer", "bind error"));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kThreadV4, "select error"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(0u, State("eth0", 2));
    // It is there, though not started: only a stop removes it, and that asks nobody.
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "dhcpc 2 is not started!"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStop",
                         "find a ptDhcpcInfo object, but thread maybe not run, so remove it!"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStop", "leaving......"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
}

// ---- A second start ----------------------------------------------------------------------------

TEST_F(Dhcpc, SecondStartRenewsInsteadOfAsking) {
    Process client({"udhcpc", "-i", "eth0"});
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    log_.Clear();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_EQ(SIGUSR1, client.Wait());
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStart",
                         "interface eth0, family 2 dhcp has been started"));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, "VimbraDhcpcStart", "leaving......"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    // The first callback stays.
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, SecondStartSucceedsWithoutAProcess) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(log_.HasNoTrouble());
}

// ---- Stop --------------------------------------------------------------------------------------

TEST_F(Dhcpc, StopAsksTheDaemonAndForgets) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    log_.Clear();
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStop, Body(2, "eth0")), daemon_.Requests()[1].raw);
    EXPECT_TRUE(
        log_.Has(Kind::kPrint, "VimbraDhcpcStop", "the pchIfaceName : eth0, the wSinFamily : 2"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraDhcpcStop", "leaving......"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStop", "FamilyMapDhcpcInfo error!"));
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Dhcpc, StopChecksNameThenFamilyBeforeItLooks) {
    EXPECT_EQ(1105, VimbraDhcpcStop(nullptr, 2));
    EXPECT_EQ(1105, VimbraDhcpcStop(kName17, 7));
    for (const int family : {0, 1, 7, 11, 17, 65535}) {
        EXPECT_EQ(1105, VimbraDhcpcStop("eth0", static_cast<u16>(family)));
        EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStop",
                             "wSinFamily " + std::to_string(family) + " is invalid!"));
    }
    EXPECT_EQ(8, log_.Count(Kind::kError));
    EXPECT_EQ(0, log_.Count(Kind::kPrint));
    EXPECT_EQ(-1, VimbraDhcpcStop(kName16, 2));
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Dhcpc, RefusedStopLeavesTheClient) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    daemon_.Next(kStop, Answer::Code(5));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStop", "send and recv msg error num : 5!"));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcStop", "ApicDhcpcStop error!"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
}

TEST_F(Dhcpc, StartRightAfterAStopHasItsOwnListener) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, i < 4 ? Never : Take));
    }
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

// ---- The list ----------------------------------------------------------------------------------

TEST_F(Dhcpc, ListBeginsWithTwoEmptyRecords) {
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0"));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(2));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(2, "eth0"));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(0, ""));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 10, Take));
    EXPECT_THAT(Listed(), ElementsAre("/0", "/0", "eth0/2", "eth1/10"));
    const TDhcpcInfo* info = FamilyMapDhcpcInfoExt(10, "eth1");
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(1u, info->bDhcpcStarted);
    EXPECT_EQ(Take, info->pfNetDhcpcNotifyCallBack);
    EXPECT_EQ(0, info->nPid);
    EXPECT_NE(0u, info->DhcpcThreadID);
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(10, "eth0"));
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfoExt(2, nullptr));
    // Only the first two records are looked at.
    EXPECT_EQ(nullptr, FamilyMapDhcpcInfo(2));
}

TEST_F(Dhcpc, StoppingMovesTheHead) {
    for (const char* name : {"a", "b", "c", "d"}) {
        EXPECT_EQ(0, VimbraDhcpcStart(name, 2, Take));
    }
    EXPECT_EQ(0, VimbraDhcpcStop("c", 2));
    // The one before it is the first now, the one after it stays, the others are lost.
    EXPECT_THAT(Listed(), ElementsAre("b/2", "d/2"));
    EXPECT_EQ(1u, State("b", 2));
    EXPECT_EQ(0u, State("a", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("a", 2));
    EXPECT_EQ("b/2", Listed()[0]);
    EXPECT_EQ(FamilyMapDhcpcInfoExt(2, "b"), FamilyMapDhcpcInfo(2));
    // What was lost goes on.
    EXPECT_TRUE(Notify("ipc_dhcpc_a", kLease, Lease("a")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, StoppingTheSecondOfTwoKeepsTheFirst) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("eth1", 2));
    EXPECT_THAT(Listed(), ElementsAre("eth0/2"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(Dhcpc, StoppingTheHeadEmptiesTheList) {
    EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("b", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("b", 2));
    EXPECT_THAT(Listed(), ElementsAre("a/2", "c/2"));
    EXPECT_EQ(0, VimbraDhcpcStop("a", 2));
    EXPECT_THAT(Listed(), IsEmpty());
    EXPECT_EQ(nullptr, g_ptApiDhcpCInfo);
    log_.Clear();
    EXPECT_EQ(0u, State("c", 2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "FamilyMapDhcpcInfoExt", "no exist dhcp info!"));
    // It can be used again.
    EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
    EXPECT_THAT(Listed(), ElementsAre("c/2"));
    EXPECT_EQ(FamilyMapDhcpcInfoExt(2, "c"), FamilyMapDhcpcInfo(2));
}

// A client that fell out of the list is ended by the next of its name, once that one serves the
// socket in its place; not before.
TEST_F(Dhcpc, LostClientGoesOnWhenTheNextOfItsNameDoesNotBind) {
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(0, VimbraDhcpcStart(name, 2, Take));
    }
    const TDhcpcInfo* lost = FamilyMapDhcpcInfoExt(2, "a");
    EXPECT_EQ(0, VimbraDhcpcStop("c", 2));
    EXPECT_THAT(Listed(), ElementsAre("b/2"));
    const auto isStarted = [lost] {
        return __atomic_load_n(&lost->bDhcpcStarted, __ATOMIC_ACQUIRE) != 0;
    };
    {
        const NoThreads none;
        EXPECT_EQ(-1, VimbraDhcpcStart("a", 2, Never));
    }
    EXPECT_TRUE(isStarted());
    EXPECT_EQ(0, VimbraDhcpcStart("b", 2, Take));
    ASSERT_EQ(0, rename("/tmp/ipc_dhcpc_a", "/tmp/kept"));
    ASSERT_EQ(0, mkdir("/tmp/ipc_dhcpc_a", 0700));
    EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Never));
    EXPECT_TRUE(log_.WaitFor(Kind::kPerror, kThreadV4, "select error"));
    EXPECT_TRUE(isStarted());
    EXPECT_EQ(0, VimbraDhcpcStop("a", 2));
    ASSERT_EQ(0, rmdir("/tmp/ipc_dhcpc_a"));
    ASSERT_EQ(0, rename("/tmp/kept", "/tmp/ipc_dhcpc_a"));
    EXPECT_TRUE(Notify("ipc_dhcpc_a", kLease, Lease("a")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Take));
    EXPECT_FALSE(isStarted());
}

TEST_F(Dhcpc, ListenersAreDetachedFromTheirFirstStepOn) {
    for (const u16 family : {u16{2}, u16{10}}) {
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", family, Take));
        const pthread_t thread = FamilyMapDhcpcInfoExt(family, "eth0")->DhcpcThreadID;
        pthread_attr_t attributes;
        ASSERT_EQ(0, pthread_getattr_np(thread, &attributes));
        int state = PTHREAD_CREATE_JOINABLE;
        EXPECT_EQ(0, pthread_attr_getdetachstate(&attributes, &state));
        EXPECT_EQ(PTHREAD_CREATE_DETACHED, state);
        pthread_attr_destroy(&attributes);
        EXPECT_EQ(-1, ThreadDetach(thread));
        EXPECT_TRUE(
            Notify(family == 2 ? "ipc_dhcpc_eth0" : "ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30001u));
}

// ---- Reports -----------------------------------------------------------------------------------

TEST_F(Dhcpc, LeaseReachesTheCallbackAsItCame) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    const Bytes lease = Lease("eth0");
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, lease));
    ASSERT_EQ(1u, g_events.Count());
    EXPECT_EQ(30001u, g_events.Events()[0].event);
    EXPECT_EQ(lease, g_events.Events()[0].record);
    EXPECT_EQ(ThreadOf("VimbraDhcpcCBThreadV4"), g_events.Events()[0].thread);
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(lease, AsBytes(record));
    EXPECT_TRUE(log_.HasNoTrouble());
}

TEST_F(Dhcpc, BeforeTheFirstReportTheLeaseIsTheName) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(Pack().Text("eth0", 16).FillTo(1348), AsBytes(record));
}

TEST_F(Dhcpc, RepeatedFailureIsToldOnceUntilALease) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    for (const u32 type : {kFail, kFail, kFail, kLease, kFail, kFail, kLease, kLease}) {
        EXPECT_TRUE(Notify("ipc_dhcpc_eth0", type, Lease("eth0")));
    }
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u, 30001u, 30002u, 30001u, 30001u));
    EXPECT_EQ(3, log_.Count(Kind::kPrint, kThreadV4, "dhcp fail,do not report up layer again"));
}

TEST_F(Dhcpc, SuppressedFailureStillReplacesTheRecord) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kFail, Lease("eth0", 1)));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kFail, Lease("eth0", 2)));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 10, &record));
    EXPECT_EQ(2u, record.dwDnsNum);
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV6, "dhcp fail,do not report up layer again"));
}

TEST_F(Dhcpc, SuppressionIsEachClientsOwn) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth1", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kFail, Lease("eth0")));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth1", kFail, Lease("eth1")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30002u, 30002u));
}

TEST_F(Dhcpc, UnknownTypeIsLoggedAndItsRecordKept) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", 0xABCD0507, Lease("eth0", 3)));
    EXPECT_TRUE(log_.Has(Kind::kError, kThreadV4, "the unkonwn type = 0xabcd0507"));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(3u, record.dwDnsNum);
}

TEST_F(Dhcpc, ReportRenamesTheClient) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("wlan0")));
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_EQ(1u, State("wlan0", 2));
    EXPECT_EQ(-1, VimbraDhcpcStop("eth0", 2));
    EXPECT_EQ(0, VimbraDhcpcStop("wlan0", 2));
    EXPECT_EQ(Body(2, "wlan0"), daemon_.Requests(kStop)[0].body);
}

TEST_F(Dhcpc, NameWithoutTerminatorIsBounded) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    Bytes lease = Pack().Text(kName16, 16);
    lease.resize(1348, 0xff);
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, lease));
    EXPECT_EQ(1u, State(kName16, 2));
    EXPECT_EQ(lease, g_events.Events().at(0).record);
    EXPECT_EQ(0, VimbraDhcpcStop(kName16, 2));
}

TEST_F(Dhcpc, WrongSizeIsDropped) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    for (const u32 size : {0u, 1347u, 1349u, 0xffffffffu}) {
        EXPECT_TRUE(
            Notify("ipc_dhcpc_eth0", kLease, Lease("x"), {.size = size, .flag = 0, .wait = true}));
        EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("x"),
                           {.size = size, .flag = 0, .wait = true}));
    }
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
    EXPECT_EQ(4, log_.Count(Kind::kError, kThreadV4, "the read data is too long!"));
    EXPECT_EQ(4, log_.Count(Kind::kError, kThreadV6, "the sended data is too long!"));
    EXPECT_EQ(1u, State("eth0", 2));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u, 30001u));
}

TEST_F(Dhcpc, ShortReadEndsAnIpv4Listener) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Pack().Zeros(1347)));
    EXPECT_TRUE(log_.Has(Kind::kPerror, kThreadV4, "read message error"));
    EXPECT_TRUE(WaitForNoListener("ipc_dhcpc_eth0"));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }));
    EXPECT_EQ(descriptors, OpenDescriptors());
    // A client remains that nobody serves.
    EXPECT_EQ(0u, State("eth0", 2));
    EXPECT_THAT(Listed(), Contains("eth0/2"));
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcGetLeaseInfo",
                         "dhcpc 2 , interface eth0 ,is not started!"));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
    EXPECT_FALSE(HasListener("ipc_dhcpc_eth0"));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(HasListener("ipc_dhcpc_eth0"));
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Dhcpc, EveryShortReadEndsAnIpv4Listener) {
    for (const size_t size : {0u, 1u, 12u, 1359u}) {
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Never));
        {
            Connection connection("ipc_dhcpc_eth0");
            ASSERT_TRUE(connection.Connected());
            connection.Send(Message(kLease, Lease("eth0")).Slice(0, size));
            connection.EndSending();
            EXPECT_TRUE(connection.WaitPeerClosed());
        }
        EXPECT_TRUE(WaitFor([] { return State("eth0", 2) == 0; }));
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    }
    EXPECT_EQ(4, log_.Count(Kind::kPerror, kThreadV4, "read message error"));
}

TEST_F(Dhcpc, ShortReadLeavesAnIpv6Listener) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Pack().Zeros(1347)));
    {
        Connection connection("ipc_dhcpcv6_eth0");
        connection.EndSending();
        EXPECT_TRUE(connection.WaitPeerClosed());
    }
    EXPECT_EQ(2, log_.Count(Kind::kPerror, kThreadV6, "read message error"));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(Dhcpc, DnsCountIsHandedOnAsItCame) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0", 0xffffffff)));
    EXPECT_EQ(0xffffffffu, g_events.Events().at(0).record.U32(64));
    EXPECT_EQ(1348u, g_events.Events().at(0).record.size());
}

TEST_F(Dhcpc, CallbackMayRenewAndReadTheLease) {
    std::atomic<bool> done = false;
    g_events.InCallback([&] {
        TVimbraDhcpcAddrInfo record = {};
        EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
        EXPECT_EQ(Lease("eth0"), AsBytes(record));
        EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
        done = true;
    });
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_TRUE(done);
}

TEST_F(Dhcpc, CallsWaitForARunningCallback) {
    const Gate gate;
    g_events.InCallback([&] { gate.Pass(); });
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(
        Notify("ipc_dhcpc_eth0", kLease, Lease("eth0"), {.size = {}, .flag = 0, .wait = false}));
    ASSERT_TRUE(gate.WaitArrived());
    // These do without the lock.
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(0, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
    std::atomic<bool> stopped = false;
    std::thread stopper([&] {
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
        stopped = true;
    });
    EXPECT_TRUE(log_.WaitFor(Kind::kPrint, "VimbraDhcpcStop",
                             "the pchIfaceName : eth0, the wSinFamily : 2"));
    EXPECT_FALSE(stopped);
    EXPECT_EQ(0u, daemon_.Requests(kStop).size());
    gate.Open();
    stopper.join();
    EXPECT_EQ(1u, daemon_.Requests(kStop).size());
}

TEST_F(Dhcpc, ReportDuringTheStartRequestWaitsForIt) {
    daemon_.On(kStart, Answer::Code(0).After([&](const Request&) {
        EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0"),
                           {.size = {}, .flag = 0, .wait = false}));
    }));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_TRUE(WaitFor([] { return !g_events.Events().empty(); }));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

// ---- State and lease ---------------------------------------------------------------------------

TEST_F(Dhcpc, StateChecksItsArguments) {
    TVimbraDhcpcState state = {7};
    EXPECT_EQ(1105, VimbraDhcpcGetIfstate(nullptr, 2, &state));
    EXPECT_EQ(1105, VimbraDhcpcGetIfstate(kName17, 2, nullptr));
    EXPECT_EQ(2, log_.Count(Kind::kError, "LinuxNetDhcpcGetState", "pchIfaceName is invalid!"));
    EXPECT_EQ(1105, LinuxNetDhcpcGetState("eth0", 2, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcGetState", "ptNetdhcpcIfState is NULL!"));
    EXPECT_EQ(7u, state.dwDhcpcIsRun);
    log_.Clear();
    EXPECT_EQ(0, LinuxNetDhcpcGetState(kName16, 7, &state));
    EXPECT_EQ(0u, state.dwDhcpcIsRun);
    EXPECT_TRUE(log_.Has(Kind::kPrint, "LinuxNetDhcpcGetState",
                         std::string("not find ") + kName16 + "  family 7 dhcp info!"));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(0u, daemon_.Connections());
}

TEST_F(Dhcpc, LeaseChecksItsArguments) {
    TVimbraDhcpcAddrInfo record;
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo(nullptr, 2, &record));
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo(kName17, 2, &record));
    EXPECT_EQ(2, log_.Count(Kind::kError, "VimbraDhcpcGetLeaseInfo", "pchIfaceName is invalid!"));
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo("eth0", 2, nullptr));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "VimbraDhcpcGetLeaseInfo", "ptNetDhcpcLeaseInfo is NULL."));
    EXPECT_EQ(-1, VimbraDhcpcGetLeaseInfo("eth0", 2, &record));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraDhcpcGetLeaseInfo", "FamilyMapDhcpcInfo error!"));
}

// ---- Renewing ----------------------------------------------------------------------------------

TEST_F(Dhcpc, RenewSignalsTheFamilysProcess) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    Process other({"udhcpc", "-i", "eth1"});
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
    Process ipv4({"udhcpc", "-i", "eth0"});
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 10));
    EXPECT_EQ(0, VimbraDhcpcRenew("eth0", 2));
    EXPECT_EQ(SIGUSR1, ipv4.Wait());
    Process ipv6({"udhcpc6", "-i", "eth0"});
    EXPECT_EQ(0, VimbraDhcpcRenew("eth0", 10));
    EXPECT_EQ(SIGUSR1, ipv6.Wait());
    EXPECT_TRUE(other.Lives());
    EXPECT_EQ(2u, daemon_.Requests().size());
}

TEST_F(Dhcpc, RenewFailsWithItsReasons) {
    EXPECT_EQ(-1, VimbraDhcpcRenew(nullptr, 2));
    EXPECT_EQ(-1, LinuxNetDhcpcRenew(kName17, 2));
    EXPECT_EQ(2, log_.Count(Kind::kError, "LinuxNetDhcpcRenew", "pchIfaceName is invalid!"));
    EXPECT_EQ(-1, VimbraDhcpcRenew("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "FamilyMapDhcpcInfo error!"));
    EXPECT_EQ(0u, daemon_.Connections());
}

// A process that is gone when the signal comes.
TEST_F(Dhcpc, RenewTellsWhyTheSignalFailed) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    ASSERT_EQ(0, mount("none", "/proc", "tmpfs", 0, nullptr));
    ASSERT_EQ(0, mkdir("/proc/4194000", 0755));
    WriteFile("/proc/4194000/cmdline", std::string("udhcpc\0-i\0eth0", 14));
    EXPECT_EQ(-1, VimbraDhcpcRenew("eth0", 2));
    ASSERT_EQ(0, umount("/proc"));
    EXPECT_TRUE(log_.Has(Kind::kPerror, "LinuxNetDhcpcRenew", "kill dhcp error"));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "the dhcp pid is 4194000"));
}

TEST_F(Dhcpc, RenewNeedsADescriptorToLookForTheProcess) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const int lowest = dup(STDIN_FILENO);
    close(lowest);
    const rlimit few = {static_cast<rlim_t>(lowest), limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
    EXPECT_EQ(-1, VimbraDhcpcRenew("eth0", 2));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_TRUE(log_.Has(Kind::kError, "LinuxNetDhcpcRenew", "GetPidByName error!"));
    EXPECT_EQ(1108, VimbraDhcpcRenew("eth0", 2));
}

TEST_F(Dhcpc, RenewThroughTheDaemonNeedsNoClient) {
    EXPECT_EQ(0, AndoridDhcpcRenew("eth0", 2));
    EXPECT_EQ(0, AndoridDhcpcRenew(kName16, 10));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kRenew, Body(2, "eth0")), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kRenew, Body(10, kName16)), daemon_.Requests()[1].raw);
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_EQ(-1, AndoridDhcpcRenew(nullptr, 2));
    EXPECT_EQ(-1, AndoridDhcpcRenew(kName17, 2));
    EXPECT_EQ(2u, daemon_.Requests().size());
    daemon_.On(kRenew, Answer::Code(3));
    EXPECT_EQ(-1, AndoridDhcpcRenew("eth0", 2));
    EXPECT_TRUE(log_.Has(Kind::kError, "AndoridDhcpcRenew", "send and recv msg error num : 3!"));
}

// ---- The bare requests and checks --------------------------------------------------------------

TEST_F(Dhcpc, RequestsAlone) {
    TDhcpcInfo info = {};
    memcpy(info.tDhcpcAddr.achDevName, kName16, 16);
    info.wSinfamily = 7;
    EXPECT_EQ(0, ApicDhcpcStart(&info));
    EXPECT_EQ(0, ApicDhcpcStop(kName17, 10));
    ASSERT_EQ(2u, daemon_.Requests().size());
    EXPECT_EQ(Message(kStart, Body(7, kName16)), daemon_.Requests()[0].raw);
    EXPECT_EQ(Message(kStop, Body(10, "a-name-of-17-cha")), daemon_.Requests()[1].raw);
    EXPECT_EQ(-1, ApicDhcpcStart(nullptr));
    EXPECT_EQ(-1, ApicDhcpcStop(nullptr, 2));
    EXPECT_EQ(2u, daemon_.Requests().size());
    daemon_.Default(Answer::Code(-1));
    EXPECT_EQ(-1, ApicDhcpcStart(&info));
    EXPECT_TRUE(log_.Has(Kind::kError, "ApicDhcpcStart", "send and recv msg error num : -1!"));
}

TEST_F(Dhcpc, CheckFamilyTellsWhich) {
    EXPECT_EQ(0, CheckFamily(2));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "CheckFamily", "the family type is ipv4!"));
    EXPECT_EQ(0, CheckFamily(10));
    EXPECT_TRUE(log_.Has(Kind::kPrint, "CheckFamily", "the family type is ipv6!"));
    for (const int family : {0, 11, 65535}) {
        EXPECT_EQ(-1, CheckFamily(static_cast<u16>(family)));
    }
    EXPECT_EQ(3, log_.Count(Kind::kError, "CheckFamily", "the family type is not ipv4 and ipv6!"));
}

// ---- Legacy ------------------------------------------------------------------------------------

using NetDhcpc = Dhcpc;

TEST_F(NetDhcpc, LeaseIsConverted) {
    EXPECT_EQ(0, NetDhcpcStart(2, TakeLegacy, 1));
    EXPECT_EQ(Body(2, "eth2"), daemon_.Requests()[0].body);
    EXPECT_TRUE(Notify("ipc_dhcpc_eth2", kLease, Lease("eth2")));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth2", kFail, Lease("eth2", 0)));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth2", 0x507, Lease("eth2", 0)));
    ASSERT_THAT(g_events.Kinds(), ElementsAre(30001u, 30002u));
    EXPECT_EQ(Pack()
                  .U32(0)
                  .In4("192.0.2.10")
                  .U32(24)
                  .In4("192.0.2.1")
                  .U32(1)
                  .In4("192.0.2.53")
                  .FillTo(276),
              g_events.Events()[0].record);
    EXPECT_EQ(Pack().U32(0).In4("192.0.2.10").U32(24).In4("192.0.2.1").FillTo(276),
              g_events.Events()[1].record);
    EXPECT_EQ(0, NetDhcpcStop(2));
    EXPECT_EQ(Body(2, "eth2"), daemon_.Requests(kStop)[0].body);
}

TEST_F(NetDhcpc, DnsCountIsBounded) {
    Pack lease;
    lease.Text("eth0", 16).Address(2, "192.0.2.10").Address(2, "192.0.2.1").U32(24).U32(60);
    EXPECT_EQ(0, NetDhcpcStart(0, TakeLegacy, 0));
    for (const u32 count : {63u, 64u, 65u, 0xffffffffu}) {
        Pack full = lease;
        full.U32(count);
        for (int i = 0; i < 64; i++) {
            full.Address(2, ("198.51.100." + std::to_string(i)).c_str());
        }
        EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, full));
    }
    ASSERT_EQ(4u, g_events.Count());
    EXPECT_EQ(63u, g_events.Events()[0].record.U32(16));
    EXPECT_EQ(0u, g_events.Events()[0].record.U32(20 + 63 * 4));
    for (int i = 1; i < 4; i++) {
        EXPECT_EQ(64u, g_events.Events()[i].record.U32(16));
        EXPECT_EQ(Pack().In4("198.51.100.63"), g_events.Events()[i].record.Slice(20 + 63 * 4, 4));
        EXPECT_EQ(276u, g_events.Events()[i].record.size());
    }
}

TEST_F(NetDhcpc, SecondStartReplacesTheCallback) {
    EXPECT_EQ(0, NetDhcpcStart(0, NeverLegacy, 0));
    EXPECT_EQ(0, NetDhcpcStart(0, TakeLegacy, 0));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_EQ(1u, g_events.Count());
}

TEST_F(NetDhcpc, NullCallbackIsNobody) {
    EXPECT_EQ(0, NetDhcpcStart(0, nullptr, 0));
    EXPECT_EQ(1u, daemon_.Requests().size());
    EXPECT_TRUE(Notify("ipc_dhcpc_eth0", kLease, Lease("eth0")));
    EXPECT_TRUE(log_.HasNoTrouble());
    EXPECT_THAT(g_events.Kinds(), IsEmpty());
}

TEST_F(NetDhcpc, StartAndStopTakeAnyNumber) {
    for (const auto& [number, name] :
         std::vector<std::pair<u32, const char*>>{{0, "eth0"},
                                                  {3, "eth3"},
                                                  {0x7fffffff, "eth2147483647"},
                                                  {0xffffffff, "eth-1"},
                                                  {0x80000000, "eth-2147483648"}}) {
        daemon_.Forget();
        EXPECT_EQ(0, NetDhcpcStart(number, TakeLegacy, 0));
        EXPECT_EQ(0, NetDhcpcStop(number));
        ASSERT_EQ(2u, daemon_.Requests().size());
        EXPECT_EQ(Body(2, name), daemon_.Requests()[0].body);
        EXPECT_EQ(Body(2, name), daemon_.Requests()[1].body);
    }
}

TEST_F(NetDhcpc, OtherCallsKnowThreeNumbers) {
    TNetDhcpcLeaseBuffer buffer;
    TNetDhcpcState state;
    EXPECT_EQ(1201, NetDhcpcRenew(3));
    EXPECT_EQ(1201, NetDhcpcGetLeaseInfo(3, &buffer.tLegacy));
    EXPECT_EQ(1201, NetDhcpcGetIfstate(0xffffffff, &state));
    for (const char* function : {"NetDhcpcRenew", "NetDhcpcGetLeaseInfo", "NetDhcpcGetIfstate"}) {
        EXPECT_TRUE(log_.Has(Kind::kError, function, "NetDhcpcRenew interface_name failed"));
    }
}

TEST_F(NetDhcpc, StateLeaseAndRenewAreTheCurrentOnes) {
    TNetDhcpcState state = {9};
    EXPECT_EQ(0, NetDhcpcGetIfstate(1, &state));
    EXPECT_EQ(0u, state.dwDhcpcIsRun);
    EXPECT_EQ(-1, NetDhcpcRenew(1));
    EXPECT_EQ(0, NetDhcpcStart(1, TakeLegacy, 0));
    EXPECT_EQ(0, NetDhcpcGetIfstate(1, &state));
    EXPECT_EQ(1u, state.dwDhcpcIsRun);
    EXPECT_EQ(1105, NetDhcpcGetIfstate(1, nullptr));
    EXPECT_EQ(1108, NetDhcpcRenew(1));
    EXPECT_TRUE(Notify("ipc_dhcpc_eth1", kLease, Lease("eth1")));
    TNetDhcpcLeaseBuffer buffer = {};
    EXPECT_EQ(0, NetDhcpcGetLeaseInfo(1, &buffer.tLegacy));
    EXPECT_EQ(Lease("eth1"), AsBytes(buffer.tLease));
    EXPECT_EQ(-1, NetDhcpcGetLeaseInfo(1, nullptr));
}

// ---- The ten seconds ---------------------------------------------------------------------------

using DhcpcSlow = Dhcpc;

constexpr std::chrono::seconds kLongPatience(60);

TEST_F(DhcpcSlow, StoppedListenersEndWithinTheTimeOut) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 10));
    EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    daemon_.On(kStart, Answer::Code(1));
    EXPECT_EQ(1109, VimbraDhcpcStart("eth1", 2, Take));
    // Not before.
    EXPECT_EQ(threads + 3, Threads());
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }, kLongPatience));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV4, "thread will exit, interface eth0, family 2"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV6, "thread will exit, interface eth0, family 10"));
    EXPECT_TRUE(log_.Has(Kind::kPrint, kThreadV4, "thread will exit, interface eth1, family 2"));
    EXPECT_EQ(1, log_.Count(Kind::kPrint, kThreadV6, "wait time out!"));
    EXPECT_EQ(0, log_.Count(Kind::kPrint, kThreadV4, "wait time out!"));
}

TEST_F(DhcpcSlow, StartedListenersOutliveTheTimeOut) {
    EXPECT_EQ(0, VimbraDhcpcStart("eth0", 10, Take));
    EXPECT_TRUE(
        log_.WaitFor(Kind::kPrint, kThreadV6, "wait time out!", Where::kBoth, kLongPatience));
    EXPECT_EQ(1u, State("eth0", 10));
    EXPECT_TRUE(Notify("ipc_dhcpcv6_eth0", kLease, Lease("eth0")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
}

TEST_F(DhcpcSlow, ManyStartsAndStopsLeaveNothing) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(0, VimbraDhcpcStart("eth0", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStop("eth0", 2));
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }, kLongPatience));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

// Who fell out of the list cannot be stopped, but ends when it is replaced.
TEST_F(DhcpcSlow, LostClientsDoNotPileUp) {
    const size_t threads = Threads();
    const auto descriptors = OpenDescriptors();
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(0, VimbraDhcpcStart("a", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStart("b", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStop("b", 2));
        EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
        EXPECT_EQ(0, VimbraDhcpcStop("a", 2));  // c is lost with it.
        EXPECT_THAT(Listed(), IsEmpty());
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads + 1; }, kLongPatience));
    EXPECT_TRUE(Notify("ipc_dhcpc_c", kLease, Lease("c")));
    EXPECT_THAT(g_events.Kinds(), ElementsAre(30001u));
    EXPECT_EQ(0, VimbraDhcpcStart("c", 2, Take));
    EXPECT_EQ(0, VimbraDhcpcStop("c", 2));
    EXPECT_TRUE(WaitFor([&] { return Threads() == threads; }, kLongPatience));
    EXPECT_EQ(descriptors, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
