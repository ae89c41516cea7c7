#include "commands.hpp"

#include <array>

namespace ctl {

namespace {

constexpr AddGroup kGroups[] = {
    AddLinkCommands,    AddAddrCommands,   AddMacCommands,  AddMtuCommands,      AddRouteCommands,
    AddGatewayCommands, AddTableCommands,  AddRuleCommands, AddPriorityCommands, AddCheckCommands,
    AddLogLevelCommand, AddVersionCommand, AddCodesCommand,
};

}  // namespace

std::span<const AddGroup> Groups() {
    return kGroups;
}

CLI::App& AddGroupCommand(CLI::App& root, const char* name, const char* about) {
    return *root.add_subcommand(name, about)->group("Commands");
}

CLI::App& AddCommand(CLI::App& parent, Tool& tool, const CommandText& text,
                     std::function<void()> run) {
    CLI::App& command = *parent.add_subcommand(text.name, text.about)->group("Commands");
    command.add_flag("-j,--json", tool.json, "Print JSON, errors included");
    command.add_flag("-v,--verbose", tool.verbose, "Show the library's log on standard error");
    std::string footer = "Example:";
    std::string_view rest = text.example;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        footer += "\n  vimbractl " + std::string(line);
    }
    command.footer(footer);
    command.callback(std::move(run));
    return command;
}

void AddInterfaceArgument(CLI::App& command, InterfaceName& name) {
    AddArgument(command, "interface", name, kInterface, "The interface")->required();
}

}  // namespace ctl
