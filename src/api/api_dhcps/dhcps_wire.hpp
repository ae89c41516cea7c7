// Requests and replies of the DHCP server. Unlike the DHCP client's, the name comes first.
#ifndef VIMBRA_API_DHCPS_WIRE_HPP
#define VIMBRA_API_DHCPS_WIRE_HPP

#include <vimbra/dhcps.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kDhcpsStart = 0x801,
    kDhcpsStop = 0x802,
    kDhcpsState = 0x804,    // the reply is the state alone, without result code
    kDhcpsStopAll = 0x805,  // no body
};

static_assert(sizeof(TVimbraDnsInfo) == 1284);
static_assert(offsetof(TVimbraDnsInfo, tDnsIp) == 4);

static_assert(sizeof(TVimbraDhcpsInfo) == 1372);
static_assert(offsetof(TVimbraDhcpsInfo, tIpPoolStart) == 0);
static_assert(offsetof(TVimbraDhcpsInfo, tIpPoolEnd) == 20);
static_assert(offsetof(TVimbraDhcpsInfo, dwIpPoolPrefix) == 40);
static_assert(offsetof(TVimbraDhcpsInfo, tRoutes) == 44);
static_assert(offsetof(TVimbraDhcpsInfo, tIfaceIp) == 64);
static_assert(offsetof(TVimbraDhcpsInfo, dwIfacePrefix) == 84);
static_assert(offsetof(TVimbraDhcpsInfo, tDnsServerInfo) == 88);

static_assert(sizeof(TVimbraDhcpsState) == 4);

// kDhcpsStop, kDhcpsState
struct VIMBRA_WIRE DhcpsIfaceBody {
    NameField achIfaceName;  // the interface
    u16 wSinFamily;          // VIMBRA_FAMILY_...
};
static_assert(sizeof(DhcpsIfaceBody) == 18);
static_assert(offsetof(DhcpsIfaceBody, wSinFamily) == 16);

// kDhcpsStart
struct VIMBRA_WIRE DhcpsStartBody {
    NameField achIfaceName;       // the interface
    u16 wSinFamily;               // VIMBRA_FAMILY_...
    TVimbraDhcpsInfo tDhcpsInfo;  // the pool, and what clients are told
};
static_assert(sizeof(DhcpsStartBody) == 1390);
static_assert(offsetof(DhcpsStartBody, wSinFamily) == 16);
static_assert(offsetof(DhcpsStartBody, tDhcpsInfo) == 18);

}  // namespace vimbra::wire

#endif
