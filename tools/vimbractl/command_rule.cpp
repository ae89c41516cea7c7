#include <vimbra/route.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    Prefixed from;
    u32 table = 0;
    u32 priority = 0;
    u32 mark = 0;
};

constexpr const char* kAccepted = "an IPv4 source, a priority of 0 to 32765, a table of 0 to 255";

// The library says which numbers are too large.
const Kind<u32> kPriority = {"a number, 0 to 32765", ParseNumber};
const Kind<u32> kRuleTable = {"a number, 0 to 255", ParseNumber};

TVimbraIpRuleParam Record(const Arguments& arguments) {
    TVimbraIpRuleParam record = {};
    record.tFromIpNet = arguments.from.address;
    record.tFromIpNet.wSinFamily = VIMBRA_FAMILY_IPV4;  // Also that of any source.
    record.dwPrefix = arguments.from.prefix;
    record.dwPref = arguments.priority;
    record.dwTableId = arguments.table;
    record.dwFwmark = arguments.mark;
    return record;
}

}  // namespace

void AddRuleCommands(CLI::App& root, Tool& tool) {
    CLI::App& group =
        AddGroupCommand(root, "rule", "Policy rules: whose packets look up which table.");
    auto arguments = std::make_shared<Arguments>();
    const auto command = [&](const CommandText& text, s32 (*call)(TVimbraIpRuleParam*)) {
        CLI::App& added = AddCommand(group, tool, text, [&tool, arguments, call] {
            TVimbraIpRuleParam record = Record(*arguments);
            tool.Call([&] { return call(&record); }, kAccepted);
            tool.Done();
        });
        AddArgument(added, "--table", arguments->table, kRuleTable, "The table to look up")
            .Required();
        AddArgument(added, "--priority", arguments->priority, kPriority,
                    "When it is asked, the lower the earlier")
            .Required();
        AddArgument(added, "--from", arguments->from, kIpv4Network, "Source; any by default");
        AddArgument(added, "--fwmark", arguments->mark, kNumber, "Firewall mark; any by default");
    };
    command({"add", "Add a policy rule.",
             "rule add --from 192.0.2.11/32 --table 100 --priority 1000\n"
             "rule add --fwmark 7 --table 100 --priority 1001"},
            VimbraAddIpRule);
    command({"del", "Delete a policy rule.",
             "rule del --from 192.0.2.11/32 --table 100 --priority 1000"},
            VimbraDelIpRule);
}

}  // namespace ctl
