#include "api/fork.hpp"

#include <pthread.h>

#include <cerrno>

#include "lib/ipc/listener.hpp"
#include "lib/log.hpp"
#include "lib/threads/thread.hpp"

namespace vimbra {

namespace {

using Forget = void (*)();
constexpr Forget kForget[] = {
    ForgetDhcpClients, ForgetConflictWatches, ForgetNtpClients,  ForgetPings,
    ForgetTraces,      ForgetPppoeLinks,      ForgetServiceLock, ForgetAdvertisementWatches,
    ForgetStatistics,  ForgetLeaseWatchers,
};

// In the order in which they are taken anyway.
void BeforeFork() {
    HoldInit();
    HoldListeners();
    HoldThreads();
    HoldSyslog();
}

void InParent() {
    ReleaseSyslog();
    ReleaseThreads();
    ReleaseListeners();
    ReleaseInit();
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
    ReleaseInit();
    errno = error;
}

}  // namespace

bool HandleForks() {
    static bool isHandled = false;  // With VimbraInit()'s lock held.
    if (!isHandled) {
        errno = pthread_atfork(BeforeFork, InParent, InChild);
        isHandled = errno == 0;
    }
    return isHandled;
}

}  // namespace vimbra
