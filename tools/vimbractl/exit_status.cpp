#include "exit_status.hpp"

namespace ctl {

std::string ExitStatusHelp() {
    return "Exit status:\n"
           "  0  done\n"
           "  1  general failure: the system refused, or memory ran out\n"
           "  2  a wrong command line, or an argument that the library refused\n"
           "  3  the network daemon cannot be reached or gave no whole answer\n"
           "  4  the network daemon refused; the message holds its code\n"
           "  5  what was asked about does not exist or does not hold\n";
}

}  // namespace ctl
