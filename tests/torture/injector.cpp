#include "injector.hpp"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>

#include "inside.hpp"

namespace vimbra::tests::torture {

namespace {

using std::chrono::steady_clock;

struct CallInfo {
    const char* name;
    std::vector<int> outcomes;
};

const std::vector<CallInfo>& Infos() {
    static const std::vector<CallInfo> infos = {
#define FAILS(name, ...) {#name, {__VA_ARGS__}},
#define TRACKED(name)
#define PASSED(name)
#include "calls.inc"
#undef FAILS
#undef TRACKED
#undef PASSED
    };
    return infos;
}

bool CanHave(Call call, int outcome) {
    for (const int possible : OutcomesOf(call)) {
        if (possible == outcome) {
            return true;
        }
    }
    return false;
}

bool AsksForRepeating(int outcome) {
    return outcome == EINTR || outcome == EAGAIN || outcome == kTimeOut;
}

// One thread of the library, as long as it lives.
struct Slot {
    bool lives = false;
    bool waits = false;
    bool pauses = false;  // waits for nothing but time
    std::vector<pollfd> awaited;
};

constexpr size_t kSlots = 256;

struct State {
    std::mutex mutex;
    bool armed = false;
    unsigned run = 0;
    Injection injection;
    std::vector<Point> points;
    size_t failures = 0;
    bool failedElsewhere = false;
    s64 spared = 0;          // nanoseconds, of this run
    size_t connections = 0;  // connections to the daemon, of this run
    s64 ahead = 0;           // of all runs: the library's clock
    std::set<const void*> blocks;
    std::set<int> descriptors;
    std::array<Slot, kSlots> slots;
    int threads = 0;  // ever made, the caller's not counted
    bool hurry = false;
    int patience = 40;
    void* exit = nullptr;
};

State& The() {
    static State state;
    return state;
}

using Guard = std::lock_guard<std::mutex>;

struct Thread {
    int index = -1;
    int slot = -1;
    unsigned run = 0;
    int number = 0;

