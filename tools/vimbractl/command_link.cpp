#include <vimbra/common.h>
#include <vimbra/iface_check.h>

#include "commands.hpp"
#include "interfaces.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
};

std::vector<InterfaceName> AllInterfaces() {
    std::vector<InterfaceName> names;
    for (const std::string& name : InterfaceNames()) {
        kInterface.parse(name, names.emplace_back());
    }
    return names;
}

void Describe(Tool& tool, InterfaceName& name, std::string& text, Json& links) {
    const Painter colours = tool.Colours();
    u32 state = 0;
    tool.Call([&] { return VimbraGetIfaceState(name.text, &state); });
    const char* stateText = state == VIMBRA_IFACE_UP ? "up" : "down";
    Json link = {{"interface", name.text}, {"state", stateText}};
    text += colours.Interface(name.text) + ": " +
            (state == VIMBRA_IFACE_UP ? colours.Good(stateText) : colours.Bad(stateText));

    // Neither an Ethernet link nor a hardware address is there on every kind of interface.
    u32 detected = 0;
    if (!tool.Try([&] { return IfethGetLineStatus(name.text, &detected); })) {
        link.Set("link", detected != 0);
        text += detected != 0 ? ", link" : ", no link";
    } else {
        link.Set("link", nullptr);
    }
    TVimbraIfaceMac mac = {};
    if (!tool.Try([&] { return IfethGetHwAddr(name.text, mac.abyMacAddr, nullptr); })) {
        link.Set("mac", MacText(mac));
        text += ", " + colours.Mac(MacText(mac));
    } else {
        link.Set("mac", nullptr);
    }
    text += "\n";
    links.Append(link);
}

void Up(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraIfaceNoShutdown(arguments.interface.text); });
    tool.Done();
}

void Down(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraIfaceShutdown(arguments.interface.text); });
    tool.Done();
}

void ShowLinks(Tool& tool, Arguments& arguments) {
    const bool isOne = arguments.interface.text[0] != '\0';
    std::string text;
    Json links = Json::Array();
    for (InterfaceName& name : isOne ? std::vector{arguments.interface} : AllInterfaces()) {
        Describe(tool, name, text, links);
    }
    tool.Show(text, Json{{"links", links}});
}

}  // namespace

void AddLinkCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "link", "Interfaces up and down, without the daemon."), tool);

    CLI::App& up = commands.Add({"up", "Bring an interface up.", "link up eth0"}, Up);
    AddInterfaceArgument(up, commands->interface);
    CLI::App& down = commands.Add({"down", "Take an interface down.", "link down eth0"}, Down);
    AddInterfaceArgument(down, commands->interface);

    CLI::App& show = commands.Add({"show", "Show whether interfaces are up and have a link.",
                                   "link show\nlink show eth0 --json"},
                                  ShowLinks);
    AddArgument(show, "interface", commands->interface, kInterface,
                "The interface; all of them without");
}

}  // namespace ctl
