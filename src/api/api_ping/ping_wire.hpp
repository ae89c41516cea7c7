// Requests and notifications of echo tests.
#ifndef VIMBRA_API_PING_WIRE_HPP
#define VIMBRA_API_PING_WIRE_HPP

#include <vimbra/ping.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 { kPingStart = 3073, kPingStop = 3074 };

static_assert(sizeof(TVimbraPingOpt) == 16);
static_assert(offsetof(TVimbraPingOpt, nPktSize) == 0);
static_assert(offsetof(TVimbraPingOpt, nTimeOut) == 4);
static_assert(offsetof(TVimbraPingOpt, nTtl) == 8);
static_assert(offsetof(TVimbraPingOpt, nCount) == 12);

// kPingStart
struct PingStartBody {
    TVimbraAddr tDestIp;      // whom to ask
    TVimbraPingOpt tPingOpt;  // how to ask
    s32 nUserID;              // which test
};
static_assert(sizeof(PingStartBody) == 40);
static_assert(offsetof(PingStartBody, tPingOpt) == 20);
static_assert(offsetof(PingStartBody, nUserID) == 36);

// kPingStop
struct PingStopBody {
    s32 nUserID;  // which test
};
static_assert(sizeof(PingStopBody) == 4);

// Where notifications go; the header's type is the result event.
inline constexpr char kPingSocket[] = "ipc_ping";

enum : u32 {
    kPingAnswer = 0,
    kPingLastEvent = 3,  // 1 to 3: no answer, for three reasons
};

// Values of over_flag.
enum : s32 { kPingMore = 0, kPingLast = 1, kPingStopOrder = 2 };

struct pingmsg {
    u32 nUserID;    // which test
    u32 ttl;        // time to live of the answer
    u32 time;       // round-trip time, in the daemon's unit
    s32 seq;        // number of the probe
    s32 over_flag;  // kPingMore, kPingLast or kPingStopOrder
};
static_assert(sizeof(pingmsg) == 20);
static_assert(offsetof(pingmsg, ttl) == 4);
static_assert(offsetof(pingmsg, time) == 8);
static_assert(offsetof(pingmsg, seq) == 12);
static_assert(offsetof(pingmsg, over_flag) == 16);

}  // namespace vimbra::wire

#endif
