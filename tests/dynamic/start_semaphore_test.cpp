// The semaphores that keep starts apart, when semop(2) fails. Linked with -Wl,--wrap=semop.
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <vimbra/ntpc.h>
#include <vimbra/traceroute.h>

#include <atomic>
#include <cerrno>
#include <ostream>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// Which call fails, from 1 on, and why.
std::atomic<int> g_failing = 0;
std::atomic<int> g_error = 0;
std::atomic<int> g_calls = 0;

}  // namespace

extern "C" {
int __real_semop(int id, sembuf* operations, size_t count);
int __wrap_semop(int id, sembuf* operations, size_t count) {
    if (++g_calls == g_failing) {
        errno = g_error;
        return -1;
    }
    return __real_semop(id, operations, count);
}
}

namespace {

struct Starter {
    const char* name;
    key_t key;
    s32 (*start)();
    s32 (*stop)();
};

void PrintTo(const Starter& starter, std::ostream* out) {
    *out << starter.name;
}

TVimbraTracerouteOpt g_hops = {30};

const Starter kStarters[] = {
    {"Ntp", 7783,
     [] { return VimbraNtpcStart(Address("192.0.2.1"), 60, [](u32, void*) { return 0; }); },
     [] { return VimbraNtpcStop(2); }},
    {"Traceroute", 7784,
     [] {
         return VimbraTracerouteStart(Address("192.0.2.1"), &g_hops, 7,
                                      [](s32, TVimbraTracerouteCBInfo*) { return 0; });
     },
     [] { return VimbraTracerouteStop(7); }},
};

class StartSemaphore : public Prepared, public testing::WithParamInterface<Starter> {
 protected:
    static int Value() { return semctl(semget(GetParam().key, 1, 0), 0, GETVAL); }

    // A start and its stop.
    static void Run(int failing, int error) {
        g_calls = 0;
        g_error = error;
        g_failing = failing;
        EXPECT_EQ(0, GetParam().start());
        g_failing = 0;
        EXPECT_EQ(0, GetParam().stop());
    }
};

INSTANTIATE_TEST_SUITE_P(Services, StartSemaphore, testing::ValuesIn(kStarters),
                         testing::PrintToStringParamName());

TEST_P(StartSemaphore, AStartTakesItTwice) {
    Run(0, 0);
    EXPECT_EQ(4, g_calls);
    EXPECT_EQ(1, Value());
}

// It would let two starts pass at a time.
TEST_P(StartSemaphore, WhatWasNotTakenIsNotGivenBack) {
    for (const int error : {ENOMEM, EIDRM, EACCES}) {
        for (const int failing : {1, 3}) {
            Run(failing, error);
            EXPECT_EQ(1, Value()) << "call " << failing << ": " << error;
        }
    }
    EXPECT_EQ(6u, log_.Count(Kind::kError, "semaphore_p", "semaphore_p error"));
}

// Its starter would wait for itself.
TEST_P(StartSemaphore, WhatCouldNotBeGivenBackIsNotWaitedFor) {
    for (const int error : {ENOMEM, ERANGE}) {
        Run(2, error);
        EXPECT_EQ(1, Value()) << error;
    }
    EXPECT_EQ(2u, log_.Count(Kind::kError, "semaphore_v", "semaphore_v error"));
}

TEST_P(StartSemaphore, WhatIsStillHeldIsTheNextStarts) {
    Run(4, ENOMEM);
    EXPECT_EQ(0, Value());
    Run(0, 0);
    EXPECT_EQ(1, Value());
}

TEST_P(StartSemaphore, StartsGoOnWithoutIt) {
    ASSERT_EQ(0, semctl(semget(GetParam().key, 1, 0), 0, IPC_RMID));
    Run(0, 0);
    Run(0, 0);
}

}  // namespace
}  // namespace vimbra::tests
