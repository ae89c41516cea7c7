#include "lib/threads/thread.hpp"

#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <cstdint>
#include <ctime>

#include "lib/base/lock.hpp"
#include "lib/base/memory.hpp"
#include "lib/base/thread_local.hpp"
#include "lib/log.hpp"

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
    kJoining,  // somebody waits for it
    kGone,     // waited for, or detached and ended: the handle is nobody's
};

// A handle that was given to a thread started here. It stays in the table until the C library gives
// it away again: what the library does with a handle that is nobody's is undefined, so this is how
// one is known. There are as many as threads have ever lived at a time.
struct Entry {
    Entry* next;
    pthread_t handle;
    pid_t tid;  // 0 until the thread runs
    State state;
    bool ended;       // has nothing more to do but return
    bool superseded;  // out of the table, and only the one who waits for it knows it
    StartRecord* record;
};

pthread_mutex_t g_tThreadMutex = PTHREAD_MUTEX_INITIALIZER;
Entry* g_ptThreads = nullptr;

// With the table locked, all of the following.

Entry** LinkOf(pthread_t handle) {
    Entry** link = &g_ptThreads;
    while (*link != nullptr && pthread_equal((*link)->handle, handle) == 0) {
        link = &(*link)->next;
    }
    return link;
}

// A handle belongs to one thread at a time: what is known of an earlier one is out of date.
void Supersede(pthread_t handle) {
    Entry** const link = LinkOf(handle);
    Entry* const entry = *link;
    if (entry == nullptr) {
        return;
    }
    *link = entry->next;
    if (entry->state == State::kJoining) {
        entry->superseded = true;
    } else {
        free(entry);
    }
}

void Add(Entry* entry) {
    Supersede(entry->handle);
    entry->next = g_ptThreads;
    g_ptThreads = entry;
}

// Of a call of pthread's, which has the number of an error for a result.
int Result(int error) {
    return error == 0 ? 0 : -1;
}

// Is there a byte behind the handle that can be looked at? The stack of a thread that has gone may
// have gone with it.
bool IsMapped(pthread_t handle) {
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = (uintptr_t)handle & ~(page - 1);  // a number or a pointer, by C library
    return msync(reinterpret_cast<void*>(address), page, MS_ASYNC) == 0;
}

// The kernel's number of the thread that a handle belongs to, 0 for none. It is given as part of
// the thread's clock, which is all that is portable.
pid_t KernelId(pthread_t handle) {
    clockid_t clock;
    if (!IsMapped(handle) || pthread_getcpuclockid(handle, &clock) != 0) {
        return 0;
    }
    const pid_t tid = ~(clock >> 3);
    return tid > 0 && syscall(SYS_tgkill, getpid(), tid, 0) == 0 ? tid : 0;
}

// A thread of ours has ended. Has the application taken leave of it by other means than these, and
// does its handle belong to a thread that was not started here?
bool IsGivenAway(const Entry& entry) {
    const pid_t tid = KernelId(entry.handle);
    return tid != 0 && tid != entry.tid;
}

enum class Kind {
    kNobody,
    kOurs,
    kForeign,  // not started here: the caller vouches for it, as with pthread_cancel(3)
};

struct Found {
    Kind kind;
    Entry* entry;
};

Found Find(pthread_t handle) {
    if (pthread_equal(handle, 0) != 0 || pthread_equal(handle, static_cast<pthread_t>(-1)) != 0) {
        return {Kind::kNobody, nullptr};
    }
    Entry* const entry = *LinkOf(handle);
    if (entry == nullptr) {
        return {Kind::kForeign, nullptr};
    }
    if (entry->ended && IsGivenAway(*entry)) {
        Supersede(handle);
        return {Kind::kForeign, nullptr};
    }
    return {entry->state == State::kGone ? Kind::kNobody : Kind::kOurs, entry};
}

// Of a thread that can be asked for something.
Kind KindOfRunning(pthread_t handle) {
    const Found found = Find(handle);
    return found.kind == Kind::kOurs && found.entry->ended ? Kind::kNobody : found.kind;
}

