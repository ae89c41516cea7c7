// A route of the kernel as operators are shown it.
#ifndef VIMBRA_TOOLS_VIMBRAD_ROUTE_TEXT_HPP
#define VIMBRA_TOOLS_VIMBRAD_ROUTE_TEXT_HPP

#include "kernel_route.hpp"
#include "service.hpp"

namespace vimbrad {

// Destination, gateway, interface, metric, protocol; without what it has not.
Json ShownRoute(rtnl_route* route);

}  // namespace vimbrad

#endif
