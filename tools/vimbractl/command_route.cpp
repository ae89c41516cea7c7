#include <vimbra/route.h>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    Prefixed destination;
    TVimbraAddr gateway = {};
    InterfaceName interface;
    u32 metric = 0;
    std::optional<u32> table;
    u16 shown = VIMBRA_FAMILY_BOTH;
    std::optional<u16> family;
};

constexpr const char* kAccepted = "a destination and a gateway of one family, a metric of 0 to 255";

// The library says which numbers are too large.
const Kind<u32> kMetric = {"a number, 0 to 255", ParseNumber};

// That of a default route is said by itself, or by its gateway.
u16 FamilyOf(const Arguments& arguments) {
    const u16 destination = arguments.destination.address.wSinFamily;
    if (destination != 0 && arguments.family && *arguments.family != destination) {
        throw CommandFailed(ExitStatus::kUsage,
                            "destination: " + AddressText(arguments.destination.address) +
                                " is not " + FamilyText(*arguments.family));
    }
    if (destination != 0 || arguments.family) {
        return arguments.family.value_or(destination);
    }
    const u16 gateway = arguments.gateway.wSinFamily;
    return gateway != 0 ? gateway : u16{VIMBRA_FAMILY_IPV4};
}

// As people say it. Without a gateway an IPv6 one would look like IPv4's.
std::string DestinationText(const TVimbraIpRouteParam& route, const Painter& colours) {
    const bool isIpv4 = route.tDestIpNet.wSinFamily == VIMBRA_FAMILY_IPV4;
    if (route.dwPrefix == 0 && IsZero(route.tDestIpNet) &&
        (isIpv4 || !IsZero(route.tDestGateWay))) {
        return "default";
    }
    return colours.Address(route.tDestIpNet) + "/" + std::to_string(route.dwPrefix);
}

TVimbraIpRouteParam Record(const Arguments& arguments) {
    TVimbraIpRouteParam record = {};
    // The field is not terminated where the name fills it.
    std::copy_n(arguments.interface.text, sizeof(record.achIfaceName), record.achIfaceName);
    record.tDestIpNet = arguments.destination.address;
    record.tDestIpNet.wSinFamily = FamilyOf(arguments);
    record.dwPrefix = arguments.destination.prefix;
    record.tDestGateWay = arguments.gateway;
    // No gateway is an all-zero one, of the destination's family.
    if (record.tDestGateWay.wSinFamily == 0) {
        record.tDestGateWay.wSinFamily = record.tDestIpNet.wSinFamily;
    }
    record.dwRoutePri = arguments.metric;
    return record;
}

void Add(Tool& tool, Arguments& arguments) {
    TVimbraIpRouteParam record = Record(arguments);
    tool.Call(
        [&] {
            return arguments.table ? VimbraAddOneIpRouteToTable(&record, *arguments.table)
                                   : VimbraAddOneIpRoute(&record);
        },
        kAccepted);
    tool.Done();
}

void Delete(Tool& tool, Arguments& arguments) {
    TVimbraIpRouteParam record = Record(arguments);
    tool.Call(
        [&] {
            return arguments.table ? VimbraDelOneIpRouteFromTable(&record, *arguments.table)
                                   : VimbraDelOneIpRoute(&record);
        },
        kAccepted);
    tool.Done();
}

void ChangeMetric(Tool& tool, Arguments& arguments) {
    TVimbraIpRouteParam record = Record(arguments);
    tool.Call([&] { return VimbraModifyIpRouteMetric(&record); }, kAccepted);
    tool.Done();
}

void Show(Tool& tool, Arguments& arguments) {
    TVimbraAllIpRouteInfo all = {};
    tool.Call([&] { return VimbraGetAllIpRoute(arguments.shown, &all); });
    const Painter colours = tool.Colours();
    std::string text;
    Json routes = Json::Array();
    for (u32 i = 0; i < std::min<u32>(all.dwIpRouteNum, VIMBRA_ROUTE_MAX); i++) {
        const TVimbraIpRouteParam& one = all.tNetIpRouteParam[i];
        const std::string destination = AddressText(one.tDestIpNet);
        const std::string interface = FieldText(one.achIfaceName);
        Json route = {{"family", FamilyText(one.tDestIpNet.wSinFamily)},
                      {"destination", destination},
                      {"prefix", one.dwPrefix},
                      {"gateway", nullptr},
                      {"interface", interface},
                      {"metric", one.dwRoutePri}};
        text += DestinationText(one, colours);
        if (!IsZero(one.tDestGateWay)) {
            route.Set("gateway", AddressText(one.tDestGateWay));
            text += "  via " + colours.Address(one.tDestGateWay);
        }
        text += "  " + colours.Interface(interface.empty() ? "-" : interface) + "  metric " +
                std::to_string(one.dwRoutePri) + "\n";
        routes.Append(std::move(route));
    }
    tool.Show(text.empty() ? "no routes\n" : text, Json{{"routes", routes}});
}

}  // namespace

void AddRouteCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(AddGroupCommand(root, "route", "Routes to networks."), tool);
    // What names a route.
    const auto route = [&](CLI::App& added) {
        AddArgument(added, "destination", commands->destination, kNetwork,
                    "The network that the route leads to")
            .Required();
        AddArgument(added, "--via", commands->gateway, kAddress, "The gateway; none by default");
        AddArgument(added, "--interface", commands->interface, kInterface,
                    "The interface that it leaves by; left to the daemon by default");
        AddFamilyArgument(added, commands->family, kFamily,
                          "That of default; by default its gateway's, or ipv4");
    };

    CLI::App& show = commands.Add({"show", "Show the routes of the main table, 10 of them at most.",
                                   "route show\nroute show --family ipv6 --json"},
                                  Show);
    AddFamilyArgument(show, commands->shown, kFamilyOrBoth, "Which ones, both by default");

    CLI::App& add =
        commands.Add({"add", "Add a route.",
                      "route add 198.51.100.0/24 --via 192.0.2.1\n"
                      "route add default --via 192.0.2.1\n"
                      "route add 2001:db8:1::/48 --interface eth0 --metric 10 --table 100"},
                     Add);
    route(add);
    AddArgument(add, "--metric", commands->metric, kMetric, "Its metric, 0 by default");
    AddArgument(add, "--table", commands->table, kNumber, "The table; the main one by default");

    CLI::App& del = commands.Add(
        {"del", "Delete a route.", "route del 198.51.100.0/24 --via 192.0.2.1"}, Delete);
    route(del);
    AddArgument(del, "--metric", commands->metric, kMetric, "Its metric, 0 by default");
    AddArgument(del, "--table", commands->table, kNumber, "The table; the main one by default");

    CLI::App& metric = commands.Add({"metric", "Change the metric of a route in the main table.",
                                     "route metric 198.51.100.0/24 20 --interface eth0"},
                                    ChangeMetric);
    route(metric);
    AddArgument(metric, "metric", commands->metric, kMetric, "The new metric").Required();
}

}  // namespace ctl
