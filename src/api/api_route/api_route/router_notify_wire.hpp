// Requests and notifications of the watch for router advertisements.
#ifndef VIMBRA_API_ROUTE_ROUTER_NOTIFY_WIRE_HPP
#define VIMBRA_API_ROUTE_ROUTER_NOTIFY_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kRouterAdvertiseStart = 279,
    kRouterAdvertiseStop = 280,  // IfaceBody
};

inline constexpr char kRouterNotifySocket[] = "ipc_router_notify";

// kRouterAdvertiseStart
struct RouterAdvertiseStartBody {
    NameField achIfaceName;  // the interface
    s32 nUserId;             // which watch
};
static_assert(sizeof(RouterAdvertiseStartBody) == 20);
static_assert(offsetof(RouterAdvertiseStartBody, nUserId) == 16);

// The header's type of a notification; any other tells the listener to stop.
enum : u32 { kRouterNotify = 0, kRouterNotifyStop = 1 };

// What an interface's addresses are now.
struct RouterNotifyBody {
    NameField achIfaceName;            // the interface
    TVimbraIfaceAllIp tNetIfaceAllIp;  // its addresses now
};
static_assert(sizeof(RouterNotifyBody) == 468);
static_assert(offsetof(RouterNotifyBody, tNetIfaceAllIp) == 16);

}  // namespace vimbra::wire

#endif
