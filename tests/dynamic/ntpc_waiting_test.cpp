// NTP client: calls that come while a stop waits for a callback. Linked with
// -Wl,--wrap=pthread_cond_wait, which tells that a call waits.
#include <gtest/gtest.h>
#include <pthread.h>
#include <vimbra/ntpc.h>

#include <atomic>
#include <thread>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

Gate& g_calling = *new Gate;
thread_local bool t_opens = false;
std::atomic<int> g_calls = 0;

}  // namespace

extern "C" {
int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    if (t_opens) {
        t_opens = false;
        g_calling.Open();
    }
    return __real_pthread_cond_wait(condition, mutex);
}
}

namespace {

class NtpcWaiting : public Prepared {};

s32 Start(VimBraNtpcSyncTimeCallBack callback) {
    return VimbraNtpcStart(Address("192.0.2.1"), 60, callback);
}

// The stop that is under way may be waiting for the callback; whoever else comes waits for the stop.
TEST_F(NtpcWaiting, AStartWaitsForTheStopAndACallbackDoesNot) {
    const Level before;
    EXPECT_EQ(0, Start([](u32, void*) {
                  g_calling.Pass();
                  EXPECT_EQ(0, VimbraNtpcStop(2));
                  return int(++g_calls);
              }));
    {
        Connection connection("ipc_ntp");
        ASSERT_TRUE(connection.Send(Message(1, Bytes(40))));
        ASSERT_TRUE(g_calling.WaitArrived());
        std::thread stopper([] { EXPECT_EQ(0, VimbraNtpcStop(2)); });
        EXPECT_TRUE(WaitForNoListener("ipc_ntp"));
        std::thread starter([] {
            t_opens = true;
            EXPECT_EQ(0, Start([](u32, void*) { return int(g_calls += 10); }));
        });
        stopper.join();
        starter.join();
    }
    EXPECT_EQ(1, g_calls);
    EXPECT_TRUE(log_.Has(Kind::kPrint, "VimbraNtpcStop", "ntpc-Client is already stoped"));
    EXPECT_TRUE(Notify("ipc_ntp", 1, Bytes(40)));
    EXPECT_EQ(11, g_calls);
    EXPECT_EQ(0, VimbraNtpcStop(2));
    before.ExpectBack();
}

}  // namespace
}  // namespace vimbra::tests
