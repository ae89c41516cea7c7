// Requests of the common module.
#ifndef VIMBRA_API_NETWORK_COMMON_NETCOMMON_WIRE_HPP
#define VIMBRA_API_NETWORK_COMMON_NETCOMMON_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 { kLogSwitch = 0x0702 };

struct LogSwitchBody {
    u32 dwSwitch;  // level, 0 to 5
};
static_assert(sizeof(LogSwitchBody) == 4);

}  // namespace vimbra::wire

#endif
