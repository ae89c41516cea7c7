// Requests and notifications of the NTP client.
#ifndef VIMBRA_API_NTPC_WIRE_HPP
#define VIMBRA_API_NTPC_WIRE_HPP

#include <vimbra/ntpc_report.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kNtpcStart = 2305,
    kNtpcStop = 2306,
    kNtpcCheck = 2307,  // the server's TVimbraAddr

    // Notifications: the body is the daemon's, at most VIMBRA_NTPC_REPORT_MAX bytes.
    kNtpcReport1 = 1,
    kNtpcReport2 = 2,
};

// The notification sockets.
inline constexpr char kNtpcSocketIpv4[] = "ipc_ntp";
inline constexpr char kNtpcSocketIpv6[] = "ipc_ntpv6";

// kNtpcStart
struct VIMBRA_WIRE NtpcStartBody {
    u16 wSinFamily;          // the server's
    TVimbraAddr tServerIp;   // the server
    u32 dwSyncTimeInterval;  // seconds between two questions
};
static_assert(sizeof(NtpcStartBody) == 26);
static_assert(offsetof(NtpcStartBody, tServerIp) == 2);
static_assert(offsetof(NtpcStartBody, dwSyncTimeInterval) == 22);

// kNtpcStop
struct NtpcStopBody {
    u16 wSinFamily;  // whose client ends: 2 or 10
};
static_assert(sizeof(NtpcStopBody) == 2);

// The body of our own daemon's reports; the library hands on whatever comes.
static_assert(sizeof(TVimbraNtpcReport) == 40);
static_assert(offsetof(TVimbraNtpcReport, tServerIp) == 0);
static_assert(offsetof(TVimbraNtpcReport, dwError) == 20);
static_assert(offsetof(TVimbraNtpcReport, llOffset) == 24);
static_assert(offsetof(TVimbraNtpcReport, bClockSet) == 32);
static_assert(offsetof(TVimbraNtpcReport, dwReserved) == 36);

}  // namespace vimbra::wire

#endif
