// Requests and replies for addresses, MAC address and MTU of an interface.
#ifndef VIMBRA_API_IP_API_IPADDR_WIRE_HPP
#define VIMBRA_API_IP_API_IPADDR_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kIpaddrAdd = 257,
    kIpaddrDel = 259,
    kIpaddrFlush = 260,
    kIpaddrSet = 261,
    kMacSet = 262,
    kMacGet = 263,
    kMtuSet = 273,
    kMtuGet = 274,
    kIpaddrGet = 277,
};

// kMacGet, kMtuGet: IfaceBody

// kIpaddrAdd, kIpaddrDel
struct VIMBRA_WIRE IfaceIpBody {
    NameField achIfaceName;   // the interface
    TVimbraIfaceIp tIfaceIp;  // the address
};
static_assert(sizeof(IfaceIpBody) == 44);
static_assert(offsetof(IfaceIpBody, tIfaceIp) == 16);

// kIpaddrFlush, kIpaddrGet: FamilyIfaceBody

// kIpaddrSet
struct VIMBRA_WIRE IfaceAllIpBody {
    u16 wSinFamily;                 // whose addresses: 2, 10, or 11 for both
    NameField achIfaceName;         // the interface
    TVimbraIfaceAllIp tIfaceAllIp;  // the new ones
};
static_assert(sizeof(IfaceAllIpBody) == 470);
static_assert(offsetof(IfaceAllIpBody, achIfaceName) == 2);
static_assert(offsetof(IfaceAllIpBody, tIfaceAllIp) == 18);

// kMacSet
struct IfaceMacBody {
    NameField achIfaceName;     // the interface
    TVimbraIfaceMac tIfaceMac;  // the new one
};
static_assert(sizeof(IfaceMacBody) == 22);
static_assert(offsetof(IfaceMacBody, tIfaceMac) == 16);

// kMtuSet
struct IfaceMtuBody {
    NameField achIfaceName;  // the interface
    u32 dwMtu;               // bytes
};
static_assert(sizeof(IfaceMtuBody) == 20);
static_assert(offsetof(IfaceMtuBody, dwMtu) == 16);

// Reply of kIpaddrGet
struct TIpcAllIp {
    s32 nErrid;                   // 0, or the daemon's number for its refusal
    TVimbraIfaceAllIp tIpcAllIp;  // the addresses
};
static_assert(sizeof(TIpcAllIp) == 456);
static_assert(offsetof(TIpcAllIp, tIpcAllIp) == 4);

// Reply of kMacGet
struct TIpcMac {
    s32 nErrid;                    // 0, or the daemon's number for its refusal
    TVimbraIfaceMac tIpcIfaceMac;  // the MAC address
};
static_assert(sizeof(TIpcMac) == 12);
static_assert(offsetof(TIpcMac, tIpcIfaceMac) == 4);

// Reply of kMtuGet
struct TIpcMtu {
    s32 nErrid;  // 0, or the daemon's number for its refusal
    u32 dwMtu;   // bytes
};
static_assert(sizeof(TIpcMtu) == 8);
static_assert(offsetof(TIpcMtu, dwMtu) == 4);

}  // namespace vimbra::wire

#endif
