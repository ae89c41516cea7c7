// The commands, one group in one file, and the table that names them all.
#ifndef VIMBRACTL_COMMANDS_HPP
#define VIMBRACTL_COMMANDS_HPP

#include <functional>
#include <memory>
#include <span>

#include "arguments.hpp"
#include "tool.hpp"

namespace ctl {

// Adds a group's commands under the root.
using AddGroup = void (*)(CLI::App& root, Tool& tool);

// In the order in which the help lists them.
std::span<const AddGroup> Groups();

// A group: a word that another word has to follow.
CLI::App& AddGroupCommand(CLI::App& root, const char* name, const char* about);

struct CommandText {
    const char* name;
    const char* about;
    const char* example;  // without the program's name; several lines are several examples
};

// A command, without arguments yet. `run` is called once the command line was found right, and
// throws CommandFailed when it cannot do what it was asked.
CLI::App& AddCommand(CLI::App& parent, Tool& tool, const CommandText& text,
                     std::function<void()> run);

// An option without a value. `target` outlives the command.
void AddFlag(CLI::App& command, const char* name, bool& target, const char* about);

// The interface that a command acts on, its first argument.
void AddInterfaceArgument(CLI::App& command, InterfaceName& name);

void AddVersionCommand(CLI::App& root, Tool& tool);
void AddLogLevelCommand(CLI::App& root, Tool& tool);
void AddCodesCommand(CLI::App& root, Tool& tool);
void AddCheckCommands(CLI::App& root, Tool& tool);
void AddLinkCommands(CLI::App& root, Tool& tool);
void AddAddrCommands(CLI::App& root, Tool& tool);
void AddMacCommands(CLI::App& root, Tool& tool);
void AddMtuCommands(CLI::App& root, Tool& tool);
void AddRouteCommands(CLI::App& root, Tool& tool);
void AddGatewayCommands(CLI::App& root, Tool& tool);
void AddTableCommands(CLI::App& root, Tool& tool);
void AddRuleCommands(CLI::App& root, Tool& tool);
void AddPriorityCommands(CLI::App& root, Tool& tool);
void AddDnsCommands(CLI::App& root, Tool& tool);
void AddUserCommands(CLI::App& root, Tool& tool);
void AddServiceCommands(CLI::App& root, Tool& tool);
void AddRaCommands(CLI::App& root, Tool& tool);
void AddConflictCommands(CLI::App& root, Tool& tool);
void AddStatCommands(CLI::App& root, Tool& tool);
void AddPingCommand(CLI::App& root, Tool& tool);
void AddTracerouteCommand(CLI::App& root, Tool& tool);
void AddBondCommands(CLI::App& root, Tool& tool);
void AddWebCommands(CLI::App& root, Tool& tool);
void AddDhcpCommands(CLI::App& root, Tool& tool);
void AddDhcpServerCommands(CLI::App& root, Tool& tool);
void AddNtpCommands(CLI::App& root, Tool& tool);
void AddPppoeCommands(CLI::App& root, Tool& tool);

}  // namespace ctl

#endif
