#include <vimbra/route.h>

#include "commands.hpp"
#include "status_socket.hpp"

namespace ctl {

namespace {

// The library says which numbers it takes.
const Kind<u32> kTable = {"a number, 1 to 252", ParseNumber};

struct Arguments {
    std::optional<u32> table;
    std::string runDir;
};

void Add(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraAddRouteTable(*arguments.table); }, kTable.accepted);
    tool.Done();
}

void Delete(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraDelRouteTable(*arguments.table); }, kTable.accepted);
    tool.Done();
}

std::string RoutesText(const Json& table, const Painter& colours) {
    std::string text;
    for (const Json& route : table.At("routes").Items()) {
        const Json gateway = route.At("gateway");
        const Json interface = route.At("interface");
        text += "  " + route.At("family").Plain() + "  " + route.At("destination").Plain();
        text += gateway.IsNull() ? "" : "  via " + gateway.Plain();
        text += interface.IsNull() ? "" : "  " + colours.Interface(interface.Plain());
        text +=
            "  metric " + route.At("metric").Plain() + "  " + route.At("protocol").Plain() + "\n";
    }
    return text;
}

void Show(Tool& tool, Arguments& arguments) {
    const Json answer = StatusSocket(arguments.runDir).Ask("tables");
    const Painter colours = tool.Colours();
    Json tables = Json::Array();
    std::string text;
    for (const Json& each : answer.At("tables").Items()) {
        const std::string number = each.At("table").Plain();
        if (arguments.table && number != std::to_string(*arguments.table)) {
            continue;
        }
        tables.Append(each);
        text += "table " + number + (each.At("created").Plain() == "true" ? ", created" : "") +
                "\n" + RoutesText(each, colours);
    }
    if (text.empty() && arguments.table) {
        throw CommandFailed(ExitStatus::kNotSo, "no table " + std::to_string(*arguments.table) +
                                                    " was created or holds a route");
    }
    tool.Show(text.empty() ? "no tables" : text, Json{{"tables", tables}});
}

}  // namespace

void AddTableCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(AddGroupCommand(root, "table", "Numbered routing tables."),
                                       tool);
    CLI::App& show = commands.Add(
        {"show", "Show the routes of a table; without one of all that were created or hold any.",
         "table show\ntable show 100 --json"},
        Show);
    AddArgument(show, "table", commands->table, kNumber, "The table; all of them without");
    AddRunDirArgument(show, commands->runDir);
    CLI::App& add = commands.Add({"add", "Create a routing table.", "table add 100"}, Add);
    AddArgument(add, "table", commands->table, kTable, "The table").Required();
    CLI::App& del =
        commands.Add({"del", "Remove a routing table with its routes.", "table del 100"}, Delete);
    AddArgument(del, "table", commands->table, kTable, "The table").Required();
}

}  // namespace ctl
