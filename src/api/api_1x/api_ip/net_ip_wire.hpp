// The interface report, which only the legacy readers ask for.
#ifndef VIMBRA_API_1X_API_IP_NET_IP_WIRE_HPP
#define VIMBRA_API_1X_API_IP_NET_IP_WIRE_HPP

#include <vimbra/net_ip.h>

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kIpaddrShowFilter = 283,  // IfaceBody; the reply is an api_ipaddr_show_info
};

static_assert(sizeof(ir_ipaddr_param) == 56);
static_assert(offsetof(ir_ipaddr_param, ipaddr) == 0);
static_assert(offsetof(ir_ipaddr_param, ipmask) == 48);
static_assert(offsetof(ir_ipaddr_param, ipflag) == 52);

static_assert(sizeof(ir_ipaddr_param_all) == 900);
static_assert(offsetof(ir_ipaddr_param_all, ipnum) == 0);
static_assert(offsetof(ir_ipaddr_param_all, ipaddr_param) == 4);

static_assert(sizeof(ir_ipaddr_show_info) == 924);
static_assert(offsetof(ir_ipaddr_show_info, mtu) == 0);
static_assert(offsetof(ir_ipaddr_show_info, mac) == 4);
static_assert(offsetof(ir_ipaddr_show_info, ipaddr_param_all) == 24);

static_assert(sizeof(api_ipaddr_show_info) == 928);
static_assert(offsetof(api_ipaddr_show_info, errid) == 0);
static_assert(offsetof(api_ipaddr_show_info, ipaddr_show_info) == 4);

}  // namespace vimbra::wire

#endif
