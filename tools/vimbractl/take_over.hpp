// Who a service tells its events to: the process that has the name of the service's socket. A watch
// that starts takes the name, and with it the events, from whoever has it.
#ifndef VIMBRA_TOOLS_VIMBRACTL_TAKE_OVER_HPP
#define VIMBRA_TOOLS_VIMBRACTL_TAKE_OVER_HPP

#include <string>

#include "arguments.hpp"

namespace ctl {

// --take-over. `target` outlives the command.
void AddTakeOverFlag(CLI::App& command, bool& target);

// To be called before a listener is started that serves `socket` below /tmp. Throws CommandFailed
// when a living process has that name, unless it may be taken over, and when the name is somebody
// else's and stays so whatever is tried.
void ExpectFree(const std::string& socket, bool takeOver);

// Whether a process listens on a socket that was made under this name. To connect would tell as well,
// but a listener takes every connection for a message.
bool IsListening(const std::string& path);

}  // namespace ctl

#endif
