// What every message has in common: header, addresses, name fields, plain results. Both ends of the
// socket include this header and those of the services; it needs nothing else of the library.
#ifndef VIMBRA_LIB_WIRE_HPP
#define VIMBRA_LIB_WIRE_HPP

#include <vimbra/addr.h>
#include <vimbra/ipc.h>

#include <cstddef>
#include <type_traits>

// A record on the wire has no padding but what it names.
#define VIMBRA_WIRE __attribute__((packed))

namespace vimbra::wire {

static_assert(sizeof(IpcMsgHead) == 12);
static_assert(offsetof(IpcMsgHead, type) == 0);
static_assert(offsetof(IpcMsgHead, size) == 4);
static_assert(offsetof(IpcMsgHead, flag) == 8);

static_assert(sizeof(TVimbraAddr) == 20);
static_assert(offsetof(TVimbraAddr, wSinFamily) == 0);
static_assert(offsetof(TVimbraAddr, tV4Addr) == 4);
static_assert(offsetof(TVimbraAddr, tV6Addr) == 4);

static_assert(sizeof(EVimbraScopeType) == 4);

static_assert(sizeof(TVimbraIfaceIp) == 28);
static_assert(offsetof(TVimbraIfaceIp, eScopeType) == 0);
static_assert(offsetof(TVimbraIfaceIp, tIpAddr) == 4);
static_assert(offsetof(TVimbraIfaceIp, dwPrefix) == 24);

static_assert(sizeof(TVimbraIfaceAllIp) == 452);
static_assert(offsetof(TVimbraIfaceAllIp, dwIpNum) == 0);
static_assert(offsetof(TVimbraIfaceAllIp, atNetIfaceIp) == 4);

static_assert(sizeof(TVimbraIfaceMac) == 6);

// An interface name: zero-filled, without terminator when all 16 characters are used.
using NameField = char[VIMBRA_IFACE_NAME_LEN];

// An interface alone.
struct IfaceBody {
    NameField achIfaceName;  // the interface
};
static_assert(sizeof(IfaceBody) == 16);

// One family of an interface.
struct VIMBRA_WIRE FamilyIfaceBody {
    u16 wSinFamily;          // 2, 10, or 11 where both are meant
    NameField achIfaceName;  // the interface
};
static_assert(sizeof(FamilyIfaceBody) == 18);
static_assert(offsetof(FamilyIfaceBody, achIfaceName) == 2);

// The reply of most requests: 0, or the daemon's number for what went wrong.
struct PlainResult {
    s32 nErrid;  // 0, or the daemon's number for its refusal
};
static_assert(sizeof(PlainResult) == 4);

}  // namespace vimbra::wire

#endif
