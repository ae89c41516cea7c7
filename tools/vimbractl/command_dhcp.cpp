#include <vimbra/dhcpc.h>
#include <vimbra/process.h>
#include <vimbra/vimbra.h>

#include <algorithm>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "commands.hpp"
#include "take_over.hpp"
#include "watch.hpp"

namespace ctl {

namespace {

namespace wire = vimbra::wire;

// The daemon renews the lease of a client that runs when it is asked to start it.
constexpr std::chrono::seconds kRenewal{30};

struct Arguments {
    InterfaceName interface;
    u16 family = VIMBRA_FAMILY_IPV4;
    bool watch = false;
    bool takeOver = false;
};

void ShowReport(Tool& tool, u32 event, const VimbraDhcpcAddrInfo& info) {
    const Painter colours = tool.Colours();
    const std::string name = FieldText(info.achDevName);
    if (event != VIMBRA_DHCPC_EVENT_LEASE) {
        tool.ShowLine(colours.Interface(name) + ": " + colours.Bad("no lease"),
                      Json{{"interface", name}, {"event", "failure"}});
        return;
    }
    const std::string address = AddressText(info.tIpAddrs);
    std::string text = colours.Interface(name) + ": " + colours.Address(info.tIpAddrs) + "/" +
                       std::to_string(info.dwIpPrefix);
    Json record = {{"interface", name},  {"event", "lease"},
                   {"address", address}, {"prefix", info.dwIpPrefix},
                   {"gateway", nullptr}, {"lease_time", info.dwLeaseTime}};
    if (!IsZero(info.tGateWay)) {
        record.Set("gateway", AddressText(info.tGateWay));
        text += ", gateway " + colours.Address(info.tGateWay);
    }
    text += ", for " + std::to_string(info.dwLeaseTime) + " s";
    Json dns = Json::Array();
    const u32 count = std::min<u32>(info.dwDnsNum, VIMBRA_DHCPC_DNS_MAX);
    for (u32 i = 0; i < count; i++) {
        dns.Append(AddressText(info.atDnsServer[i]));
        text += ", DNS " + colours.Address(info.atDnsServer[i]);
    }
    record.Set("dns", dns);
    tool.ShowLine(text, record);
}

int TakeReport(u32 event, VimbraDhcpcAddrInfo* info) {
    Watch::Tell([event, copy = *info](Tool& tool) { ShowReport(tool, event, copy); });
    return 0;
}

// The library knows the clients of this process alone; the program that runs is everybody's. The
// name of IPv4's is a part of that of IPv6's.
bool Runs(Arguments& arguments) {
    char path[] = "/proc/";
    char ipv4[] = "udhcpc";
    char ipv6[] = "udhcpc6";
    char* const interface = arguments.interface.text;
    return (arguments.family == VIMBRA_FAMILY_IPV4
                ? GetServicePidFromCmdline2(path, ipv4, interface, ipv6)
                : GetServicePidFromCmdline(path, ipv6, interface)) > 0;
}

std::string SocketOf(const Arguments& arguments) {
    const char* const start =
        arguments.family == VIMBRA_FAMILY_IPV4 ? wire::kDhcpcSocketIpv4 : wire::kDhcpcSocketIpv6;
    return std::string(start) + "_" + arguments.interface.text;
}

// Becomes the one that is told.
void Listen(Tool& tool, Arguments& arguments) {
    VimbraInit();
    tool.Call(
        [&] { return VimbraDhcpcStart(arguments.interface.text, arguments.family, TakeReport); },
        kInterface.accepted);
}

void Start(Tool& tool, Arguments& arguments) {
    if (arguments.watch) {
        ExpectFree(SocketOf(arguments), arguments.takeOver);
        Watch watch(tool);
        Listen(tool, arguments);
        watch.ShowAll();
        return;
    }
    TDhcpcInfo client = {};
    client.wSinfamily = arguments.family;
    std::copy_n(arguments.interface.text, sizeof(client.tDhcpcAddr.achDevName),
                client.tDhcpcAddr.achDevName);
    tool.Call([&] { return ApicDhcpcStart(&client); });
    tool.Done();
}

void Stop(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return ApicDhcpcStop(arguments.interface.text, arguments.family); });
    tool.Done();
}

void Renew(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return AndoridDhcpcRenew(arguments.interface.text, arguments.family); });
    tool.Done();
}

void Lease(Tool& tool, Arguments& arguments) {
    if (!Runs(arguments)) {
        throw CommandFailed(ExitStatus::kNotSo, "no DHCP client runs on this interface");
    }
    ExpectFree(SocketOf(arguments), arguments.takeOver);
    Watch watch(tool);
    Listen(tool, arguments);
    if (!watch.ShowOne(kRenewal)) {
        throw CommandFailed(ExitStatus::kFailed, "no lease was reported");
    }
    if (arguments.watch) {
        watch.ShowAll();
    }
}

void State(Tool& tool, Arguments& arguments) {
    const bool runs = Runs(arguments);
    ExpectInterface(arguments.interface, runs);
    tool.Show(runs ? "running" : "stopped", Json{{"interface", arguments.interface.text},
                                                 {"family", FamilyText(arguments.family)},
                                                 {"running", runs}});
}

}  // namespace

void AddDhcpCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "dhcp", "The DHCP client of an interface."), tool);
    const auto command = [&](const CommandText& text, void (*run)(Tool&, Arguments&)) -> CLI::App& {
        CLI::App& added = commands.Add(text, run);
        AddInterfaceArgument(added, commands->interface);
        AddFamilyArgument(added, commands->family, kFamily, "Which one, ipv4 by default");
        return added;
    };
    const char* const about = "Show every report until interrupted";

    CLI::App& start =
        command({"start", "Start the DHCP client.", "dhcp start eth0 --watch"}, Start);
    AddFlag(start, "--watch", commands->watch, about);
    AddTakeOverFlag(start, commands->takeOver);
    command({"stop", "Stop the DHCP client.", "dhcp stop eth0"}, Stop);
    command({"renew", "Renew the lease.", "dhcp renew eth0"}, Renew);
    CLI::App& lease =
        command({"lease", "Renew the lease and show it.", "dhcp lease eth0 --json"}, Lease);
    AddFlag(lease, "--watch", commands->watch, about);
    AddTakeOverFlag(lease, commands->takeOver);
    command({"state", "Does a DHCP client run?", "dhcp state eth0"}, State);
}

}  // namespace ctl
