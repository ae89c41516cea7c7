#include "api/fork.hpp"

#include <cerrno>

#include "api/forget.hpp"
#include "lib/files/pw_salt.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/log.hpp"
#include "lib/threads/thread.hpp"

namespace vimbra {

namespace {

using Forget = void (*)();
constexpr Forget kForget[] = {
    ForgetDhcpClients, ForgetConflictWatches, ForgetNtpClients,  ForgetPings,
    ForgetTraces,      ForgetPppoeLinks,      ForgetServiceLock, ForgetAdvertisementWatches,
    ForgetStatistics,  ForgetLeaseWatchers,   ForgetHashing,
};

pthread_mutex_t* g_ptInitMutex = nullptr;  // Set once, before there is a handler.

// In the order in which they are taken anyway.
void BeforeFork() {
    pthread_mutex_lock(g_ptInitMutex);
    HoldListeners();
    HoldThreads();
    HoldSyslog();
}

void InParent() {
    ReleaseSyslog();
    ReleaseThreads();
    ReleaseListeners();
    pthread_mutex_unlock(g_ptInitMutex);
}

// The listeners go first: they lie in the services' records.
void InChild() {
    const int error = errno;
    ReleaseSyslog();
    ForgetThreads();
    ForgetListeners();
    for (const Forget forget : kForget) {
        forget();
    }
    pthread_mutex_unlock(g_ptInitMutex);
    errno = error;
}

}  // namespace

bool HandleForks(pthread_mutex_t& init) {
    g_ptInitMutex = &init;
    errno = pthread_atfork(BeforeFork, InParent, InChild);
    return errno == 0;
}

}  // namespace vimbra
