// The commands, one group in one file, and the table that names them all.
#ifndef VIMBRA_TOOLS_VIMBRACTL_COMMANDS_HPP
#define VIMBRA_TOOLS_VIMBRACTL_COMMANDS_HPP

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

// The commands below a group, or the root, that share their arguments.
template <typename Arguments>
class Commands {
 public:
    using Run = std::function<void(Tool&, Arguments&)>;

    Commands(CLI::App& parent, Tool& tool)
        : parent_(parent), tool_(tool), arguments_(std::make_shared<Arguments>()) {}

    CLI::App& Add(const CommandText& text, Run run) const {
        return AddCommand(parent_, tool_, text,
                          [&tool = tool_, arguments = arguments_, run = std::move(run)] {
                              run(tool, *arguments);
                          });
    }

    // Where the commands find what the arguments were read into.
    Arguments* operator->() const { return arguments_.get(); }

 private:
    CLI::App& parent_;
    Tool& tool_;
    std::shared_ptr<Arguments> arguments_;
};

// An option without a value. `target` outlives the command.
void AddFlag(CLI::App& command, const char* name, bool& target, const char* about);

// -4 and -6 for a command that has --family.
void AddFamilyFlags(CLI::App& command, const std::function<void(u16 family)>& take);

// Which family a command is about.
template <typename Target>
void AddFamilyArgument(CLI::App& command, Target& target, const Kind<u16>& kind,
                       const char* about) {
    AddArgument(command, "--family", target, kind, about);
    AddFamilyFlags(command, [&target](u16 family) { target = family; });
}

// The interface that a command acts on, its first argument.
void AddInterfaceArgument(CLI::App& command, InterfaceName& name);

// Fails where nothing runs on an interface because there is no such interface.
void ExpectInterface(const InterfaceName& name, bool runs);

void AddVersionCommand(CLI::App& root, Tool& tool);
void AddLogLevelCommand(CLI::App& root, Tool& tool);
void AddCodesCommand(CLI::App& root, Tool& tool);
void AddCheckCommands(CLI::App& root, Tool& tool);
void AddLinkCommands(CLI::App& root, Tool& tool);
void AddAddrCommands(CLI::App& root, Tool& tool);
void AddMacCommands(CLI::App& root, Tool& tool);
void AddMonitorCommand(CLI::App& root, Tool& tool);
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
void AddStatusCommand(CLI::App& root, Tool& tool);
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
