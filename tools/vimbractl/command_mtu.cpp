#include <vimbra/iface.h>

#include "commands.hpp"

namespace ctl {

namespace {

// The library says which numbers are too small.
const Kind<u32> kMtu = {"a number of bytes, 500 or more, with --family ipv6 1280 or more",
                        ParseNumber};

struct Arguments {
    InterfaceName interface;
    u16 family = VIMBRA_FAMILY_IPV4;
    u32 mtu = 0;
};

void ShowMtu(Tool& tool, Arguments& arguments) {
    u32 mtu = 0;
    tool.Call([&] { return VimbraIfaceGetMtu(arguments.interface.text, &mtu); },
              kInterface.accepted);
    tool.Show(std::to_string(mtu), Json{{"interface", arguments.interface.text}, {"mtu", mtu}});
}

void SetMtu(Tool& tool, Arguments& arguments) {
    tool.Call(
        [&] {
            return VimbraIfaceSetMtu(arguments.interface.text, arguments.family, arguments.mtu);
        },
        kMtu.accepted);
    tool.Done();
}

}  // namespace

void AddMtuCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(AddGroupCommand(root, "mtu", "The MTU of an interface."),
                                       tool);

    CLI::App& show = commands.Add({"show", "Show an interface's MTU.", "mtu show eth0"}, ShowMtu);
    AddInterfaceArgument(show, commands->interface);

    CLI::App& set = commands.Add(
        {"set", "Set an interface's MTU.", "mtu set eth0 1400\nmtu set eth0 1280 --family ipv6"},
        SetMtu);
    AddInterfaceArgument(set, commands->interface);
    AddArgument(set, "mtu", commands->mtu, kMtu, "The MTU").Required();
    AddFamilyArgument(set, commands->family, kFamily, "Whose least MTU it has to keep to");
}

}  // namespace ctl
