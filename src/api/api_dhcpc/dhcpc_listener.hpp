// The listening thread of a DHCP client: keeps its last lease and reports to the application.
#ifndef VIMBRA_API_DHCPC_LISTENER_HPP
#define VIMBRA_API_DHCPC_LISTENER_HPP

#include "api/api_dhcpc/dhcpc_record.hpp"

namespace vimbra::dhcpc {

// True when the client's listener was started, even if it has ended since.
bool Serve(Client& client);

}  // namespace vimbra::dhcpc

#endif
