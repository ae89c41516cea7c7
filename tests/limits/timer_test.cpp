// A timer's signal every 300 microseconds in the thread that makes the calls, without SA_RESTART:
// each call gives one of the results that its header lists, and works when the timer is gone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/time.h>
#include <vimbra/account.h>
#include <vimbra/common.h>
#include <vimbra/dns.h>
#include <vimbra/iface.h>
#include <vimbra/log.h>
#include <vimbra/process.h>
#include <vimbra/thread.h>

#include <array>
#include <atomic>
#include <csignal>
#include <functional>
#include <set>
#include <string>

#include "../ground/prepared.hpp"
#include "answerer.hpp"
#include "reporting.hpp"

namespace vimbra::tests {
namespace {

using testing::Contains;

constexpr int kRounds = 100;
constexpr char kPasswd[] = "/etc/passwd";
constexpr char kResolv[] = "/etc/resolv.conf";

std::atomic<unsigned> g_signals = 0;

class Timer {
 public:
    Timer() {
        struct sigaction action = {};
        action.sa_handler = [](int) { g_signals++; };
        EXPECT_EQ(0, sigaction(SIGALRM, &action, nullptr));
        const itimerval interval = {{0, 300}, {0, 300}};
        EXPECT_EQ(0, setitimer(ITIMER_REAL, &interval, nullptr));
    }
    ~Timer() {
        const itimerval none = {};
        EXPECT_EQ(0, setitimer(ITIMER_REAL, &none, nullptr));
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
};

class SignalEvery300Microseconds : public testing::Test {
 protected:
    void SetUp() override { PrepareSilently(); }

    // Under the timer until a signal has come; then without it.
    static void Expect(const std::set<s32>& results, const std::function<s32()>& call) {
        {
            const Timer timer;
            const unsigned before = g_signals;
            for (int i = 0; i < kRounds || g_signals < before + kRounds; i++) {
                EXPECT_THAT(results, Contains(call()));
            }
        }
        EXPECT_EQ(0, call());
    }

    const bench::Answerer daemon_;
};

// Nobody tells in time that a request was cut short; it fails, and the next one is asked anew.
TEST_F(SignalEvery300Microseconds, Requests) {
    char name[] = "eth0";
    Expect({0, -1}, [&] { return VimbraIfaceSetMtu(name, 2, 1400); });
    Expect({0, -1}, [&] {
        TVimbraIfaceAllIp addresses;
        return VimbraIfaceGetIp(name, 2, &addresses);
    });
    Expect({0, -1}, [] { return VimbraLogSwitch(0); });
}

// An editor knows no interruption: nothing that it does waits for anybody.
TEST_F(SignalEvery300Microseconds, Files) {
    const std::string accounts = "root:x:0:0:::\nguest:-:5:5:G:/g:/s\n";
    bed::WriteFile(kPasswd, accounts);
    char guest[] = "guest";
    char other[] = "other";
    char hash[] = "$1$abcdefgh$0123456789012345678901";
    char word[] = "a-password";
    Expect({0}, [&] {
        const s32 result = add_user_to_pwd_file(other, hash);
        return result == 0 ? del_user_from_pwd_file(other) : result;
    });
    EXPECT_EQ(accounts, bed::ReadFile(kPasswd));
    Expect({0}, [&] { return VimbraModifyNetPwd(guest, word); });
    EXPECT_THAT(bed::ReadFile(kPasswd), testing::StartsWith("root:x:0:0:::\nguest:$"));
    char name[] = "eth0";
    std::array<TVimbraAddr, 2> servers = {};
    servers[0].wSinFamily = servers[1].wSinFamily = 2;
    Expect({0}, [&] { return VimbraDNSSet(name, 2, servers.data(), servers.size()); });
    EXPECT_EQ("####eth0\nnameserver 0.0.0.0\nnameserver 0.0.0.0\n", bed::ReadFile(kResolv));
}

TEST_F(SignalEvery300Microseconds, Programs) {
    char program[] = "true";
    char* arguments[] = {program, nullptr};
    Expect({0}, [&] { return VimbraExecShellProcess(program, arguments, nullptr); });
    char said[16];
    Expect({0},
           [&] { return VimbraExecShellPrcPipe(program, arguments, said, sizeof(said), nullptr); });
    Expect({0}, [&] {
        char command[] = "echo said";
        const s32 result = VimbraExecCmdAndGetOutput(command, sizeof(command), said, sizeof(said));
        EXPECT_STREQ("said\n", said);
        return result;
    });
}

TEST_F(SignalEvery300Microseconds, Threads) {
    Expect({0}, [] {
        char name[] = "waited";
        const pthread_t thread = ThreadSpawn(
            name, [](void*) {}, nullptr, 0x20000, SCHED_OTHER, 0);
        EXPECT_NE(pthread_t{0}, thread);
        return ThreadWait(thread) == nullptr ? 0 : -1;
    });
}

// The threads of the services do not take the signal: whatever was started is served.
class ReportsEvery300Microseconds : public SignalEvery300Microseconds,
                                    public testing::WithParamInterface<Reporting> {};

TEST_P(ReportsEvery300Microseconds, StartsReportsAndStops) {
    const Reporting& service = GetParam();
    const Level before;
    {
        const Timer timer;
        const unsigned long calls = g_callbacks;
        for (int i = 0; i < (service.isDear ? 5 : kRounds); i++) {
            service.start();
            Report(service);
            service.stop();
        }
        EXPECT_TRUE(bed::WaitFor([&] {
            service.start();
            Report(service);
            return g_callbacks > calls;
        }));
    }
    EndAll({service});
    before.ExpectNoMore();
    const unsigned long calls = g_callbacks;
    EXPECT_EQ(0, service.start());
    EXPECT_TRUE(bed::WaitFor([&] { return Report(service) && g_callbacks > calls; }));
    EXPECT_EQ(0, service.stop());
    before.ExpectNoMore();
}

std::vector<Reporting> WithSockets() {
    std::vector<Reporting> all = AllReporting();
    std::erase_if(all, [](const Reporting& reporting) { return reporting.socket.empty(); });
    return all;
}

INSTANTIATE_TEST_SUITE_P(Slow, ReportsEvery300Microseconds, testing::ValuesIn(WithSockets()),
                         [](const auto& which) { return std::string(which.param.name); });

}  // namespace
}  // namespace vimbra::tests
