// The services that report back, as one table: what a test of all of them needs to know of each.
#ifndef VIMBRA_TESTS_LOAD_REPORTING_HPP
#define VIMBRA_TESTS_LOAD_REPORTING_HPP

#include <vimbra/types.h>

#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// One way of using a service: a family of it, an interface, a user id.
struct Reporting {
    const char* name;
    const char* service;  // those of one service share its state
    s32 (*start)();
    s32 (*stop)();
    // The socket below /tmp, and a message that makes the service call back; without a socket the
    // report is a change of the lease file.
    std::string socket;
    u32 type;
    bed::Bytes body;
    // What the callback may call; null: it may start and stop the service itself.
    s32 (*fromCallback)() = nullptr;
    // A start leaves a thread, an inotify instance perhaps, for a while: not to be had by the
    // thousand.
    bool isDear = false;
    // A stop leaves the thread to its next time-out of ten seconds.
    bool lingers = false;
    // A real daemon comes to an end with it.
    bool ends = false;
};
void PrintTo(const Reporting& reporting, std::ostream* out);

[[nodiscard]] const std::vector<Reporting>& AllReporting();
[[nodiscard]] std::vector<Reporting> ReportingOf(const std::string& service);
// Each service once, in the table's order.
[[nodiscard]] std::vector<std::string> ReportingServices();

// Callbacks so far, of all services, and those that run at this moment.
extern std::atomic<unsigned long> g_callbacks;
extern std::atomic<int> g_runningCallbacks;
// What a callback does beside counting, if anything.
extern std::atomic<void (*)()> g_inCallback;
// Lets no callback do anything from here on, and waits for those that still do.
[[nodiscard]] bool EndCallbacks();

// Sends the report, once and without waiting; false when nobody takes it. `length` cuts it.
bool Report(const Reporting& reporting, size_t length = SIZE_MAX);
// A plain connection to /tmp/<name>, for thousands of them; -1 when it was refused.
[[nodiscard]] int ConnectTo(const std::string& name);

// Ends whatever runs of these, those included that no stop finds any more; the daemon must answer.
void EndAll(const std::vector<Reporting>& all);

// The request that asks for an interface's addresses, and an answer that names none: the DHCP
// server's start begins with it.
inline constexpr u32 kGetAddresses = 277;
[[nodiscard]] bed::Answer NoAddresses();

}  // namespace vimbra::tests

#endif
