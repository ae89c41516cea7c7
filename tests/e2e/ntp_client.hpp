// What the tests of the daemon's NTP clients share: requests, and what is told.
#ifndef VIMBRA_TESTS_E2E_NTP_CLIENT_HPP
#define VIMBRA_TESTS_E2E_NTP_CLIENT_HPP

#include <gtest/gtest.h>
#include <vimbra/ntpc_report.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "../ground/address.hpp"
#include "e2e.hpp"
#include "messages.hpp"
#include "ntp_server.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 0x901;
inline constexpr u32 kStop = 0x902;
inline constexpr u32 kCheck = 0x903;
inline constexpr u32 kSynchronised = 1;
inline constexpr u32 kFailed = 2;
inline constexpr char kSocket[] = "ipc_ntp";
inline constexpr char kSocket6[] = "ipc_ntpv6";

inline constexpr char kServer[] = "192.0.2.2";
inline constexpr char kServer6[] = "fd00::2";
// On the link, and nobody has it.
inline constexpr char kNobody[] = "192.0.2.77";

// Microseconds. An exchange tells the offset to half of the time that it takes, which on a busy
// machine is not little.
inline constexpr s64 kNear = 1'000'000;

inline bed::Bytes Server(const char* text) {
    const bool v6 = std::string(text).find(':') != std::string::npos;
    return bed::Pack().Address(v6 ? 10 : 2, text);
}

inline bed::Bytes StartBody(const char* server, u32 interval = 60) {
    const bed::Bytes address = Server(server);
    return bed::Pack().U16(address.U16(0)).Add(address).U32(interval);
}

inline bed::Bytes StopBody(u16 family = 2) {
    return bed::Pack().U16(family);
}

// A report as it stands on the wire.
struct Report {
    explicit Report(const Told& told)
        : type(told.type),
          server(told.body.Slice(0, 20)),
          error(told.body.U32(20)),
          offset(static_cast<s64>(u64{told.body.U32(28)} << 32 | told.body.U32(24))),
          clockSet(told.body.U32(32)) {
        EXPECT_EQ(40u, told.size);
        EXPECT_EQ(40u, told.body.size());
        EXPECT_EQ(0u, told.body.U32(36));
    }

    u32 type;
    bed::Bytes server;
    u32 error;
    s64 offset;
    u32 clockSet;
};

inline Report WaitReport(const Listener& listener, size_t number = 0) {
    return Report(listener.Wait(number + 1)[number]);
}

// What the application's callback has got.
struct Event {
    u32 event;
    TVimbraNtpcReport report;
};
inline std::mutex g_mutex;
inline std::vector<Event> g_events;

inline int Take(u32 event, void* report) {
    const std::lock_guard lock(g_mutex);
    g_events.push_back({event, *static_cast<const TVimbraNtpcReport*>(report)});
    return 0;
}

inline std::vector<Event> Events() {
    const std::lock_guard lock(g_mutex);
    return g_events;
}

inline Event WaitEvent(size_t number = 0) {
    EXPECT_TRUE(bed::WaitFor([number] { return Events().size() > number; }));
    std::vector<Event> events = Events();
    events.resize(std::max(events.size(), number + 1));
    return events[number];
}

// How many clients are asking at this moment.
inline size_t Asking() {
    const std::string all = Shell("cat /proc/[0-9]*/cmdline 2>/dev/null | tr '\\0' ' '");
    size_t count = 0;
    for (size_t at = 0; (at = all.find("chronyd -Q", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

inline bool NothingIsLeft() {
    return bed::WaitFor([] { return Asking() == 0 && Directories().empty(); });
}

}  // namespace vimbra::tests

#endif