// The clean-up of every thread, however it ends.
void Finish(void* argument) {
    auto* entry = static_cast<Entry*>(argument);
    free(entry->record);
    const Lock lock(g_tThreadMutex);
    entry->record = nullptr;
    entry->ended = true;
    if (entry->state == State::kDetached) {
        entry->state = State::kGone;
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

void Announce(Entry& entry) {
    const Lock lock(g_tThreadMutex);
    entry.tid = static_cast<pid_t>(syscall(SYS_gettid));
}

void* Body(void* argument) {
    prctl(PR_SET_NAME, static_cast<Entry*>(argument)->record->name);
    Announce(*static_cast<Entry*>(argument));
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

// Gives the handle, since a thread that runs may take its entry with it; an error number.
int Create(Entry* entry, int stacksize, pthread_t& handle) {
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes)) {
        return error;
    }
    pthread_attr_setstacksize(&attributes, static_cast<size_t>(stacksize));
    if (entry->state == State::kDetached) {
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    }
    // Locked, so that the thread is in the table before it can leave it.
    Lock lock(g_tThreadMutex);
    const int error = pthread_create(&entry->handle, &attributes, Body, entry);
    if (error == 0) {
        handle = entry->handle;
        Add(entry);
    }
    lock.Unlock();
    pthread_attr_destroy(&attributes);
    return error;
}

pthread_t Spawn(CallSite site, const StartRecord& record, int stacksize, bool detached) {
    const CancelGuard guard;
    Entry* entry = nullptr;
    if (!Allocate(entry)) {
        LogErrnoAt(site, "THREAD: spawn() malloc error");
        return 0;
    }
    *entry->record = record;
    entry->state = detached ? State::kDetached : State::kJoinable;
    pthread_t handle = 0;
    const int error = Create(entry, stacksize, handle);
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
Found BeginJoining(pthread_t handle) {
    const Lock lock(g_tThreadMutex);
    const Found found = Find(handle);
    if (found.kind != Kind::kOurs) {
        return found;
    }
    if (found.entry->state != State::kJoinable) {
        return {Kind::kNobody, nullptr};
    }
    found.entry->state = State::kJoining;
    return found;
}

void EndJoining(void* argument, State state) {
    auto* const entry = static_cast<Entry*>(argument);
    const Lock lock(g_tThreadMutex);
    if (entry->superseded) {
        free(entry);
    } else {
        entry->state = state;
    }
}

// A waiter that is cancelled leaves the thread to the next one, as pthread_join(3) does.
void GiveUpJoining(void* entry) {
    EndJoining(entry, State::kJoinable);
}

// Not on a waiter's stack, which a cancellation leaves as it is.
VIMBRA_THREAD_LOCAL thread_local void* t_value = nullptr;

// Cancellation acts in this function and the next one.
[[gnu::no_sanitize_address]] void* Join(pthread_t handle, void* entry) {
    t_value = nullptr;
    pthread_cleanup_push(GiveUpJoining, entry);
    pthread_join(handle, &t_value);
    pthread_cleanup_pop(0);
    EndJoining(entry, State::kGone);
    return t_value;
}

void* JoinForeign(pthread_t handle) {
    t_value = nullptr;
    pthread_join(handle, &t_value);
    return t_value;
}

}  // namespace

void vimbra::HoldThreads() {
    pthread_mutex_lock(&g_tThreadMutex);
}

void vimbra::ReleaseThreads() {
    pthread_mutex_unlock(&g_tThreadMutex);
}

void vimbra::ForgetThreads() {
    const pthread_t self = pthread_self();
    for (Entry* entry = g_ptThreads; entry != nullptr; entry = entry->next) {
        if (pthread_equal(entry->handle, self) != 0) {
            entry->tid = getpid();
        } else {
            entry->ended = true;
            entry->state = State::kGone;
        }
    }
    pthread_mutex_unlock(&g_tThreadMutex);
}

pthread_t ThreadSpawn(char* name, void (*proc)(void*), void* param, int stacksize, int policy,
                      int priority) {
    return Spawn(VIMBRA_HERE, {name, proc, param, policy, priority}, stacksize, false);
}

pthread_t ThreadSpawnDeatched(char* name, void (*proc)(void*), void* param, int stacksize,
                              int policy, int priority) {
    return Spawn(VIMBRA_HERE, {name, proc, param, policy, priority}, stacksize, true);
}

void* ThreadWait(pthread_t thread_id) {
    if (pthread_equal(thread_id, pthread_self()) != 0) {
        return nullptr;
    }
    const Found found = BeginJoining(thread_id);
    switch (found.kind) {
        case Kind::kOurs:
            return Join(thread_id, found.entry);
        case Kind::kForeign:
            return JoinForeign(thread_id);
        case Kind::kNobody:
            break;
    }
    return nullptr;
}

int ThreadKill(pthread_t thread_id) {
    // Locked, so that a thread of ours cannot go in the middle. Itself is asked without: cancelled
    // with the lock held it would keep it.
    if (pthread_equal(thread_id, pthread_self()) == 0) {
        const Lock lock(g_tThreadMutex);
        return KindOfRunning(thread_id) != Kind::kNobody ? Result(pthread_cancel(thread_id)) : -1;
    }
    return Result(pthread_cancel(thread_id));
}

int ThreadDetach(pthread_t thread_id) {
    const Lock lock(g_tThreadMutex);
    const Found found = Find(thread_id);
    if (found.kind == Kind::kForeign) {
        return Result(pthread_detach(thread_id));
    }
    if (found.kind == Kind::kNobody || found.entry->state != State::kJoinable) {
        return -1;
    }
    pthread_detach(thread_id);
    found.entry->state = found.entry->ended ? State::kGone : State::kDetached;
    return 0;
}

int ThreadGetPriority(pthread_t thread_id) {
    const Lock lock(g_tThreadMutex);
    if (pthread_equal(thread_id, pthread_self()) == 0 &&
        KindOfRunning(thread_id) == Kind::kNobody) {
        return -1;
    }
    int policy = SCHED_OTHER;
    sched_param param = {};
    param.sched_priority = -1;  // What is returned if the system knows none.
    pthread_getschedparam(thread_id, &policy, &param);
    return param.sched_priority;
}
