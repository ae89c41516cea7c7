#include <vimbra/iface.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
    TVimbraIfaceMac mac = {};
};

void ShowMac(Tool& tool, Arguments& arguments) {
    TVimbraIfaceMac mac = {};
    tool.Call([&] { return VimbraIfaceGetMac(arguments.interface.text, &mac); },
              kInterface.accepted);
    tool.Show(MacText(mac), Json{{"interface", arguments.interface.text}, {"mac", MacText(mac)}});
}

void SetMac(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraIfaceSetMac(arguments.interface.text, &arguments.mac); },
              kInterface.accepted);
    tool.Done();
}

}  // namespace

void AddMacCommands(CLI::App& root, Tool& tool) {
    CLI::App& group = AddGroupCommand(root, "mac", "The MAC address of an interface.");
    auto arguments = std::make_shared<Arguments>();

    CLI::App& show =
        AddCommand(group, tool, {"show", "Show an interface's MAC address.", "mac show eth0"},
                   [&tool, arguments] { ShowMac(tool, *arguments); });
    AddInterfaceArgument(show, arguments->interface);

    CLI::App& set = AddCommand(
        group, tool, {"set", "Set an interface's MAC address.", "mac set eth0 02:00:00:00:00:01"},
        [&tool, arguments] { SetMac(tool, *arguments); });
    AddInterfaceArgument(set, arguments->interface);
    AddArgument(set, "mac", arguments->mac, kMac, "The MAC address").Required();
}

}  // namespace ctl
