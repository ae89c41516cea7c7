// Requests and reports of the statistics service.
#ifndef VIMBRA_API_NETWORK_COMMON_STAT_WIRE_HPP
#define VIMBRA_API_NETWORK_COMMON_STAT_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kStatStart = 0x0703,
    kStatStop = 0x0704,
};

inline constexpr char kStatSocket[] = "ipc_stat";

// kStatStart
struct StatStartBody {
    s32 nInterval;  // seconds between two reports
};
static_assert(sizeof(StatStartBody) == 4);

// One interface in a report.
struct VIMBRA_WIRE NetDevBandStat {
    u64 dwBandSended;  // bytes sent, as the daemon counts them
    u64 dwBandRecved;  // bytes received, as the daemon counts them
    u32 bIsValid;      // 0: there is no such interface
    u32 dwReserved;    // zero
};
static_assert(sizeof(NetDevBandStat) == 24);
static_assert(offsetof(NetDevBandStat, dwBandRecved) == 8);
static_assert(offsetof(NetDevBandStat, bIsValid) == 16);

// A report: the interfaces 0, 1 and 2.
struct StatReportBody {
    NetDevBandStat atStat[3];  // eth0, eth1, eth2
};
static_assert(sizeof(StatReportBody) == 72);

}  // namespace vimbra::wire

#endif
