// The place that the conflict watch keeps for the callbacks of the legacy generation.
#ifndef VIMBRA_API_NETWORK_COMMON_API_IP_CONFLICT_HPP
#define VIMBRA_API_NETWORK_COMMON_API_IP_CONFLICT_HPP

#include <vimbra/ip_conflict.h>

namespace vimbra {

// Sees an IPv4 conflict before the callback of the watch, on the listener's thread, with the name
// of the interface. 0 when the conflict has been delivered, so that the callback is left out.
using ConflictFilter = int (*)(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address,
                               const char* iface);

// From the next conflict on, for as long as the process lives.
void SetConflictFilter(ConflictFilter filter);

}  // namespace vimbra

#endif
