// The interfaces that there are.
#ifndef VIMBRA_TOOLS_VIMBRACTL_INTERFACES_HPP
#define VIMBRA_TOOLS_VIMBRACTL_INTERFACES_HPP

#include <string>
#include <vector>

namespace ctl {

// In the order in which the kernel has them. Throws CommandFailed.
std::vector<std::string> InterfaceNames();
bool InterfaceExists(const std::string& name);

}  // namespace ctl

#endif
