#include <vimbra/route.h>

#include "commands.hpp"

namespace ctl {

namespace {

// The library says which numbers it takes.
const Kind<u32> kTable = {"a number, 1 to 252", ParseNumber};

}  // namespace

void AddTableCommands(CLI::App& root, Tool& tool) {
    CLI::App& group = AddGroupCommand(root, "table", "Numbered routing tables.");
    auto table = std::make_shared<u32>();
    const auto command = [&](const CommandText& text, s32 (*call)(u32)) {
        CLI::App& added = AddCommand(group, tool, text, [&tool, table, call] {
            tool.Call([&] { return call(*table); }, kTable.accepted);
            tool.Done();
        });
        AddArgument(added, "table", *table, kTable, "The table").Required();
    };
    command({"add", "Create a routing table.", "table add 100"}, VimbraAddRouteTable);
    command({"del", "Remove a routing table with its routes.", "table del 100"},
            VimbraDelRouteTable);
}

}  // namespace ctl
