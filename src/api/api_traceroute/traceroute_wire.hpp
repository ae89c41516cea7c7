// Requests and notifications of traces.
#ifndef VIMBRA_API_TRACEROUTE_WIRE_HPP
#define VIMBRA_API_TRACEROUTE_WIRE_HPP

#include <vimbra/traceroute.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

// Stopping all traces is the same request as stopping one.
enum : u32 { kTracerouteStart = 3329, kTracerouteStop = 3330 };

// kTracerouteStart
struct TracerouteStartBody {
    TVimbraAddr tDestIp;  // whom to trace
    u32 dwTtl;            // the highest hop
    s32 nUserID;          // which test
};
static_assert(sizeof(TracerouteStartBody) == 28);
static_assert(offsetof(TracerouteStartBody, dwTtl) == 20);
static_assert(offsetof(TracerouteStartBody, nUserID) == 24);

// kTracerouteStop
struct TracerouteStopBody {
    s32 nUserID;  // which test
};
static_assert(sizeof(TracerouteStopBody) == 4);

// Where notifications go; the header's type is the event, the body the hop as the callback gets it.
inline constexpr char kTracerouteSocket[] = "ipc_traceroute";

enum : u32 { kTracerouteFirstEvent = 101, kTracerouteLastEvent = 106 };

static_assert(sizeof(TVimbraTracerouteCBInfo) == 48);
static_assert(offsetof(TVimbraTracerouteCBInfo, tIpaddr) == 0);
static_assert(offsetof(TVimbraTracerouteCBInfo, dwTtl) == 20);
static_assert(offsetof(TVimbraTracerouteCBInfo, nUserId) == 24);
static_assert(offsetof(TVimbraTracerouteCBInfo, nTripTime) == 28);
static_assert(offsetof(TVimbraTracerouteCBInfo, achDomName) == 32);
static_assert(offsetof(TVimbraTracerouteCBInfo, nErrType) == 36);
static_assert(offsetof(TVimbraTracerouteCBInfo, nErrCode) == 40);
static_assert(offsetof(TVimbraTracerouteCBInfo, nIsOver) == 44);

}  // namespace vimbra::wire

#endif
