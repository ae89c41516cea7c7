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
    tool.Show(tool.Colours().Mac(MacText(mac)),
              Json{{"interface", arguments.interface.text}, {"mac", MacText(mac)}});
}

void SetMac(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraIfaceSetMac(arguments.interface.text, &arguments.mac); },
              kInterface.accepted);
    tool.Done();
}

}  // namespace

void AddMacCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "mac", "The MAC address of an interface."), tool);

    CLI::App& show =
        commands.Add({"show", "Show an interface's MAC address.", "mac show eth0"}, ShowMac);
    AddInterfaceArgument(show, commands->interface);

    CLI::App& set = commands.Add(
        {"set", "Set an interface's MAC address.", "mac set eth0 02:00:00:00:00:01"}, SetMac);
    AddInterfaceArgument(set, commands->interface);
    AddArgument(set, "mac", commands->mac, kMac, "The MAC address").Required();
}

}  // namespace ctl
