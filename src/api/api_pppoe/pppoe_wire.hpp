// Requests and notifications of PPPoE.
#ifndef VIMBRA_API_PPPOE_WIRE_HPP
#define VIMBRA_API_PPPOE_WIRE_HPP

#include <vimbra/pppoe.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kPppoeStart = 1537,
    kPppoeStop = 1538,

    // Notifications; only the first has a body.
    kPppoeConnected = 1,
    kPppoeEvent2 = 2,
    kPppoeEvent3 = 3,
    kPppoeEvent4 = 4,
    kPppoeStopped = 5,
};

// The notification sockets: of family 2, and of the others.
inline constexpr char kPppoeSocketIpv4[] = "ipc_pppoe";
inline constexpr char kPppoeSocketIpv6[] = "ipc_pppoe6";

static_assert(sizeof(PppoeConfig) == 809);
static_assert(offsetof(PppoeConfig, username) == 0);
static_assert(offsetof(PppoeConfig, password) == 255);
static_assert(offsetof(PppoeConfig, servername) == 510);
static_assert(offsetof(PppoeConfig, auto_dial_enable) == 765);
static_assert(offsetof(PppoeConfig, default_route_enable) == 769);
static_assert(offsetof(PppoeConfig, debug) == 773);
static_assert(offsetof(PppoeConfig, dial_retry_seconds) == 777);
static_assert(offsetof(PppoeConfig, lcp_echo_interval) == 781);
static_assert(offsetof(PppoeConfig, lcp_echo_failure) == 785);
static_assert(offsetof(PppoeConfig, maxfail) == 789);
static_assert(offsetof(PppoeConfig, devname) == 793);

// kPppoeStart
struct VIMBRA_WIRE PppoeStartBody {
    u16 wSinFamily;       // 2, 10, or 11 for a common link
    PppoeConfig tConfig;  // how to dial
};
static_assert(sizeof(PppoeStartBody) == 811);
static_assert(offsetof(PppoeStartBody, tConfig) == 2);

// kPppoeStop
struct PppoeStopBody {
    u16 wSinFamily;  // 2, 10, or 11 for the common link
};
static_assert(sizeof(PppoeStopBody) == 2);

// kPppoeConnected
static_assert(sizeof(TVimbraPppoeAddr) == 80);
static_assert(offsetof(TVimbraPppoeAddr, tOurIpaddr) == 0);
static_assert(offsetof(TVimbraPppoeAddr, tPeerIpAddr) == 20);
static_assert(offsetof(TVimbraPppoeAddr, tDnsServer1) == 40);
static_assert(offsetof(TVimbraPppoeAddr, tDnsServer2) == 60);

}  // namespace vimbra::wire

#endif
