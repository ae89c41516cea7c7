#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <csignal>
#include <initializer_list>

#include "lib/lock.hpp"
#include "lib/log.hpp"
#include "lib/memory.hpp"

using namespace vimbra;

namespace {

// What a thread is started with; its own until it ends.
struct StartRecord {
    char* name;
    void (*proc)(void*);
    void* param;
    int policy;
    int priority;
};

enum class State {
    kJoinable,
    kDetached,
    kJoining,   // somebody waits for it
    kFinished,  // nobody has waited for it yet, so its handle is still its own
};

// Every thread that was started here and whose handle is still its own. The C library gives a
// handle away again, and what it does with one that has gone is undefined.
struct Entry {
    Entry* next;
    pthread_t handle;
    State state;
    bool ended;  // has nothing more to do but return
    StartRecord* record;
};

pthread_mutex_t g_tThreadMutex = PTHREAD_MUTEX_INITIALIZER;
Entry* g_ptThreads = nullptr;

// With the table locked. A thread that has ended while somebody waits for it may have passed its
// handle on already.
Entry* Find(pthread_t handle) {
    for (Entry* entry = g_ptThreads; entry != nullptr; entry = entry->next) {
        if (pthread_equal(entry->handle, handle) != 0 &&
            !(entry->ended && entry->state == State::kJoining)) {
            return entry;
        }
    }
    return nullptr;
}

// With the table locked.
void Remove(Entry* entry) {
    Entry** link = &g_ptThreads;
    while (*link != entry) {
        link = &(*link)->next;
    }
    *link = entry->next;
    free(entry);
}

// The clean-up of every thread, however it ends.
void Finish(void* argument) {
    auto* entry = static_cast<Entry*>(argument);
    free(entry->record);
    const Lock lock(g_tThreadMutex);
    entry->ended = true;
    if (entry->state == State::kDetached) {
        Remove(entry);
    } else if (entry->state == State::kJoinable) {
        entry->state = State::kFinished;
    }
}

// Wraps where a caller's number is absurd; the system refuses it then.
int Minus(int value, int priority) {
    return static_cast<int>(static_cast<u32>(value) - static_cast<u32>(priority));
}

// Where the system refuses, the thread runs as it is.
void ApplyPriority(int policy, int priority) {
    if (policy != SCHED_RR) {
        static_cast<void>(nice(Minus(0, priority)) == 0);
        return;
    }
    int current = SCHED_OTHER;
    sched_param param = {};
    pthread_getschedparam(pthread_self(), &current, &param);
    param.sched_priority = Minus(param.sched_priority, priority);
    pthread_setschedparam(pthread_self(), SCHED_RR, &param);
}

void Run(const StartRecord& record) {
    ThreadSigBlockall();
    ApplyPriority(record.policy, record.priority);
    record.proc(record.param);
}

void* Body(void* argument) {
    prctl(PR_SET_NAME, static_cast<Entry*>(argument)->record->name);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    pthread_cleanup_push(Finish, argument);
    Run(*static_cast<Entry*>(argument)->record);
    pthread_cleanup_pop(1);
    return nullptr;
}

bool Allocate(Entry*& entry) {
    entry = NewZeroed<Entry>();
    if (entry == nullptr) {
        return false;
    }
    entry->record = NewZeroed<StartRecord>();
    if (entry->record == nullptr) {
        free(entry);
        return false;
    }
    return true;
}

pthread_t Spawn(const CallSite& site, const StartRecord& record, int stacksize, bool detached) {
    const CancelGuard guard;
    Entry* entry = nullptr;
    if (!Allocate(entry)) {
        LogErrnoAt(site, "THREAD: spawn() malloc error");
        return 0;
    }
    *entry->record = record;
    entry->state = detached ? State::kDetached : State::kJoinable;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, static_cast<size_t>(stacksize));
    if (detached) {
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    }
    // Locked, so that the thread is in the table before it can leave it.
    Lock lock(g_tThreadMutex);
    const int error = pthread_create(&entry->handle, &attributes, Body, entry);
    const pthread_t handle = entry->handle;
    if (error == 0) {
        entry->next = g_ptThreads;
        g_ptThreads = entry;
    }
    lock.Unlock();
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        errno = error;
        LogErrnoAt(site, "THREAD: spawn() thread create error\n");
        free(entry->record);
        free(entry);
        return 0;
    }
    return handle;
}

