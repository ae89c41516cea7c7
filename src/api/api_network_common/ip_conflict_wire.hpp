// Requests and notifications of the watch for address conflicts.
#ifndef VIMBRA_API_NETWORK_COMMON_IP_CONFLICT_WIRE_HPP
#define VIMBRA_API_NETWORK_COMMON_IP_CONFLICT_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kConflictStart = 281,
    kConflictStop = 282,
};

inline constexpr char kConflictSocket[] = "ipc_ip_conflict";
inline constexpr char kConflictSocketV6[] = "ipc_ipv6_conflict";

// kConflictStart, kConflictStop
struct ConflictBody {
    u16 wSinFamily;  // 2 or 10: whose addresses are watched
};
static_assert(sizeof(ConflictBody) == 2);

// A conflict; the header's type says which: 1 an address of ours, 2 a MAC address of ours.
struct VIMBRA_WIRE IpConfilctMsg {
    NameField achIfcName;  // where it was heard
    TVimbraAddr tIpAddr;   // the address that two hosts have
    TVimbraIfaceMac mac;   // the other host's
};
static_assert(sizeof(IpConfilctMsg) == 42);
static_assert(offsetof(IpConfilctMsg, tIpAddr) == 16);
static_assert(offsetof(IpConfilctMsg, mac) == 36);

}  // namespace vimbra::wire

#endif
