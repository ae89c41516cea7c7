// Addresses of an interface as applications see them.
#ifndef VIMBRA_TOOLS_VIMBRAD_ADDRESS_RECORD_HPP
#define VIMBRA_TOOLS_VIMBRAD_ADDRESS_RECORD_HPP

#include <netlink/route/addr.h>
#include <vimbra/addr.h>

#include <vector>

#include "netlink.hpp"

namespace vimbrad {

TVimbraIfaceIp RecordOf(rtnl_addr* address);

// As many as the record holds.
TVimbraIfaceAllIp RecordsOf(const std::vector<IfaceAddr>& addresses);

}  // namespace vimbrad

#endif
