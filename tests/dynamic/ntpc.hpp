// What the tests of the NTP client share: its servers, its semaphore, and what its callback takes.
#ifndef VIMBRA_TESTS_DYNAMIC_NTPC_HPP
#define VIMBRA_TESTS_DYNAMIC_NTPC_HPP

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <vimbra/ntpc.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "../ground/recorder.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 0x901;
inline constexpr u32 kStop = 0x902;
inline constexpr u32 kCheck = 0x903;
inline constexpr char kSocket[] = "ipc_ntp";
inline constexpr char kSocket6[] = "ipc_ntpv6";
inline constexpr char kThread[] = "NtpcCBThread";
inline constexpr char kThread6[] = "NtpcCBThreadV6";
inline constexpr size_t kMost = VIMBRA_NTPC_REPORT_MAX;

struct Event {
    u32 event;
    bed::Bytes report;
    std::string thread;
};

// Never destroyed: listeners may outlive main().
inline Recorder<Event>& g_events = *new Recorder<Event>;

inline int Take(u32 event, void* report) {
    g_events.Add(
        {event, bed::Bytes(std::span(static_cast<const u8*>(report), kMost)), ThisThread()});
    return -1;
}

inline int Never(u32, void*) {
    ADD_FAILURE() << "the wrong callback";
    return 0;
}

inline TVimbraAddr Server4() {
    return Address("192.0.2.123");
}

inline TVimbraAddr Server6() {
    return Address("2001:db8::123");
}

inline bed::Bytes StartBody4(u32 interval) {
    return bed::Pack().U16(2).Address(2, "192.0.2.123").U32(interval);
}

inline s32 Start(u16 family, VimBraNtpcSyncTimeCallBack callback = Take) {
    return VimbraNtpcStart(family == 2 ? Server4() : Server6(), 60, callback);
}

inline std::vector<std::string> Started() {
    std::vector<std::string> started;
    for (const TNtpcInfo* info = g_ptApiNtpCInfo; info != nullptr; info = info->ptNext) {
        started.push_back(std::to_string(info->wSinFamiy) + "=" +
                          std::to_string(__atomic_load_n(&info->bNtpcStarted, __ATOMIC_ACQUIRE)));
    }
    return started;
}

inline int Semaphore() {
    return semget(7783, 1, 0);
}

inline int SemaphoreValue() {
    return semctl(Semaphore(), 0, GETVAL);
}

using Ntpc = Prepared;

}  // namespace vimbra::tests

#endif
