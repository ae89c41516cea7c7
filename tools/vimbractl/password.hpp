// How a password comes to the tool. Never on the command line, which everybody can see: typed at a
// prompt without echo, or the first line of standard input when that is no terminal.
#ifndef VIMBRA_TOOLS_VIMBRACTL_PASSWORD_HPP
#define VIMBRA_TOOLS_VIMBRACTL_PASSWORD_HPP

#include <string>

namespace ctl {

// One that somebody has. Throws CommandFailed when there is none.
std::string ReadPassword();
// One that somebody is to have: it is typed twice.
std::string ReadNewPassword();

// For the help of a command that reads one.
inline constexpr const char* kPasswordText =
    "\nThe password is typed at a prompt, or is the first line of standard input when\n"
    "that is no terminal: never on the command line, where every process can see it.";

}  // namespace ctl

#endif
