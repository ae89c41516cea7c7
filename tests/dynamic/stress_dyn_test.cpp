// DHCP client, PPPoE and NTP client started, stopped, notified and failed from several threads at
// once, at random. What is looked for is what a sanitizer, a dead lock or a leak would tell.
#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>
#include <vimbra/log.h>
#include <vimbra/net_dhcpc.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/ntpc.h>
#include <vimbra/pppoe.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::array kNames = {"eth0", "eth1", "wlan0", "a-name-of-16-cha"};
constexpr std::array<u16, 2> kFamilies = {2, 10};
constexpr std::array<u16, 3> kPppoeFamilies = {2, 10, 11};

unsigned g_seed = 0;
std::atomic<unsigned> g_threads = 0;
std::atomic<unsigned long> g_calls = 0;
std::atomic<unsigned long> g_callbacks = 0;
constexpr unsigned long kLeastCalls = 100;
constexpr unsigned long kLeastCallbacks = 10;

std::mt19937& Random() {
    thread_local std::mt19937 random(g_seed + g_threads++);
    return random;
}

unsigned Below(unsigned bound) {
    return static_cast<unsigned>(Random()() % bound);
}

template <typename Values>
auto OneOf(const Values& values) {
    return values[Below(static_cast<unsigned>(values.size()))];
}

// A stopped DHCP client keeps its thread for ten seconds: starts are rationed, or there would be
// thousands.
class Ration {
 public:
    bool Take() {
        const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - begin_);
        return taken_.fetch_add(1) < 20 + elapsed.count() / 80 || (taken_--, false);
    }

 private:
    const Clock::time_point begin_ = Clock::now();
    std::atomic<long> taken_ = 0;
};

// ---- The application ---------------------------------------------------------------------------

void DhcpRead() {
    TVimbraDhcpcAddrInfo lease;
    VimbraDhcpcGetLeaseInfo(OneOf(kNames), OneOf(kFamilies), &lease);
}

int TakeDhcp(u32, VimbraDhcpcAddrInfo*) {
    g_callbacks++;
    if (Below(4) == 0) {
        DhcpRead();
    }
    if (Below(50) == 0) {
        VimbraDhcpcRenew(OneOf(kNames), OneOf(kFamilies));
    }
    return 0;
}

int TakeNetDhcp(u32, TNetDhcpcNotify* notify) {
    g_callbacks++;
    EXPECT_LE(notify->dwDnsNum, 64u);
    return 0;
}

void StartDhcp() {
    if (Below(8) == 0) {
        NetDhcpcStart(Below(2), TakeNetDhcp, 1);
    } else {
        VimbraDhcpcStart(OneOf(kNames), OneOf(kFamilies), TakeDhcp);
    }
}

void CallDhcp(Ration& ration) {
    switch (Below(8)) {
        case 0:
        case 1:
        case 2:
            if (ration.Take()) {
                StartDhcp();
            }
            break;
        case 3:
            VimbraDhcpcStop(OneOf(kNames), OneOf(kFamilies));
            break;
        case 4: {
            TVimbraDhcpcState state;
            EXPECT_EQ(0, VimbraDhcpcGetIfstate(OneOf(kNames), OneOf(kFamilies), &state));
            EXPECT_LE(state.dwDhcpcIsRun, 1u);
            break;
        }
        case 5:
            AndoridDhcpcRenew(OneOf(kNames), OneOf(kFamilies));
            break;
        default:
            DhcpRead();
            break;
    }
}

void CallPppoe();
void CallNtp();

// Callbacks that run, and whether they still are to call back. A stop of the clean-up calls back
// too, which must not start anything again.
std::atomic<int> g_running = 0;
std::atomic<bool> g_isOver = false;

struct Running {
    Running() { g_running++; }
    ~Running() { g_running--; }
};

void EndCallbacks() {
    g_isOver = true;
    EXPECT_TRUE(WaitFor([] { return g_running == 0; }));
}

// What a callback does at times.
void DoSomething() {
    switch (Below(12)) {
        case 0:
            CallPppoe();
            break;
        case 1:
            CallNtp();
            break;
        case 2:
            std::this_thread::sleep_for(milliseconds(Below(5)));
            break;
        default:
            break;
    }
}

