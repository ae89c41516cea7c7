// Stands between the library and the C library: every call that the library makes, on every thread,
// is counted and may be told to fail. The program is linked with a copy of the archive in which
// these calls have another name, so that nobody else's are meant.
#ifndef VIMBRA_TESTS_TORTURE_INJECTOR_HPP
#define VIMBRA_TESTS_TORTURE_INJECTOR_HPP

#include <vimbra/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace vimbra::tests::torture {

// Outcomes beside the numbers of errno.
constexpr int kShort = -1;    // half of the bytes
constexpr int kEnd = -2;      // no bytes, or nothing found
constexpr int kTimeOut = -3;  // the time is over, at once
constexpr int kKill = -4;     // the process is killed before the call

enum class Call : int {
#define FAILS(name, ...) k_##name,
#define TRACKED(name)
#define PASSED(name)
#include "calls.inc"
#undef FAILS
#undef TRACKED
#undef PASSED
    kCount
};

const char* NameOf(Call call);
const std::vector<int>& OutcomesOf(Call call);
std::string NameOfOutcome(int outcome);

// A call of a run: threads are counted in the order in which the library has made them, 0 being the
// caller's, and calls by thread, from 1 on. So a run that is repeated has the same points.
struct Point {
    int thread;
    int number;
    Call call;
};

// The call at that point has this outcome; for good: so has every later call, on every thread, that
// can have it. What asks for repeating (EINTR, EAGAIN, a time-out) is over after kStorm of them.
struct Injection {
    int thread = -1;
    int number = 0;
    int outcome = 0;
    bool forGood = false;
};

constexpr int kStorm = 50;

// What the library holds.
struct Level {
    long blocks;
    long descriptors;
    long threads;

    friend bool operator==(const Level&, const Level&) = default;
};

class Injector {
 public:
    // Counting begins, with the calling thread as number 0.
    static void Arm(const Injection& injection = {});
    // And ends: no call fails any more.
    static void Disarm();

    // Of the last run.
    static const std::vector<Point>& Points();
    static size_t Failures();          // how many calls failed
    static bool HasFailedElsewhere();  // on a thread that the library has made
    static size_t Connections();       // to the daemon
    // How much time has passed that the caller did not wait for, in milliseconds: what the library
    // waits for in vain is cut short, and its clock put forward.
    static s64 SparedTime();

    static Level Held();
    // An application frees a block, or closes a descriptor, that the library has handed to it.
    static void GiveBack(void* block);
    static void GiveBackDescriptor(int fd);

    // Waits until each thread of the library waits for something that has not come, or has gone.
    // False when that does not happen.
    static bool WaitQuiet();
    // Waits until so many threads of the library are left.
    static bool WaitThreads(long count);

    // How long the two wait; only a fault makes them wait long.
    static void SetPatience(int seconds);

    // exit(3) leads back here (a sigjmp_buf) instead; null for an end of the process.
    static void SetExit(void* place);
};

}  // namespace vimbra::tests::torture

#endif
