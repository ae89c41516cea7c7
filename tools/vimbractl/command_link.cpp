#include <net/if.h>
#include <vimbra/common.h>
#include <vimbra/iface_check.h>

#include <cerrno>
#include <cstring>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
};

// Calls about an interface, whose name a person may have mistyped.
void CallOn(Tool& tool, const InterfaceName& name, const std::function<s32()>& call) {
    tool.Call(call, kInterface.accepted, "interface: \"" + std::string(name.text) + "\"");
}

struct IndexDeleter {
    void operator()(struct if_nameindex* list) const { if_freenameindex(list); }
};

std::vector<InterfaceName> AllInterfaces() {
    const std::unique_ptr<struct if_nameindex, IndexDeleter> list(if_nameindex());
    if (!list) {
        throw CommandFailed(ExitStatus::kFailed,
                            std::string("the interfaces cannot be listed: ") + strerror(errno));
    }
    std::vector<InterfaceName> names;
    for (const struct if_nameindex* entry = list.get(); entry->if_index != 0; entry++) {
        kInterface.parse(entry->if_name, names.emplace_back());
    }
    return names;
}

void Describe(Tool& tool, InterfaceName& name, std::string& text, Json& links) {
    u32 state = 0;
    CallOn(tool, name, [&] { return VimbraGetIfaceState(name.text, &state); });
    const char* stateText = state == VIMBRA_IFACE_UP ? "up" : "down";
    Json link = {{"interface", name.text}, {"state", stateText}};
    text += std::string(name.text) + ": " + stateText;

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
        text += ", " + MacText(mac);
    } else {
        link.Set("mac", nullptr);
    }
    text += "\n";
    links.Append(link);
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
    CLI::App& group = AddGroupCommand(root, "link", "Interfaces up and down, without the daemon.");
    auto arguments = std::make_shared<Arguments>();

    const auto change = [&](const CommandText& text, s32 (*call)(char*)) {
        CLI::App& command = AddCommand(group, tool, text, [&tool, arguments, call] {
            CallOn(tool, arguments->interface, [&] { return call(arguments->interface.text); });
            tool.Done();
        });
        AddInterfaceArgument(command, arguments->interface);
    };
    change({"up", "Bring an interface up.", "link up eth0"}, VimbraIfaceNoShutdown);
    change({"down", "Take an interface down.", "link down eth0"}, VimbraIfaceShutdown);

    CLI::App& show = AddCommand(group, tool,
                                {"show", "Show whether interfaces are up and have a link.",
                                 "link show\nlink show eth0 --json"},
                                [&tool, arguments] { ShowLinks(tool, *arguments); });
    AddArgument(show, "interface", arguments->interface, kInterface,
                "The interface; all of them without");
}

}  // namespace ctl