// The thread that is to be waited for is marked, so that nobody else waits for it or detaches it.
Entry* BeginJoining(pthread_t handle) {
    if (pthread_equal(handle, pthread_self()) != 0) {
        return nullptr;
    }
    const Lock lock(g_tThreadMutex);
    Entry* const entry = Find(handle);
    if (entry == nullptr ||
        (entry->state != State::kJoinable && entry->state != State::kFinished)) {
        return nullptr;
    }
    entry->state = State::kJoining;
    return entry;
}

void EndJoining(Entry* entry) {
    const Lock lock(g_tThreadMutex);
    Remove(entry);
}

void ChangeMask(int how, std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signum : signals) {
        sigaddset(&set, signum);
    }
    pthread_sigmask(how, &set, nullptr);
}

}  // namespace

pthread_t ThreadSpawn(char* name, void (*proc)(void*), void* param, int stacksize, int policy,
                      int priority) {
    return Spawn(VIMBRA_HERE, {name, proc, param, policy, priority}, stacksize, false);
}

pthread_t ThreadSpawnDeatched(char* name, void (*proc)(void*), void* param, int stacksize,
                              int policy, int priority) {
    return Spawn(VIMBRA_HERE, {name, proc, param, policy, priority}, stacksize, true);
}

void ThreadYield() {
    sched_yield();
}

void* ThreadWait(pthread_t thread_id) {
    const CancelGuard guard;  // A waiter that is cut short would leave the mark behind.
    Entry* const entry = BeginJoining(thread_id);
    if (entry == nullptr) {
        return nullptr;
    }
    void* value = nullptr;
    pthread_join(thread_id, &value);
    EndJoining(entry);
    return value;
}

int ThreadKill(pthread_t thread_id) {
    if (pthread_equal(thread_id, pthread_self()) != 0) {
        return pthread_cancel(thread_id) == 0 ? 0 : -1;
    }
    // Locked, so that the thread cannot go in the middle.
    const Lock lock(g_tThreadMutex);
    const Entry* const entry = Find(thread_id);
    if (entry == nullptr || entry->ended) {
        return -1;
    }
    return pthread_cancel(thread_id) == 0 ? 0 : -1;
}

int ThreadDetach(pthread_t thread_id) {
    const Lock lock(g_tThreadMutex);
    Entry* const entry = Find(thread_id);
    if (entry == nullptr ||
        (entry->state != State::kJoinable && entry->state != State::kFinished)) {
        return -1;
    }
    const bool ended = entry->ended;
    entry->state = State::kDetached;
    pthread_detach(thread_id);
    if (ended) {
        Remove(entry);
    }
    return 0;
}

void ThreadExit() {
    pthread_exit(nullptr);
}

void ThreadDelay(int sec) {
    usleep(static_cast<useconds_t>(sec));
}

int ThreadGetId() {
    return static_cast<int>(pthread_self());
}

int ThreadGetPriority(pthread_t thread_id) {
    const Lock lock(g_tThreadMutex);
    if (pthread_equal(thread_id, pthread_self()) == 0) {
        const Entry* const entry = Find(thread_id);
        if (entry == nullptr || entry->ended) {
            return -1;
        }
    }
    int policy = SCHED_OTHER;
    sched_param param = {};
    return pthread_getschedparam(thread_id, &policy, &param) == 0 ? param.sched_priority : -1;
}

int ThreadSuspend(pthread_t) {
    return -1;
}

int ThreadResume(pthread_t) {
    return -1;
}

int ThreadAdjustPriority(pthread_t, int) {
    return -1;
}

void ThreadSetCleanup(pthread_t, void (*)(void*), void*) {}

void ThreadSigBlock(int signum) {
    ChangeMask(SIG_BLOCK, {signum});
}

void ThreadSigUnblock(int signum) {
    ChangeMask(SIG_UNBLOCK, {signum});
}

void ThreadSigBlockall() {
    ChangeMask(SIG_BLOCK, {SIGHUP, SIGINT, SIGQUIT, SIGILL, SIGTRAP, SIGABRT, SIGKILL, SIGTERM,
                           SIGPIPE, SIGUSR1, SIGUSR2, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU, SIGALRM});
}
