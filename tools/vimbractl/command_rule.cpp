#include <vimbra/route.h>

#include "commands.hpp"
#include "status_socket.hpp"

namespace ctl {

namespace {

struct Arguments {
    Prefixed from;
    u32 table = 0;
    u32 priority = 0;
    u32 mark = 0;
    std::string runDir;
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

void Add(Tool& tool, Arguments& arguments) {
    TVimbraIpRuleParam record = Record(arguments);
    tool.Call([&] { return VimbraAddIpRule(&record); }, kAccepted);
    tool.Done();
}

void Delete(Tool& tool, Arguments& arguments) {
    TVimbraIpRuleParam record = Record(arguments);
    tool.Call([&] { return VimbraDelIpRule(&record); }, kAccepted);
    tool.Done();
}

void Show(Tool& tool, Arguments& arguments) {
    const Json answer = StatusSocket(arguments.runDir).Ask("rules");
    std::string text;
    for (const Json& rule : answer.At("rules").Items()) {
        const Json source = rule.At("source");
        const Json mark = rule.At("mark");
        text += rule.At("priority").Plain() + ":  " + rule.At("family").Plain() + "  from " +
                (source.IsNull() ? "all" : source.Plain());
        text += mark.IsNull() ? "" : "  fwmark " + mark.Plain();
        text += "  table " + rule.At("table").Plain() + "\n";
    }
    tool.Show(text.empty() ? "no rules" : text, Json{{"rules", answer.At("rules")}});
}

}  // namespace

void AddRuleCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "rule", "Policy rules: whose packets look up which table."), tool);
    const auto command = [&](const CommandText& text, void (*run)(Tool&, Arguments&)) {
        CLI::App& added = commands.Add(text, run);
        AddArgument(added, "--table", commands->table, kRuleTable, "The table to look up")
            .Required();
        AddArgument(added, "--priority", commands->priority, kPriority,
                    "When it is asked, the lower the earlier")
            .Required();
        AddArgument(added, "--from", commands->from, kIpv4Network, "Source; any by default");
        AddArgument(added, "--fwmark", commands->mark, kNumber, "Firewall mark; any by default");
    };
    command({"add", "Add a policy rule.",
             "rule add --from 192.0.2.11/32 --table 100 --priority 1000\n"
             "rule add --fwmark 7 --table 100 --priority 1001"},
            Add);
    command({"del", "Delete a policy rule.",
             "rule del --from 192.0.2.11/32 --table 100 --priority 1000"},
            Delete);
    CLI::App& show = commands.Add(
        {"show", "Show the policy rules in the kernel's order.", "rule show\nrule show --json"},
        Show);
    AddRunDirArgument(show, commands->runDir);
}

}  // namespace ctl
