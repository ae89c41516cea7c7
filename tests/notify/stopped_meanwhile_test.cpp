// A message that is on its way to the callback when its run is stopped: no callback is begun for it.
// Linked with -Wl,--wrap=recv and -Wl,--wrap=pthread_mutex_lock, so that the listener can be held
// behind the one call or before the other.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/ntpc.h>
#include <vimbra/ping.h>
#include <vimbra/pppoe.h>
#include <vimbra/router_advertise.h>
#include <vimbra/stat.h>
#include <vimbra/traceroute.h>

#include <atomic>
#include <cstring>
#include <ostream>
#include <thread>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

enum class Hold { kWhenRead, kBeforeTheNextLock };

// Who has received so many bytes at once is held; 0: nobody.
std::atomic<size_t> g_size = 0;
std::atomic<Hold> g_hold = Hold::kWhenRead;
Gate& g_gate = *new Gate;
thread_local bool t_hasRead = false;

}  // namespace

extern "C" {
ssize_t __real_recv(int fd, void* to, size_t size, int flags);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);

ssize_t __wrap_recv(int fd, void* to, size_t size, int flags) {
    const ssize_t count = __real_recv(fd, to, size, flags);
    if (count > 0 && static_cast<size_t>(count) == g_size) {
        if (g_hold == Hold::kWhenRead) {
            g_gate.Pass();
        } else {
            t_hasRead = true;
        }
    }
    return count;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (t_hasRead) {
        t_hasRead = false;
        g_gate.Pass();
    }
    return __real_pthread_mutex_lock(mutex);
}
}

namespace {

std::atomic<int> g_calls = 0;

struct Reporter {
    const char* name;
    Hold hold;
    const char* socket;
    u32 type;
    size_t held;  // bytes of the read after which it is held
    Bytes body;
    s32 (*start)();
    s32 (*stop)();
};

void PrintTo(const Reporter& reporter, std::ostream* out) {
    *out << reporter.name;
}

s32 StartPing() {
    static TVimbraPingOpt options = {56, 1, 64, 3};
    return VimbraPingStart(Address("192.0.2.1"), &options, 7,
                           [](s32, TVimbraPingCBInfo*) { return int(++g_calls); });
}

s32 StartTrace() {
    static TVimbraTracerouteOpt options = {30};
    return VimbraTracerouteStart(Address("192.0.2.1"), &options, 7,
                                 [](s32, TVimbraTracerouteCBInfo*) { return int(++g_calls); });
}

s32 StartPppoe() {
    TVimbraPppoeParam param = {};
    strcpy(param.achUserName, "user");
    strcpy(param.achPassword, "secret");
    strcpy(param.achDevName, "eth0");
    return VimbraPppoeStart(&param, 2, [](u32 event, void*, u32) {
        g_calls += event != VIMBRA_PPPOE_EVENT_STOPPED ? 1 : 0;
    });
}

char g_eth0[] = "eth0";

s32 StartAdvertisements() {
    return VimbraRouterAdvertiseStart(g_eth0, [](TVimbraRouterAdCb*) { g_calls++; });
}

s32 StartStatistics() {
    return VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { g_calls++; });
}

s32 StartConflicts() {
    return VimbraIpConflictCheckStart(
        2, [](EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) { g_calls++; });
}

s32 StartNtp() {
    return VimbraNtpcStart(Address("192.0.2.1"), 60, [](u32, void*) { return int(++g_calls); });
}

const Reporter kReporters[] = {
    {"Statistics", Hold::kBeforeTheNextLock, "ipc_stat", 0, 84, Bytes(72, 1), StartStatistics,
     [] { return VimbraStatStop(); }},
    {"Conflict", Hold::kBeforeTheNextLock, "ipc_ip_conflict", 1, 54, Bytes(42), StartConflicts,
     [] { return VimbraIpConflictCheckStop(2); }},
    {"Ping", Hold::kBeforeTheNextLock, "ipc_ping", 0, 32,
     Pack().U32(7).U32(64).U32(1).S32(1).S32(0), StartPing, [] { return VimbraPingStop(7); }},
    {"Traceroute", Hold::kBeforeTheNextLock, "ipc_traceroute", 101, 60,
     Pack().Address(2, "192.0.2.1").U32(1).S32(7).FillTo(48), StartTrace,
     [] { return VimbraTracerouteStop(7); }},
    {"Pppoe",
     Hold::kBeforeTheNextLock,
     "ipc_pppoe",
     4,
     12,
     {},
     StartPppoe,
     [] { return VimbraPppoeStop("eth0", 2); }},
    {"RouterAdvertisement", Hold::kBeforeTheNextLock, "ipc_router_notify", 0, 480, Bytes(468),
     StartAdvertisements, [] { return VimbraRouterAdvertiseStop(g_eth0); }},
    {"Ntp", Hold::kWhenRead, "ipc_ntp", 1, 40, Bytes(40), StartNtp,
     [] { return VimbraNtpcStop(2); }},
};

class StoppedMeanwhile : public Prepared, public testing::WithParamInterface<Reporter> {};

INSTANTIATE_TEST_SUITE_P(Services, StoppedMeanwhile, testing::ValuesIn(kReporters),
                         testing::PrintToStringParamName());

TEST_P(StoppedMeanwhile, NoCallbackIsBegun) {
    const Reporter& reporter = GetParam();
    const Level before;
    ASSERT_EQ(0, reporter.start());
    g_hold = reporter.hold;
    g_size = reporter.held;
    {
        Connection connection(reporter.socket);
        ASSERT_TRUE(connection.Send(Message(reporter.type, reporter.body)));
        ASSERT_TRUE(g_gate.WaitArrived());
        g_size = 0;
        // It may wait for the listener.
        std::thread stopper([&] { EXPECT_EQ(0, reporter.stop()); });
        EXPECT_TRUE(WaitForNoListener(reporter.socket));
        g_gate.Open();
        stopper.join();
    }
    before.ExpectBack();
    EXPECT_EQ(0, g_calls);
    // It can be used again.
    ASSERT_EQ(0, reporter.start());
    Connection again(reporter.socket);
    ASSERT_TRUE(again.Send(Message(reporter.type, reporter.body)));
    EXPECT_TRUE(WaitFor([] { return g_calls == 1; }));
    EXPECT_EQ(0, reporter.stop());
}

}  // namespace
}  // namespace vimbra::tests
