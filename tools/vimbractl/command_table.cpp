#include <vimbra/route.h>

#include "commands.hpp"

namespace ctl {

namespace {

// The library says which numbers it takes.
const Kind<u32> kTable = {"a number, 1 to 252", ParseNumber};

struct Arguments {
    u32 table = 0;
};

void Add(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraAddRouteTable(arguments.table); }, kTable.accepted);
    tool.Done();
}

void Delete(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraDelRouteTable(arguments.table); }, kTable.accepted);
    tool.Done();
}

}  // namespace

void AddTableCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(AddGroupCommand(root, "table", "Numbered routing tables."),
                                       tool);
    CLI::App& add = commands.Add({"add", "Create a routing table.", "table add 100"}, Add);
    AddArgument(add, "table", commands->table, kTable, "The table").Required();
    CLI::App& del =
        commands.Add({"del", "Remove a routing table with its routes.", "table del 100"}, Delete);
    AddArgument(del, "table", commands->table, kTable, "The table").Required();
}

}  // namespace ctl
