#include <vimbra/common.h>
#include <vimbra/router_advertise.h>

#include <algorithm>

#include "commands.hpp"
#include "events.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
    u32 count = 0;
};

void OnAdvertisement(TVimbraRouterAdCb* notification) {
    EventQueue<TVimbraRouterAdCb>::Instance().Post(*notification);
}

bool Show(Tool& tool, const TVimbraRouterAdCb& notification) {
    const std::string name = FieldText(notification.achIfaceName);
    const TVimbraIfaceAllIp& all = notification.tNetIfaceAllIp;
    std::string text = name + ":";
    Json addresses = Json::Array();
    for (u32 i = 0; i < std::min<u32>(all.dwIpNum, VIMBRA_IFACE_IP_MAX); i++) {
        const TVimbraIfaceIp& one = all.atNetIfaceIp[i];
        const std::string address = AddressText(one.tIpAddr);
        text += " " + address + "/" + std::to_string(one.dwPrefix);
        addresses.Append({{"family", FamilyText(one.tIpAddr.wSinFamily)},
                          {"address", address},
                          {"prefix", one.dwPrefix},
                          {"scope", ScopeText(one.eScopeType)}});
    }
    return tool.ShowLine(text, Json{{"interface", name}, {"addresses", addresses}});
}

void Watch(Tool& tool, Arguments& arguments) {
    const EndWish wish(tool.OutputDescriptor());
    tool.Call(VimbraInit);
    tool.Call(
        [&] { return VimbraRouterAdvertiseStart(arguments.interface.text, OnAdvertisement); });
    Woken woken;
    for (u32 shown = 0; arguments.count == 0 || shown < arguments.count; shown++) {
        const auto notification = EventQueue<TVimbraRouterAdCb>::Instance().Next(wish, woken);
        if (!notification || !Show(tool, *notification)) {
            break;
        }
    }
    tool.Call([&] { return VimbraRouterAdvertiseStop(arguments.interface.text); });
}

}  // namespace

void AddRaCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(AddGroupCommand(root, "ra", "IPv6 router advertisements."),
                                       tool);
    CLI::App& watch = commands.Add(
        {"watch", "Show an interface's addresses whenever an advertisement changes them.",
         "ra watch eth0\nra watch eth0 --json"},
        Watch);
    AddInterfaceArgument(watch, commands->interface);
    AddArgument(watch, "--count", commands->count, kNumber, "End after so many; 0 never");
}

}  // namespace ctl
