#include <vimbra/route.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
    u16 family = VIMBRA_FAMILY_IPV4;
    TVimbraAddr gateway = {};
    std::optional<u32> table;
};

// The library says which numbers it takes.
const Kind<u32> kGatewayTable = {"a number, 1 to 254", ParseNumber};
constexpr const char* kAccepted = "a table of 1 to 254";

// Null leaves the choice to the daemon.
char* Name(Arguments& arguments) {
    return arguments.interface.text[0] != '\0' ? arguments.interface.text : nullptr;
}

void Show(Tool& tool, Arguments& arguments) {
    TVimbraAddr gateway = {};
    tool.Call(
        [&] {
            return arguments.table
                       ? VimbraGetDefGatewayFromTable(Name(arguments), arguments.family, &gateway,
                                                      *arguments.table)
                       : VimbraGetDefGateway(Name(arguments), arguments.family, &gateway);
        },
        kAccepted);
    Json record = {{"interface", nullptr},
                   {"family", FamilyText(arguments.family)},
                   {"gateway", nullptr},
                   {"table", nullptr}};
    if (const char* name = Name(arguments)) {
        record.Set("interface", name);
    }
    if (arguments.table) {
        record.Set("table", *arguments.table);
    }
    // A default route may lead straight out of the interface.
    std::string text = "no gateway";
    if (!IsZero(gateway)) {
        text = tool.Colours().Address(gateway);
        record.Set("gateway", AddressText(gateway));
    }
    tool.Show(text, record);
}

void Set(Tool& tool, Arguments& arguments) {
    tool.Call(
        [&] {
            return arguments.table ? VimbraSetDefGatewayToTable(Name(arguments), arguments.gateway,
                                                                *arguments.table)
                                   : VimbraSetDefGateway(Name(arguments), arguments.gateway);
        },
        kAccepted);
    tool.Done();
}

void Delete(Tool& tool, Arguments& arguments) {
    tool.Call(
        [&] {
            return arguments.table ? VimbraDelDefGatewayFromTable(Name(arguments), arguments.family,
                                                                  *arguments.table)
                                   : VimbraDelDefGateway(Name(arguments), arguments.family);
        },
        kAccepted);
    tool.Done();
}

}  // namespace

void AddGatewayCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "gateway", "The default gateway of an interface."), tool);
    const auto command = [&](const CommandText& text, void (*run)(Tool&, Arguments&)) -> CLI::App& {
        CLI::App& added = commands.Add(text, run);
        AddArgument(added, "interface", commands->interface, kInterfaceOrAny, "The interface")
            .Required();
        return added;
    };
    const auto table = [&](CLI::App& added) {
        AddArgument(added, "--table", commands->table, kGatewayTable,
                    "The table; the main one by default");
    };
    const auto family = [&](CLI::App& added) {
        AddFamilyArgument(added, commands->family, kFamily, "Which one, ipv4 by default");
    };

    CLI::App& show =
        command({"show", "Show the default gateway of an interface.",
                 "gateway show eth0\ngateway show eth0 --family ipv6 --table 100 --json"},
                Show);
    family(show);
    table(show);

    CLI::App& set = command({"set", "Set the default gateway of an interface.",
                             "gateway set eth0 192.0.2.1\ngateway set eth0 192.0.2.1 --table 100"},
                            Set);
    AddArgument(set, "address", commands->gateway, kAddress, "The gateway").Required();
    table(set);

    CLI::App& del = command({"del", "Delete the default gateway of an interface.",
                             "gateway del eth0\ngateway del eth0 --family ipv6 --table 100"},
                            Delete);
    family(del);
    table(del);
}

}  // namespace ctl
