// What the daemon's programs run when something happens, and the keeper of those that may outlive
// it. A hook is a link to the daemon's own program, which looks by what name it was called: nothing
// has to be executable in the run directory, whose file system often runs no programs, and no shell
// takes values of servers apart.
#ifndef VIMBRA_TOOLS_VIMBRAD_HOOKS_HPP
#define VIMBRA_TOOLS_VIMBRAD_HOOKS_HPP

#include <optional>

namespace vimbrad {

class RunDirectory;

// Names in the run directory.
inline constexpr char kUdhcpcHook[] = "udhcpc-hook";
inline constexpr char kDhclientHook[] = "dhclient-hook";
inline constexpr char kPppdHook[] = "pppd-hook";
inline constexpr char kLinkKeeper[] = "link-keeper";

// Throws std::system_error.
void MakeHooks(const RunDirectory& runDir);

// Does a hook's work if it was called by the name of one; its exit status then.
std::optional<int> RunAsHook(int argc, char** argv);

}  // namespace vimbrad

#endif
