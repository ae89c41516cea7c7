// Whether a program serves its UDP port yet; most say nothing when they begin to.
#ifndef VIMBRA_TOOLS_VIMBRAD_UDP_PORT_HPP
#define VIMBRA_TOOLS_VIMBRAD_UDP_PORT_HPP

#include <sys/types.h>
#include <vimbra/types.h>

namespace vimbrad {

// Has this process a UDP socket of IPv4 on this port? Others may have it at other interfaces.
bool HasUdpPort(pid_t pid, u16 port);

}  // namespace vimbrad

#endif
