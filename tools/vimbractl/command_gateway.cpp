#include <vimbra/route.h>

#include "commands.hpp"
#include "status_socket.hpp"

namespace ctl {

namespace {

struct Arguments {
    std::optional<InterfaceName> interface;
    std::optional<u16> family;
    TVimbraAddr gateway = {};
    std::optional<u32> table;
    std::string runDir;
};

// The library says which numbers it takes.
const Kind<u32> kGatewayTable = {"a number, 1 to 254", ParseNumber};
constexpr const char* kAccepted = "a table of 1 to 254";

u16 Family(const Arguments& arguments) {
    return arguments.family.value_or(VIMBRA_FAMILY_IPV4);
}

// Null leaves the choice to the daemon.
char* Name(Arguments& arguments) {
    return arguments.interface->text[0] != '\0' ? arguments.interface->text : nullptr;
}

bool IsMeant(const Json& gateway, const Arguments& arguments) {
    return (!arguments.family || gateway.At("family").Plain() == FamilyText(*arguments.family)) &&
           (!arguments.table || gateway.At("table").Plain() == std::to_string(*arguments.table));
}

// Those of all interfaces and tables are known to the companion daemon alone.
void ShowAll(Tool& tool, const Arguments& arguments) {
    const Json answer = StatusSocket(arguments.runDir).Ask("gateways");
    const Painter colours = tool.Colours();
    std::string text;
    Json gateways = Json::Array();
    for (const Json& each : answer.At("gateways").Items()) {
        if (!IsMeant(each, arguments)) {
            continue;
        }
        gateways.Append(each);
        const Json gateway = each.At("gateway");
        text += each.At("family").Plain() + "  " + (gateway.IsNull() ? "-" : gateway.Plain()) +
                "  " + colours.Interface(each.At("interface").Plain()) + "  metric " +
                each.At("metric").Plain() + "  table " + each.At("table").Plain() + "\n";
    }
    tool.Show(text.empty() ? "no gateways" : text, Json{{"gateways", gateways}});
}

void Show(Tool& tool, Arguments& arguments) {
    if (!arguments.interface) {
        ShowAll(tool, arguments);
        return;
    }
    TVimbraAddr gateway = {};
    tool.Call(
        [&] {
            return arguments.table
                       ? VimbraGetDefGatewayFromTable(Name(arguments), Family(arguments), &gateway,
                                                      *arguments.table)
                       : VimbraGetDefGateway(Name(arguments), Family(arguments), &gateway);
        },
        kAccepted);
    Json record = {{"interface", nullptr},
                   {"family", FamilyText(Family(arguments))},
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
            return arguments.table ? VimbraDelDefGatewayFromTable(
                                         Name(arguments), Family(arguments), *arguments.table)
                                   : VimbraDelDefGateway(Name(arguments), Family(arguments));
        },
        kAccepted);
    tool.Done();
}

}  // namespace

void AddGatewayCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "gateway", "The default gateway of an interface."), tool);
    const auto interface = [&](CLI::App& added) {
        return AddArgument(added, "interface", commands->interface, kInterfaceOrAny,
                           "The interface");
    };
    const auto table = [&](CLI::App& added) {
        AddArgument(added, "--table", commands->table, kGatewayTable,
                    "The table; the main one by default");
    };
    const auto family = [&](CLI::App& added) {
        AddFamilyArgument(added, commands->family, kFamily, "Which one, ipv4 by default");
    };

    CLI::App& show = commands.Add(
        {"show",
         "Show the default gateway of an interface; without one those of all\n"
         "interfaces and tables, as the companion daemon knows them.",
         "gateway show eth0\ngateway show\ngateway show eth0 --family ipv6 --table 100 --json"},
        Show);
    interface(show);
    family(show);
    table(show);
    AddRunDirArgument(show, commands->runDir);

    CLI::App& set =
        commands.Add({"set", "Set the default gateway of an interface.",
                      "gateway set eth0 192.0.2.1\ngateway set eth0 192.0.2.1 --table 100"},
                     Set);
    interface(set).Required();
    AddArgument(set, "address", commands->gateway, kAddress, "The gateway").Required();
    table(set);

    CLI::App& del = commands.Add({"del", "Delete the default gateway of an interface.",
                                  "gateway del eth0\ngateway del eth0 --family ipv6 --table 100"},
                                 Delete);
    interface(del).Required();
    family(del);
    table(del);
}

}  // namespace ctl
