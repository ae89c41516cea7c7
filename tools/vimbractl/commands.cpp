#include "commands.hpp"

#include <CLI/CLI.hpp>

#include "interfaces.hpp"

namespace ctl {

namespace {

constexpr AddGroup kGroups[] = {
    AddLinkCommands,     AddAddrCommands,    AddMacCommands,       AddMtuCommands,
    AddRouteCommands,    AddGatewayCommands, AddTableCommands,     AddRuleCommands,
    AddPriorityCommands, AddRaCommands,      AddDhcpCommands,      AddDhcpServerCommands,
    AddPppoeCommands,    AddDnsCommands,     AddNtpCommands,       AddConflictCommands,
    AddStatCommands,     AddPingCommand,     AddTracerouteCommand, AddUserCommands,
    AddServiceCommands,  AddBondCommands,    AddWebCommands,       AddCheckCommands,
    AddLogLevelCommand,  AddVersionCommand,  AddCodesCommand,      AddStatusCommand,
    AddMonitorCommand,
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

void AddedArgument::Required() {
    option_.required();
}

AddedArgument AddTextArgument(CLI::App& command, const std::string& name, const std::string& about,
                              const char* accepted, const char* type, Times times, TakeText take) {
    const auto takeAll = [name, accepted, take = std::move(take)](const CLI::results_t& texts) {
        for (const std::string& text : texts) {
            if (!take(text)) {
                throw CLI::ValidationError(
                    name, "\"" + text + "\" is refused; accepted: " + std::string(accepted));
            }
        }
        return true;
    };
    CLI::Option& option = *command.add_option(name, takeAll, about + ": " + accepted);
    option.type_name(type);
    if (times == Times::kMany) {
        option.expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
    }
    return AddedArgument(option);
}

void AddFlag(CLI::App& command, const char* name, bool& target, const char* about) {
    command.add_flag(name, target, about);
}

void AddFamilyFlags(CLI::App& command, const std::function<void(u16 family)>& take) {
    CLI::Option* const named = command.get_option("--family");
    CLI::Option* const four = command.add_flag_callback(
        "-4", [take] { take(VIMBRA_FAMILY_IPV4); }, "The same as --family ipv4");
    CLI::Option* const six = command.add_flag_callback(
        "-6", [take] { take(VIMBRA_FAMILY_IPV6); }, "The same as --family ipv6");
    four->excludes(named)->excludes(six);
    six->excludes(named);
}

void AddInterfaceArgument(CLI::App& command, InterfaceName& name) {
    AddArgument(command, "interface", name, kInterface, "The interface").Required();
}

void ExpectInterface(const InterfaceName& name, bool runs) {
    if (!runs && !InterfaceExists(name.text)) {
        throw CommandFailed(ExitStatus::kNotSo, "nothing runs there");
    }
}

}  // namespace ctl
