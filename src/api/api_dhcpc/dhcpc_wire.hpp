// Requests and notifications of the DHCP client.
#ifndef VIMBRA_API_DHCPC_WIRE_HPP
#define VIMBRA_API_DHCPC_WIRE_HPP

#include <vimbra/dhcpc.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kDhcpcStart = 1281,
    kDhcpcStop = 1282,
    kDhcpcRenew = 1287,

    // Notifications
    kDhcpcLease = 1285,
    kDhcpcFail = 1286,
};

// The notification sockets; "_" and the interface name follow.
inline constexpr char kDhcpcSocketIpv4[] = "ipc_dhcpc";
inline constexpr char kDhcpcSocketIpv6[] = "ipc_dhcpcv6";

// kDhcpcStart, kDhcpcStop, kDhcpcRenew: FamilyIfaceBody

// kDhcpcLease, kDhcpcFail
static_assert(sizeof(TVimbraDhcpcAddrInfo) == 1348);
static_assert(offsetof(TVimbraDhcpcAddrInfo, achDevName) == 0);
static_assert(offsetof(TVimbraDhcpcAddrInfo, tIpAddrs) == 16);
static_assert(offsetof(TVimbraDhcpcAddrInfo, tGateWay) == 36);
static_assert(offsetof(TVimbraDhcpcAddrInfo, dwIpPrefix) == 56);
static_assert(offsetof(TVimbraDhcpcAddrInfo, dwLeaseTime) == 60);
static_assert(offsetof(TVimbraDhcpcAddrInfo, dwDnsNum) == 64);
static_assert(offsetof(TVimbraDhcpcAddrInfo, atDnsServer) == 68);

}  // namespace vimbra::wire

#endif