void TakePppoe(u32, void*, u32) {
    const Running running;
    g_callbacks++;
    if (g_isOver) {
        return;
    }
    DoSomething();
}

int TakeNtp(u32, void* report) {
    const Running running;
    g_callbacks++;
    const auto* bytes = static_cast<const u8*>(report);
    EXPECT_EQ(0, bytes[VIMBRA_NTPC_REPORT_MAX - 1]);
    if (g_isOver) {
        return 0;
    }
    DoSomething();
    return 0;
}

void CallPppoe() {
    TVimbraPppoeParam param = {};
    param.achUserName[0] = param.achPassword[0] = param.achDevName[0] = 'x';
    switch (Below(6)) {
        case 0:
        case 1:
        case 2:
            VimbraPppoeStart(&param, OneOf(kPppoeFamilies), TakePppoe);
            break;
        case 3: {
            TPppoeInitParam init = {};
            init.abyUserName[0] = init.abyPassword[0] = 'x';
            NetPppoeStart(&init, TakePppoe);
            break;
        }
        case 4:
            NetPppoeStop();
            break;
        default:
            VimbraPppoeStop(nullptr, OneOf(kPppoeFamilies));
            break;
    }
}

void CallNtp() {
    TVimbraAddr server = {};
    server.wSinFamily = OneOf(kFamilies);
    server.tV4Addr.s_addr = 0x010200c0;
    switch (Below(5)) {
        case 0:
        case 1:
            VimbraNtpcStart(server, 1, TakeNtp);
            break;
        case 2:
            VimbraNtpcSerCheck(server);
            break;
        default:
            VimbraNtpcStop(server.wSinFamily);
            break;
    }
}

// ---- The daemon's side -------------------------------------------------------------------------

Answer Choose(const Request&) {
    switch (Below(20)) {
        case 0:
        case 1:
        case 2:
            return Answer::Code(static_cast<s32>(Below(3)) - 1);
        case 3:
            return Answer::Close();
        case 4:
            return Answer::Body({1, 2});
        case 5:
            std::this_thread::sleep_for(milliseconds(Below(4)));
            return Answer::Code(0);
        default:
            return Answer::Code(0);
    }
}

std::string SomeSocket() {
    switch (Below(8)) {
        case 0:
            return "ipc_pppoe";
        case 1:
            return "ipc_pppoe6";
        case 2:
            return "ipc_ntp";
        case 3:
            return "ipc_ntpv6";
        default:
            return std::string(Below(2) == 0 ? "ipc_dhcpc_" : "ipc_dhcpcv6_") + OneOf(kNames);
    }
}

Bytes SomeMessage(const std::string& socket) {
    if (socket.starts_with("ipc_dhcpc")) {
        // The name is the client's own most of the time; else it becomes another one.
        const std::string own = socket.substr(socket.find('_', 4) + 1);
        return Message(0x504 + Below(4), Pack()
                                             .Text(Below(10) == 0 ? OneOf(kNames) : own, 16)
                                             .Zeros(48)
                                             .U32(Below(3) == 0 ? 0xffffffff : 3)
                                             .FillTo(1348));
    }
    return Message(Below(7), Pack().FillTo(Below(2) == 0 ? 80 : Below(4000)));
}

void NotifySomebody() {
    const std::string socket = SomeSocket();
    Connection connection(socket);
    if (!connection.Connected()) {
        return;
    }
    Bytes message = SomeMessage(socket);
    // Short ones end listeners: not too often.
    if (Below(25) == 0) {
        message.resize(Below(static_cast<unsigned>(message.size()) + 1));
    } else if (Below(25) == 0) {
        message[4] ^= 1;
    }
    connection.Send(message);
    if (Below(4) == 0) {
        connection.EndSending();
    }
}

// ---- Putting it together -----------------------------------------------------------------------

// On a machine with other things to do it lasts until something has been done.
bool IsOver(Clock::time_point end) {
    const Clock::time_point now = Clock::now();
    return now >= end + kPatience ||
           (now >= end && g_calls > kLeastCalls && g_callbacks > kLeastCallbacks);
}

