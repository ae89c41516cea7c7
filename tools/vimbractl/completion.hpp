// What can follow on a command line that is being typed; shells ask for it with
// "vimbractl __complete WORD...". It comes from the commands themselves, so that no shell's list
// falls behind.
#ifndef VIMBRA_TOOLS_VIMBRACTL_COMPLETION_HPP
#define VIMBRA_TOOLS_VIMBRACTL_COMPLETION_HPP

#include <string>

#include "command_line.hpp"

namespace ctl {

inline constexpr const char* kCompleteCommand = "__complete";

// `words` are those behind the program's name, the last one the one that is being typed, perhaps
// empty. A line for each candidate: itself, a tab and what it is.
std::string Completions(const CLI::App& root, const Words& words);

}  // namespace ctl

#endif
