// A command line as people type it, turned into what the parser takes.
#ifndef VIMBRA_TOOLS_VIMBRACTL_COMMAND_LINE_HPP
#define VIMBRA_TOOLS_VIMBRACTL_COMMAND_LINE_HPP

#include <string>
#include <vector>

#include "arguments.hpp"

namespace ctl {

using Words = std::vector<std::string>;

// The commands below one; none below one that does something.
std::vector<const CLI::App*> CommandsBelow(const CLI::App& command);

// The commands of a line that begin as `word`; only the one that it spells out, if there is one.
std::vector<const CLI::App*> CommandsMeant(const CLI::App& parent, const std::string& word);

// Writes commands out that are abbreviated, and moves options that stand before a command behind
// it, where they mean the same. Throws CommandFailed on an abbreviation of several commands.
Words WrittenOut(const CLI::App& root, const Words& words);

}  // namespace ctl

#endif
