// NTP client: the semaphore that keeps the starts of all processes apart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/sem.h>
#include <vimbra/ntpc.h>

#include <atomic>
#include <thread>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"
#include "failed_accept.hpp"
#include "no_threads.hpp"
#include "ntpc.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::ElementsAre;

namespace {

TEST_F(Ntpc, InitMakesTheSemaphoreAndTwoClients) {
    EXPECT_THAT(Started(), ElementsAre("2=0", "10=0"));
    semid_ds set = {};
    ASSERT_EQ(0, semctl(Semaphore(), 0, IPC_STAT, &set));
    EXPECT_EQ(0666, set.sem_perm.mode & 0777);
    EXPECT_EQ(1u, set.sem_nsems);
    EXPECT_EQ(1, SemaphoreValue());
}

TEST_F(Ntpc, StartWaitsForTheSemaphore) {
    sembuf take = {0, -1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &take, 1));
    std::atomic<bool> started = false;
    std::thread starter([&] {
        EXPECT_EQ(0, Start(2));
        started = true;
    });
    EXPECT_TRUE(WaitFor([] { return semctl(Semaphore(), 0, GETNCNT) == 1; }));
    EXPECT_FALSE(started);
    EXPECT_FALSE(HasListener(kSocket));
    EXPECT_EQ(0u, daemon_.Connections());
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &give, 1));
    starter.join();
    EXPECT_EQ(1, SemaphoreValue());
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, SignalDoesNotLetAStartPass) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, nullptr));
    sembuf take = {0, -1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &take, 1));
    std::thread starter([] { EXPECT_EQ(0, Start(2)); });
    for (int i = 1; i <= 3; i++) {
        EXPECT_TRUE(WaitFor([] { return semctl(Semaphore(), 0, GETNCNT) == 1; }));
        pthread_kill(starter.native_handle(), SIGUSR2);
        EXPECT_TRUE(WaitFor(
            [&] { return log_.Count(Kind::kError, "semaphore_p", "semaphore_p error") == i; }));
    }
    EXPECT_EQ(0u, daemon_.Connections());
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &give, 1));
    starter.join();
    EXPECT_EQ(1, SemaphoreValue());
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, SemaphoreStaysTakenWithoutThread) {
    const auto descriptors = OpenDescriptors();
    {
        const NoThreads none;
        EXPECT_EQ(-1, Start(2, Never));
    }
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStart", "create ntpc callback thread failed!"));
    EXPECT_EQ(0, SemaphoreValue());
    EXPECT_EQ(0u, daemon_.Connections());
    EXPECT_EQ(descriptors, OpenDescriptors());
    // The lock is free.
    EXPECT_EQ(0, VimbraNtpcStop(2));
    // A start waits, until somebody else gives the semaphore back.
    std::thread starter([] { EXPECT_EQ(0, Start(2)); });
    EXPECT_TRUE(WaitFor([] { return semctl(Semaphore(), 0, GETNCNT) == 1; }));
    sembuf give = {0, 1, 0};
    ASSERT_EQ(0, semop(Semaphore(), &give, 1));
    starter.join();
    EXPECT_EQ(0, VimbraNtpcStop(2));
}

TEST_F(Ntpc, ListenerThatCannotBindLetsTheStarterGoOn) {
    ExpectUnboundEnds(log_, kThread, "ipc_ntp", [] { return Start(2); });
    EXPECT_EQ(1, SemaphoreValue());
    EXPECT_EQ(0, VimbraNtpcStop(2));
    EXPECT_TRUE(log_.Has(Kind::kError, "VimbraNtpcStop", "ntpc ThreadKill error!"));
}

}  // namespace
}  // namespace vimbra::tests
