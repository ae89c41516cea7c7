#include <vimbra/common.h>
#include <vimbra/router_advertise.h>

#include <algorithm>

#include "api/api_route/api_route/router_notify_wire.hpp"
#include "commands.hpp"
#include "events.hpp"
#include "take_over.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
    u32 count = 0;
    bool takeOver = false;
};

void OnAdvertisement(TVimbraRouterAdCb* notification) {
    EventQueue<TVimbraRouterAdCb>::Instance().Post(*notification);
}

bool Show(Tool& tool, const TVimbraRouterAdCb& notification) {
    const std::string name = FieldText(notification.achIfaceName);
    const TVimbraIfaceAllIp& all = notification.tNetIfaceAllIp;
    const Painter colours = tool.Colours();
    std::string text = colours.Interface(name) + ":";
    Json addresses = Json::Array();
    for (u32 i = 0; i < std::min<u32>(all.dwIpNum, VIMBRA_IFACE_IP_MAX); i++) {
        const TVimbraIfaceIp& one = all.atNetIfaceIp[i];
        const std::string address = AddressText(one.tIpAddr);
        text += " " + colours.Address(one.tIpAddr) + "/" + std::to_string(one.dwPrefix);
        addresses.Append({{"family", FamilyText(one.tIpAddr.wSinFamily)},
                          {"address", address},
                          {"prefix", one.dwPrefix},
                          {"scope", ScopeText(one.eScopeType)}});
    }
    return tool.ShowLine(text, Json{{"interface", name}, {"addresses", addresses}});
}

void Watch(Tool& tool, Arguments& arguments) {
    ExpectFree(vimbra::wire::kRouterNotifySocket, arguments.takeOver);
    const EndWish wish(tool.OutputDescriptor());
    tool.Call(VimbraInit);
    tool.Call(
        [&] { return VimbraRouterAdvertiseStart(arguments.interface.text, OnAdvertisement); });
    ShowEach<TVimbraRouterAdCb>(wish, arguments.count,
                                [&](const auto& notification) { return Show(tool, notification); });
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
    AddTakeOverFlag(watch, commands->takeOver);
}

}  // namespace ctl
