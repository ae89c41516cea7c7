// How a password comes to the tool. Never on the command line, which everybody can see: typed twice
// at a prompt without echo, or the first line of standard input when that is no terminal.
#ifndef VIMBRACTL_PASSWORD_HPP
#define VIMBRACTL_PASSWORD_HPP

#include <string>

namespace ctl {

// Throws CommandFailed when there is none.
std::string ReadPassword();

}  // namespace ctl

#endif
