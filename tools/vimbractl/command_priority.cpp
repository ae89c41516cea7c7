#include <vimbra/route.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Entry {
    InterfaceName interface;
    u32 priority = 0;
};

// The library takes any number; 0 to 5 are those that have a name.
bool ParseEntry(const std::string& text, Entry& entry) {
    const size_t equals = text.rfind('=');
    return equals != std::string::npos &&
           kInterface.parse(text.substr(0, equals), entry.interface) &&
           ParseNumber(text.substr(equals + 1), entry.priority) &&
           entry.priority <= VIMBRA_NETWORK_PRIORITY_5;
}

const Kind<Entry> kEntry = {
    "INTERFACE=PRIORITY such as eth0=1, with 1 (first) to 5 (last), or 0 for none of its own",
    ParseEntry};

void Show(Tool& tool) {
    TVimbraNetworkPrioInfo list = {};
    tool.Call([&] { return VimbraGetNetworkPriority(&list); });
    std::string text;
    Json priorities = Json::Array();
    for (u32 i = 0; i < std::min<u32>(list.dwNetNum, VIMBRA_NETWORK_PRIORITY_MAX); i++) {
        const TVimbraNetworkPriority& one = list.tNetPrioParam[i];
        const std::string interface = FieldText(one.achIfaceName);
        const u32 priority = one.ePrio;
        text += tool.Colours().Interface(interface) + "=" + std::to_string(priority) + "\n";
        priorities.Append({{"interface", interface}, {"priority", priority}});
    }
    tool.Show(text.empty() ? "no priorities\n" : text, Json{{"priorities", priorities}});
}

void Set(Tool& tool, const std::vector<Entry>& entries) {
    if (entries.size() > VIMBRA_NETWORK_PRIORITY_MAX) {
        throw CommandFailed(ExitStatus::kUsage,
                            "interface=priority: " + std::to_string(entries.size()) +
                                " are too many; accepted: up to 10");
    }
    TVimbraNetworkPrioInfo list = {};
    for (const Entry& entry : entries) {
        TVimbraNetworkPriority& one = list.tNetPrioParam[list.dwNetNum++];
        std::copy_n(entry.interface.text, sizeof(one.achIfaceName), one.achIfaceName);
        one.ePrio = static_cast<EVimbraNetworkPrio>(entry.priority);
    }
    tool.Call([&] { return VimbraSetNetworkPriority(&list); });
    tool.Done();
}

}  // namespace

void AddPriorityCommands(CLI::App& root, Tool& tool) {
    CLI::App& group =
        AddGroupCommand(root, "priority", "Which interface's default gateway is used first.");
    AddCommand(group, tool, {"show", "Show the priority list.", "priority show"},
               [&tool] { Show(tool); });
    auto entries = std::make_shared<std::vector<Entry>>();
    CLI::App& set = AddCommand(
        group, tool, {"set", "Set the priority list.", "priority set eth0=1 ppp0=2\npriority set"},
        [&tool, entries] { Set(tool, *entries); });
    AddArguments(set, "entry", *entries, kEntry, "The list, none for no list");
}

}  // namespace ctl
