#include <arpa/inet.h>
#include <vimbra/dhcps.h>
#include <vimbra/net_dhcps.h>
#include <vimbra/vimbra.h>

#include <algorithm>
#include <cstring>

#include "commands.hpp"
#include "events.hpp"

namespace ctl {

namespace {

using Reports = EventQueue<TNetDhcpsNotify>;

// The server writes its lease file more often.
constexpr std::chrono::seconds kWriting{30};
// It empties the file and fills it piece by piece, and each piece is reported: what the file holds
// once it is quiet is meant.
constexpr std::chrono::milliseconds kQuiet{200};

struct Arguments {
    InterfaceName interface;
    Prefixed first;
    TVimbraAddr last = {};
    TVimbraAddr router = {};
    std::vector<TVimbraAddr> dns;
    bool watch = false;
};

void Start(Tool& tool, Arguments& arguments) {
    TVimbraDhcpsInfo pool = {};
    pool.tIpPoolStart = arguments.first.address;
    pool.tIpPoolEnd = arguments.last;
    pool.dwIpPoolPrefix = arguments.first.prefix;
    pool.tRoutes = arguments.router;
    pool.tRoutes.wSinFamily = VIMBRA_FAMILY_IPV4;
    if (arguments.dns.size() > VIMBRA_DHCPS_DNS_MAX) {
        throw CommandFailed(ExitStatus::kUsage, "more than 64 DNS servers");
    }
    pool.tDnsServerInfo.dwDnsNum = static_cast<u32>(arguments.dns.size());
    std::ranges::copy(arguments.dns, pool.tDnsServerInfo.tDnsIp);
    tool.Call([&] { return VimbraDhcpsStart(arguments.interface.text, VIMBRA_FAMILY_IPV4, &pool); },
              "an interface, a pool and a router in one network");
    tool.Done();
}

void Stop(Tool& tool, Arguments& arguments) {
    if (arguments.interface.text[0] == '\0') {
        tool.Call([] { return NetDhcpsStop(); });
    } else {
        tool.Call([&] { return VimbraDhcpsStop(arguments.interface.text, VIMBRA_FAMILY_IPV4); });
    }
    tool.Done();
}

void State(Tool& tool, Arguments& arguments) {
    TVimbraDhcpsState state = {};
    tool.Call(
        [&] { return VimbraDhcpsGetState(arguments.interface.text, VIMBRA_FAMILY_IPV4, &state); });
    const bool runs = state.dwDhcpsIsRun != 0;
    ExpectInterface(arguments.interface, runs);
    tool.Show(runs ? "running" : "stopped",
              Json{{"interface", arguments.interface.text}, {"running", runs}});
}

bool ShowLeases(Tool& tool, const TNetDhcpsNotify& notify) {
    const Painter colours = tool.Colours();
    std::string text;
    Json leases = Json::Array();
    for (u32 i = 0; i < std::min<u32>(notify.dhcps_index, VIMBRA_DHCPS_LEASE_MAX); i++) {
        TVimbraAddr address = {};
        address.wSinFamily = VIMBRA_FAMILY_IPV4;
        address.tV4Addr.s_addr = notify.dhcps_mac_ip[i].dhcps_ip;
        TVimbraIfaceMac mac = {};
        std::ranges::copy(notify.dhcps_mac_ip[i].dhcps_mac, mac.abyMacAddr);
        text +=
            (text.empty() ? "" : "\n") + colours.Address(address) + " " + colours.Mac(MacText(mac));
        leases.Append(Json{{"address", AddressText(address)}, {"mac", MacText(mac)}});
    }
    return tool.ShowLine(text.empty() ? "no leases" : text, Json{{"leases", leases}});
}

int TakeLeases(u32, TNetDhcpsNotify* notify) {
    Reports::Instance().Post(*notify);
    return 0;
}

std::optional<TNetDhcpsNotify> NextLeases(const EndWish& wish,
                                          std::optional<std::chrono::milliseconds> patience) {
    Woken woken;
    auto leases = Reports::Instance().Next(wish, woken, patience);
    while (woken == Woken::kEvent) {
        if (auto newer = Reports::Instance().Next(wish, woken, kQuiet)) {
            leases = newer;
        }
    }
    return leases;
}

// What is written again and has not changed is told once.
void ShowChanges(Tool& tool, const EndWish& wish) {
    std::optional<TNetDhcpsNotify> last;
    while (const auto leases = NextLeases(wish, std::nullopt)) {
        if ((!last || memcmp(&*last, &*leases, sizeof(*leases)) != 0) &&
            !ShowLeases(tool, *leases)) {
            break;
        }
        last = leases;
    }
}

void Leases(Tool& tool, Arguments& arguments) {
    const EndWish wish(tool.OutputDescriptor());
    VimbraInit();
    // The library's watch comes with a start. That of an empty pool is refused before the daemon is
    // asked: the watch stays.
    TDhcpServerConfInfo none = {};
    if (NetDhcpsStart(&none, TakeLeases) != VIMBRA_ERR_PARAM) {
        throw CommandFailed(ExitStatus::kFailed, "the leases cannot be watched");
    }
    if (arguments.watch) {
        ShowChanges(tool, wish);
    } else if (const auto leases = NextLeases(wish, kWriting)) {
        ShowLeases(tool, *leases);
    } else {
        throw CommandFailed(ExitStatus::kFailed, "no server writes its leases");
    }
}

}  // namespace

void AddDhcpServerCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "dhcp-server", "The DHCP server of an interface, IPv4."), tool);

    CLI::App& start =
        commands.Add({"start", "Start the server, or give it another pool.",
                      "dhcp-server start eth0 192.0.2.50/24 192.0.2.99 --router 192.0.2.1"},
                     Start);
    AddInterfaceArgument(start, commands->interface);
    AddArgument(start, "first", commands->first, kIpv4Network,
                "The first address of the pool and its prefix")
        .Required();
    AddArgument(start, "last", commands->last, kIpv4Address, "The last address").Required();
    AddArgument(start, "--router", commands->router, kIpv4Address,
                "The router that clients are told; none by default");
    AddArguments(start, "--dns", commands->dns, kIpv4Address,
                 "The DNS servers that clients are told; none by default");

    CLI::App& stop = commands.Add({"stop", "Stop the server of an interface, or all of them.",
                                   "dhcp-server stop eth0\ndhcp-server stop"},
                                  Stop);
    AddArgument(stop, "interface", commands->interface, kInterface,
                "The interface; all of them without");

    CLI::App& state =
        commands.Add({"state", "Does the server run?", "dhcp-server state eth0"}, State);
    AddInterfaceArgument(state, commands->interface);

    CLI::App& leases = commands.Add({"leases", "Show the leases when the server writes them next.",
                                     "dhcp-server leases\ndhcp-server leases --watch --json"},
                                    Leases);
    AddFlag(leases, "--watch", commands->watch, "Show every change until interrupted");
}

}  // namespace ctl