    ~Thread() {
        if (slot >= 0) {
            const Guard guard(The().mutex);
            The().slots[static_cast<size_t>(slot)] = {};
        }
    }
};

thread_local Thread t_thread;

// The next call's number on this thread.
int NextNumber(State& state) {
    if (t_thread.run != state.run) {
        t_thread.run = state.run;
        t_thread.number = 0;
    }
    return ++t_thread.number;
}

bool IsMeant(const State& state, Call call, int number) {
    const Injection& injection = state.injection;
    if (t_thread.index == injection.thread && number == injection.number) {
        return true;
    }
    return injection.forGood && state.failures > 0 && CanHave(call, injection.outcome) &&
           (!AsksForRepeating(injection.outcome) || state.failures < kStorm);
}

Slot* OwnSlot(State& state) {
    return t_thread.slot >= 0 ? &state.slots[static_cast<size_t>(t_thread.slot)] : nullptr;
}

// With the lock held.
bool IsQuiet(State& state) {
    for (Slot& slot : state.slots) {
        if (!slot.lives) {
            continue;
        }
        if (!slot.waits || (slot.pauses && !state.armed) ||
            (!slot.pauses && poll(slot.awaited.data(), slot.awaited.size(), 0) != 0)) {
            return false;
        }
    }
    return true;
}

void SetHurry(bool hurry) {
    const Guard guard(The().mutex);
    The().hurry = hurry;
}

template <typename Condition>
bool WaitUntil(const Condition& condition) {
    const auto deadline = steady_clock::now() + std::chrono::seconds(The().patience);
    for (useconds_t pause = 10; !condition(); pause = pause < 1000 ? pause * 2 : pause) {
        if (steady_clock::now() > deadline) {
            return false;
        }
        usleep(pause);
    }
    return true;
}

}  // namespace

const char* NameOf(Call call) {
    return call < Call::kCount ? Infos()[static_cast<size_t>(call)].name : "none";
}

const std::vector<int>& OutcomesOf(Call call) {
    return Infos()[static_cast<size_t>(call)].outcomes;
}

std::string NameOfOutcome(int outcome) {
    switch (outcome) {
        case kShort:
            return "a short count";
        case kEnd:
            return "nothing";
        case kTimeOut:
            return "a time-out";
        case kKill:
            return "a kill";
        default:
            return strerrorname_np(outcome) != nullptr ? strerrorname_np(outcome) : "?";
    }
}

// ---- For the harness ----------------------------------------------------------------------------

void Injector::Arm(const Injection& injection) {
    State& state = The();
    const Guard guard(state.mutex);
    t_thread.index = 0;
    state.run++;
    state.injection = injection;
    state.points.clear();
    state.failures = 0;
    state.failedElsewhere = false;
    state.spared = 0;
    state.connections = 0;
    state.armed = true;
}

void Injector::Disarm() {
    const Guard guard(The().mutex);
    The().armed = false;
}

const std::vector<Point>& Injector::Points() {
    return The().points;
}

size_t Injector::Failures() {
    const Guard guard(The().mutex);
    return The().failures;
}

bool Injector::HasFailedElsewhere() {
    const Guard guard(The().mutex);
    return The().failedElsewhere;
}

s64 Injector::SparedTime() {
    const Guard guard(The().mutex);
    return The().spared / 1000000;
}

size_t Injector::Connections() {
    const Guard guard(The().mutex);
    return The().connections;
}

Level Injector::Held() {
    State& state = The();
    const Guard guard(state.mutex);
    long threads = 0;
    for (const Slot& slot : state.slots) {
        threads += slot.lives ? 1 : 0;
    }
    return {static_cast<long>(state.blocks.size()), static_cast<long>(state.descriptors.size()),
            threads};
}

void Injector::GiveBack(void* block) {
    Freed(block);
}

void Injector::GiveBackDescriptor(int fd) {
    Closed(fd);
}

bool Injector::WaitQuiet() {
    return WaitUntil([] {
        const Guard guard(The().mutex);
        return IsQuiet(The());
    });
}

bool Injector::WaitThreads(long count) {
    SetHurry(true);
    const bool gone = WaitUntil([count] { return Held().threads <= count; });
    SetHurry(false);
    return gone;
}

void Injector::SetPatience(int seconds) {
    The().patience = seconds;
}

void Injector::SetExit(void* place) {
    The().exit = place;
}

// ---- For the wrappers ---------------------------------------------------------------------------

int Meet(Call call, bool canMiss) {
    State& state = The();
    if (t_thread.index < 0) {
        return 0;
    }
    const int error = errno;
    const Guard guard(state.mutex);
    errno = error;
    if (!state.armed) {
        return 0;
    }
    const int number = NextNumber(state);
    state.points.push_back({t_thread.index, number, call});
    if (!IsMeant(state, call, number)) {
        errno = error;
        return 0;
    }
    const int outcome = state.injection.outcome;
    if (outcome == kKill) {
        kill(getpid(), SIGKILL);
    }
    if ((outcome == kTimeOut || outcome == kEnd || outcome == ENOENT) && !canMiss) {
        errno = error;
        return 0;
    }
    state.failures++;
    state.failedElsewhere |= t_thread.index > 0;
    errno = outcome > 0 ? outcome : error;
    return outcome;
}

bool HasFailed() {
    const Guard guard(The().mutex);
    return The().armed && The().failures > 0;
}

bool IsCaller() {
    return t_thread.index <= 0;
}

void Allocated(const void* block) {
    if (block != nullptr) {
        const Guard guard(The().mutex);
        The().blocks.insert(block);
    }
}

void Freed(const void* block) {
    const int error = errno;
    const Guard guard(The().mutex);
    The().blocks.erase(block);
    errno = error;
}

void Opened(int fd) {
    if (fd >= 0) {
        const Guard guard(The().mutex);
        The().descriptors.insert(fd);
    }
}

void Closed(int fd) {
    const Guard guard(The().mutex);
    The().descriptors.erase(fd);
}

int NewThread() {
    State& state = The();
    const Guard guard(state.mutex);
    for (size_t i = 0; i < kSlots; i++) {
        if (!state.slots[i].lives) {
            state.slots[i].lives = true;
            return static_cast<int>(i);
        }
    }
    abort();
}

void ForgetThread(int slot) {
    const Guard guard(The().mutex);
    The().slots[static_cast<size_t>(slot)] = {};
}

// The first free place is as repeatable a number as the order of making.
void BeThread(int slot) {
    t_thread.slot = slot;
    t_thread.index = slot + 1;
}

void BeginWait(const std::vector<pollfd>& awaited) {
    const Guard guard(The().mutex);
    if (Slot* slot = OwnSlot(The())) {
        slot->awaited = awaited;
        slot->pauses = awaited.empty();
        slot->waits = true;
    }
}

void EndWait() {
    const int error = errno;
    const Guard guard(The().mutex);
    if (Slot* slot = OwnSlot(The())) {
        slot->waits = false;
    }
    errno = error;
}

bool IsInHurry() {
    const Guard guard(The().mutex);
    return The().hurry && t_thread.slot >= 0;
}

void SpareTime(s64 nanoseconds) {
    const Guard guard(The().mutex);
    The().spared += IsCaller() ? nanoseconds : 0;
    The().ahead += nanoseconds;
}

s64 TimeAhead() {
    const Guard guard(The().mutex);
    return The().ahead;
}

void Connected() {
    const Guard guard(The().mutex);
    The().connections++;
}

void* PlaceOfExit() {
    return The().exit;
}

}  // namespace vimbra::tests::torture
