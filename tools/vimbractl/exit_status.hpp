// How a command ends, for scripts. The numbers are an interface: they stay.
#ifndef VIMBRA_TOOLS_VIMBRACTL_EXIT_STATUS_HPP
#define VIMBRA_TOOLS_VIMBRACTL_EXIT_STATUS_HPP

#include <string>

namespace ctl {

enum class ExitStatus {
    kDone = 0,
    kFailed = 1,       // general failure: the system refused, memory ran out
    kUsage = 2,        // the command line is wrong, or the library refused an argument
    kUnreachable = 3,  // no network daemon, or no whole answer from it in time
    kRefused = 4,      // the network daemon refused; its own code is in the message
    kNotSo = 5,        // what was asked about does not exist or does not hold
};

// The list of them as the help shows it.
std::string ExitStatusHelp();

}  // namespace ctl

#endif
