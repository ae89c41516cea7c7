// Requests of the web server switch.
#ifndef VIMBRA_API_WEBS_WIRE_HPP
#define VIMBRA_API_WEBS_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kWebEnable = 769,
    kWebDisable = 770,  // no body
};

// kWebEnable
struct WebEnableBody {
    s32 port;  // TCP port
};
static_assert(sizeof(WebEnableBody) == 4);

}  // namespace vimbra::wire

#endif
