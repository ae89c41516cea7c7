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
    CLI::App& group = AddGroupCommand(root, "mtu", "The MTU of an interface.");
    auto arguments = std::make_shared<Arguments>();

    CLI::App& show = AddCommand(group, tool, {"show", "Show an interface's MTU.", "mtu show eth0"},
                                [&tool, arguments] { ShowMtu(tool, *arguments); });
    AddInterfaceArgument(show, arguments->interface);

    CLI::App& set = AddCommand(
        group, tool,
        {"set", "Set an interface's MTU.", "mtu set eth0 1400\nmtu set eth0 1280 --family ipv6"},
        [&tool, arguments] { SetMtu(tool, *arguments); });
    AddInterfaceArgument(set, arguments->interface);
    AddArgument(set, "mtu", arguments->mtu, kMtu, "The MTU").Required();
    AddArgument(set, "--family", arguments->family, kFamily, "Whose least MTU it has to keep to");
}

}  // namespace ctl
