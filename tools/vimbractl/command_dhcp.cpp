#include <vimbra/dhcpc.h>
#include <vimbra/process.h>
#include <vimbra/vimbra.h>

#include <algorithm>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "commands.hpp"
#include "status_socket.hpp"
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
    bool renew = false;
    std::string runDir;
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

// What the companion daemon knows of the clients that are meant: of an interface, or all.
std::vector<Json> ClientsOf(const Arguments& arguments) {
    const std::string interface = arguments.interface.text;
    const Json answer = StatusSocket(arguments.runDir).Ask("dhcp_clients");
    std::vector<Json> clients;
    for (const Json& client : answer.At("dhcp_clients").Items()) {
        if (interface.empty() || (client.At("interface").Plain() == interface &&
                                  client.At("family").Plain() == FamilyText(arguments.family))) {
            clients.push_back(client);
        }
    }
    return clients;
}

Json ListOf(const std::vector<Json>& clients) {
    Json list = Json::Array();
    for (const Json& client : clients) {
        list.Append(client);
    }
    return Json{{"dhcp_clients", list}};
}

std::string LeaseText(const Json& client, const Painter& colours) {
    const Json lease = client.At("lease");
    const Json gateway = lease.At("gateway");
    std::string text = colours.Interface(client.At("interface").Plain()) + ": ";
    if (lease.IsNull()) {
        return text + "no lease, " + client.At("state").Plain();
    }
    text += lease.At("address").Plain() + "/" + lease.At("prefix").Plain();
    text += gateway.IsNull() ? "" : ", gateway " + gateway.Plain();
    text += ", for " + lease.At("seconds").Plain() + " s, " + lease.At("left").Plain() + " s left";
    for (const Json& server : lease.At("dns").Items()) {
        text += ", DNS " + server.Plain();
    }
    return text;
}

void ShowPresentLeases(Tool& tool, const Arguments& arguments) {
    const std::vector<Json> clients = ClientsOf(arguments);
    if (clients.empty()) {
        throw CommandFailed(ExitStatus::kNotSo, "no DHCP client runs");
    }
    std::string text;
    for (const Json& client : clients) {
        text += LeaseText(client, tool.Colours()) + "\n";
    }
    tool.Show(text, ListOf(clients));
}

void Lease(Tool& tool, Arguments& arguments) {
    if (!arguments.renew && !arguments.watch) {
        ShowPresentLeases(tool, arguments);
        return;
    }
    if (arguments.interface.text[0] == '\0') {
        throw CommandFailed(ExitStatus::kUsage, "interface: a renewal needs one");
    }
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

void ShowStates(Tool& tool, const Arguments& arguments) {
    const std::vector<Json> clients = ClientsOf(arguments);
    std::string text;
    for (const Json& client : clients) {
        text += tool.Colours().Interface(client.At("interface").Plain()) + "  " +
                client.At("family").Plain() + "  " + client.At("state").Plain() + "\n";
    }
    tool.Show(text.empty() ? "no DHCP client runs" : text, ListOf(clients));
}

void State(Tool& tool, Arguments& arguments) {
    if (arguments.interface.text[0] == '\0') {
        ShowStates(tool, arguments);
        return;
    }
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
        AddFamilyArgument(added, commands->family, kFamily, "Which one, ipv4 by default");
        return added;
    };
    const auto listening = [&](CLI::App& added, const char* about) {
        AddFlag(added, "--watch", commands->watch, about);
        AddTakeOverFlag(added, commands->takeOver);
    };
    // Without an interface the companion daemon tells of all of them.
    const auto asking = [&](CLI::App& added) {
        AddArgument(added, "interface", commands->interface, kInterface,
                    "The interface; all of them without");
        AddRunDirArgument(added, commands->runDir);
    };

    CLI::App& start =
        command({"start", "Start the DHCP client.", "dhcp start eth0 --watch"}, Start);
    AddInterfaceArgument(start, commands->interface);
    listening(start, "Show every report until interrupted");
    CLI::App& stop = command({"stop", "Stop the DHCP client.", "dhcp stop eth0"}, Stop);
    AddInterfaceArgument(stop, commands->interface);
    CLI::App& renew = command({"renew", "Renew the lease.", "dhcp renew eth0"}, Renew);
    AddInterfaceArgument(renew, commands->interface);

    CLI::App& lease =
        command({"lease",
                 "Show the present lease, as the companion daemon knows it; or renew it and\n"
                 "show the new one.",
                 "dhcp lease\ndhcp lease eth0 --json\ndhcp lease eth0 --renew"},
                Lease);
    asking(lease);
    AddFlag(lease, "--renew", commands->renew, "Renew the lease and show it when it comes");
    listening(lease, "Renew the lease and show every report until interrupted");
    CLI::App& state =
        command({"state", "Does a DHCP client run?", "dhcp state eth0\ndhcp state"}, State);
    asking(state);
}

}  // namespace ctl
