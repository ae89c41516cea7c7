// A process between the daemon and a program that may outlive it, and outlives it only if the
// daemon says so. A program that is tied to its parent cannot get another one; so its parent is a
// keeper, which is tied to whichever daemon has the other end of a named pipe.
//
// The keeper is the daemon's own program by another name:
//
//     link-keeper CONTROL OUTPUT PROGRAM ARGUMENT...
//
// CONTROL is an open descriptor, the end of the named pipe that is read, OUTPUT the path of another
// named pipe, which the program gets as standard output and standard error.
#ifndef VIMBRA_TOOLS_VIMBRAD_KEEPER_HPP
#define VIMBRA_TOOLS_VIMBRAD_KEEPER_HPP

#include <string_view>

namespace vimbrad {

// Names of the pipes in the program's directory. Without a keeper nobody reads `control`.
inline constexpr char kControlName[] = "control";
inline constexpr char kOutputName[] = "output";

// What a daemon writes into `control`. When nobody has it open for writing any more the program has
// to end, too, unless it was let live last.
inline constexpr char kKeeperEnd = 'e';
inline constexpr char kKeeperLive = 'l';
// By the daemon that has taken the program up.
inline constexpr char kKeeperBound = 'b';

// What a keeper writes into `output`: the program's number, and at last its exit status and the
// signal that ended it.
inline constexpr std::string_view kKeeperPid = "@pid ";
inline constexpr std::string_view kKeeperEnded = "@ended ";

// Returns when the keeper has begun, and in the keeper when its program has ended; the exit status.
int RunKeeper(int argc, char** argv);

}  // namespace vimbrad

#endif