template <typename Work>
void RunUntil(Clock::time_point end, std::vector<std::thread>& threads, int count, Work work) {
    for (int i = 0; i < count; i++) {
        threads.emplace_back([=] {
            while (!IsOver(end)) {
                work();
                g_calls++;
            }
        });
    }
}

void StopPppoeAndNtp() {
    for (const u16 family : kPppoeFamilies) {
        EXPECT_EQ(0, VimbraPppoeStop(nullptr, family));
    }
    for (const u16 family : kFamilies) {
        EXPECT_EQ(0, VimbraNtpcStop(family));
    }
    for (const TPppoeInfo* info = g_ptApiPppoeInfo; info != nullptr; info = info->ptNext) {
        EXPECT_EQ(0, info->bPppoeStarted);
    }
}

// Every client is stopped, those that fell out of the list by a start of the same name.
void StopDhcp() {
    while (g_ptApiDhcpCInfo != nullptr) {
        const TDhcpcInfo* info = g_ptApiDhcpCInfo;
        while (info != nullptr && info->wSinfamily == 0) {
            info = info->ptNext;
        }
        if (info == nullptr) {
            break;
        }
        const std::string name(info->tDhcpcAddr.achDevName,
                               strnlen(info->tDhcpcAddr.achDevName, 16));
        EXPECT_EQ(0, VimbraDhcpcStop(name.c_str(), info->wSinfamily));
    }
    for (const u16 family : kFamilies) {
        for (const char* name : kNames) {
            EXPECT_EQ(0, VimbraDhcpcStart(name, family, TakeDhcp));
            EXPECT_EQ(0, VimbraDhcpcStop(name, family));
        }
    }
}

std::vector<std::string> OtherThreads() {
    std::vector<std::string> names = ThreadNames();
    std::erase_if(names,
                  [](const std::string& name) { return name.starts_with("VimbraDhcpcCBTh"); });
    return names;
}

void Stress(seconds duration) {
    g_seed = std::random_device()();
    std::cout << "seed " << g_seed << std::endl;
    PrepareSilently();
    ScriptedDaemon daemon;
    daemon.Default(Answer::By(Choose));
    Ration ration;
    const Clock::time_point end = Clock::now() + duration;
    std::vector<std::thread> threads;
    RunUntil(end, threads, 4, [&ration] {
        switch (Below(3)) {
            case 0:
                CallDhcp(ration);
                break;
            case 1:
                CallPppoe();
                break;
            default:
                CallNtp();
                break;
        }
    });
    RunUntil(end, threads, 3, NotifySomebody);
    RunUntil(end, threads, 1, [&daemon] {
        std::this_thread::sleep_for(milliseconds(50));
        daemon.Forget();
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EndCallbacks();
    EXPECT_LT(kLeastCalls, g_calls);
    EXPECT_LT(kLeastCallbacks, g_callbacks);
    std::cout << g_calls << " calls, " << g_callbacks << " callbacks" << std::endl;
    EXPECT_TRUE(daemon.WaitIdle());
}

struct Ground {
    Ground() { ScriptedDaemon warm; }
    std::map<int, std::string> descriptors = OpenDescriptors();
    size_t threads = Threads();
    std::vector<std::string> others = OtherThreads();
};

TEST(StressDyn, AFewSeconds) {
    const Ground before;
    Stress(seconds(4));
    ScriptedDaemon daemon;
    StopPppoeAndNtp();
    StopDhcp();
    EXPECT_TRUE(WaitFor([&] { return OtherThreads() == before.others; }))
        << testing::PrintToString(OtherThreads());
}

// Where no sanitizer looks on there is little to be seen.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr seconds kLong{60};
#else
constexpr seconds kLong{6};
#endif

TEST(StressDynSlow, AMinute) {
    const Ground before;
    Stress(kLong);
    {
        ScriptedDaemon daemon;
        StopPppoeAndNtp();
        StopDhcp();
    }
    EXPECT_TRUE(WaitFor([&] { return Threads() == before.threads; }, seconds(60)));
    EXPECT_EQ(before.descriptors, OpenDescriptors());
}

}  // namespace
}  // namespace vimbra::tests
