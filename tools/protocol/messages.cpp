#include "messages.hpp"

#include <algorithm>
#include <string>

#include "records.hpp"

namespace protocol {
namespace {

template <class T>
Body Of() {
    return {Body::Form::kRecord, &RecordOf<T>(), sizeof(T)};
}

const Body kNone{Body::Form::kNone, nullptr, 0};
const Body kBond{Body::Form::kBond, nullptr, VIMBRA_IPC_BODY_MAX};

// A request that changes something and is answered with a plain result.
template <class T>
Request Change(u32 type, const char* name, const char* service, const char* meaning,
               const char* note = "") {
    return {type, name, service, meaning, Of<T>(), Of<PlainResult>(), note, true};
}

// A question and its record.
template <class T, class Reply>
Request Query(u32 type, const char* name, const char* service, const char* meaning,
              const char* note = "") {
    return {type, name, service, meaning, Of<T>(), Of<Reply>(), note, false};
}

Request Bare(u32 type, const char* name, const char* service, const char* meaning,
             const Body& reply, bool changes, const char* note = "") {
    return {type, name, service, meaning, kNone, reply, note, changes};
}

const char* const kNoResult = "no result code stands before the reply: it cannot be refused";
const char* const kSameType = "type as without a table: the four bytes more tell them apart";

std::vector<Request> AddressRequests() {
    const char* const service = "addresses";
    return {
        Change<IfaceIpBody>(kIpaddrAdd, "address-add", service, "adds an address"),
        Change<IfaceIpBody>(kIpaddrDel, "address-delete", service, "deletes an address"),
        Change<FamilyIfaceBody>(kIpaddrFlush, "address-flush", service,
                                "deletes all addresses of a family, of both with 11"),
        Change<IfaceAllIpBody>(kIpaddrSet, "address-set", service,
                               "replaces the addresses of a family, of both with 11"),
        Query<FamilyIfaceBody, TIpcAllIp>(kIpaddrGet, "address-get", service,
                                          "reads the addresses of a family, of both with 11"),
        Change<IfaceMacBody>(kMacSet, "mac-set", service, "sets the MAC address"),
        Query<IfaceBody, TIpcMac>(kMacGet, "mac-get", service, "reads the MAC address"),
        Change<IfaceMtuBody>(kMtuSet, "mtu-set", service, "sets the MTU"),
        Query<IfaceBody, TIpcMtu>(kMtuGet, "mtu-get", service, "reads the MTU"),
        Query<IfaceBody, api_ipaddr_show_info>(kIpaddrShowFilter, "interface-report", service,
                                               "addresses, MAC address and MTU as texts"),
    };
}

std::vector<Request> RouteRequests() {
    const char* const service = "routes";
    return {
        Change<RouteBody>(kRouteAdd, "route-add", service, "adds a route to the main table"),
        Change<InTable<RouteBody>>(kRouteAdd, "route-add-to-table", service,
                                   "adds a route to a table", kSameType),
        Change<RouteBody>(kRouteDel, "route-delete", service, "deletes a route of the main table"),
        Change<InTable<RouteBody>>(kRouteDel, "route-delete-from-table", service,
                                   "deletes a route of a table", kSameType),
        Change<TVimbraIpRouteParam>(kRouteMetricModify, "route-metric", service,
                                    "gives a route of the main table another metric"),
        Query<FamilyBody, TIpcAllRoute>(kAllRouteGet, "route-list", service,
                                        "reads the routes of a family"),
        Change<TableBody>(kRouteTableAdd, "table-add", service, "creates a routing table"),
        Change<TableBody>(kRouteTableDel, "table-delete", service,
                          "removes a routing table with its routes"),
        Change<TVimbraIpRuleParam>(kIpRuleAdd, "rule-add", service, "adds a policy rule"),
        Change<TVimbraIpRuleParam>(kIpRuleDel, "rule-delete", service, "deletes a policy rule"),
    };
}

std::vector<Request> GatewayRequests() {
    const char* const service = "gateways";
    return {
        Change<GatewayBody>(kGatewaySet, "gateway-set", service,
                            "sets an interface's default gateway in the main table",
                            "a name of zeros: the daemon finds the interface"),
        Change<InTable<GatewayBody>>(kGatewaySet, "gateway-set-in-table", service,
                                     "sets an interface's default gateway in a table", kSameType),
        Query<FamilyIfaceBody, TIpcGateWay>(kGatewayGet, "gateway-get", service,
                                            "reads the default gateway of the main table",
                                            "a name of zeros: whichever interface it is on"),
        Query<InTable<FamilyIfaceBody>, TIpcGateWay>(kGatewayGet, "gateway-get-from-table", service,
                                                     "reads the default gateway of a table",
                                                     kSameType),
        Change<FamilyIfaceBody>(kGatewayDel, "gateway-delete", service,
                                "deletes the default gateway of the main table"),
        Change<InTable<FamilyIfaceBody>>(kGatewayDel, "gateway-delete-from-table", service,
                                         "deletes the default gateway of a table", kSameType),
        Change<TVimbraNetworkPrioInfo>(kPrioritySet, "priority-set", service,
                                       "says which interface's gateway is used first"),
        Bare(kPriorityGet, "priority-get", service, "reads the network priority",
             Of<TVimbraNetworkPrioInfo>(), false, kNoResult),
    };
}

std::vector<Request> WatchRequests() {
    return {
        Change<RouterAdvertiseStartBody>(kRouterAdvertiseStart, "advertisement-start", "watches",
                                         "watches an interface for router advertisements"),
        Change<IfaceBody>(kRouterAdvertiseStop, "advertisement-stop", "watches",
                          "ends the watch of an interface"),
        Change<ConflictBody>(kConflictStart, "conflict-start", "watches",
                             "watches for other hosts with addresses of this one"),
        Change<ConflictBody>(kConflictStop, "conflict-stop", "watches", "ends the watch"),
        Change<StatStartBody>(kStatStart, "statistics-start", "watches",
                              "reports the traffic of eth0, eth1 and eth2 at intervals"),
        Bare(kStatStop, "statistics-stop", "watches", "ends the reports", Of<PlainResult>(), true),
        Query<PingStartBody, PlainResult>(kPingStart, "ping-start", "tests",
                                          "asks a host for echoes"),
        Query<PingStopBody, PlainResult>(kPingStop, "ping-stop", "tests", "ends an echo test"),
        Query<TracerouteStartBody, PlainResult>(kTracerouteStart, "traceroute-start", "tests",
                                                "traces the way to a host"),
        Query<TracerouteStopBody, PlainResult>(kTracerouteStop, "traceroute-stop", "tests",
                                               "ends a trace"),
    };
}

std::vector<Request> ServiceRequests() {
    return {
        Change<FamilyIfaceBody>(kDhcpcStart, "dhcp-client-start", "DHCP",
                                "gets an address for an interface"),
        Change<FamilyIfaceBody>(kDhcpcStop, "dhcp-client-stop", "DHCP", "gives the address back"),
        Change<FamilyIfaceBody>(kDhcpcRenew, "dhcp-client-renew", "DHCP", "renews the lease"),
        Change<DhcpsStartBody>(kDhcpsStart, "dhcp-server-start", "DHCP",
                               "serves a pool of addresses on an interface"),
        Change<DhcpsIfaceBody>(kDhcpsStop, "dhcp-server-stop", "DHCP",
                               "ends the server of an interface"),
        Bare(kDhcpsStopAll, "dhcp-server-stop-all", "DHCP", "ends all servers", Of<PlainResult>(),
             true),
        Query<DhcpsIfaceBody, TVimbraDhcpsState>(kDhcpsState, "dhcp-server-state", "DHCP",
                                                 "whether a server runs on an interface",
                                                 kNoResult),
        Change<PppoeStartBody>(kPppoeStart, "pppoe-start", "PPPoE", "dials"),
        Change<PppoeStopBody>(kPppoeStop, "pppoe-stop", "PPPoE", "hangs up"),
        Change<NtpcStartBody>(kNtpcStart, "ntp-start", "NTP", "asks a time server at intervals"),
        Change<NtpcStopBody>(kNtpcStop, "ntp-stop", "NTP", "ends the client of a family"),
        {kNtpcCheck,
         "ntp-check",
         "NTP",
         "asks a time server once",
         {Body::Form::kRecord, &RecordOf<AddressAlone>(), sizeof(TVimbraAddr)},
         Of<PlainResult>(),
         "the body is the address alone",
         false},
        {kBondStart, "bond-start", "others", "joins interfaces to one", kBond, Of<PlainResult>(),
         "see Bond bodies", true},
        Bare(kBondStop, "bond-stop", "others", "takes the bond apart", Of<PlainResult>(), true),
        Change<WebEnableBody>(kWebEnable, "web-start", "others", "starts the web server"),
        Bare(kWebDisable, "web-stop", "others", "ends the web server", Of<PlainResult>(), true),
        Change<LogSwitchBody>(kLogSwitch, "log-level", "others", "sets how much the daemon logs"),
    };
}

std::vector<Notification> MakeNotifications() {
    const Body lease = Of<TVimbraDhcpcAddrInfo>();
    const Body conflict = Of<IpConfilctMsg>();
    const Body link = Of<TVimbraPppoeAddr>();
    const Body report{Body::Form::kOpaque, &RecordOf<TVimbraNtpcReport>(), VIMBRA_NTPC_REPORT_MAX};
    std::vector<Notification> list = {
        {kRouterNotifySocket, kRouterNotify, kRouterNotify, "advertisement",
         "a router has changed the addresses of an interface", Of<RouterNotifyBody>(),
         "advertisement-start"},
        {kStatSocket, 0, 0xFFFFFFFF, "statistics", "traffic since the last report; any type",
         Of<StatReportBody>(), "statistics-start"},
        {kPingSocket, kPingAnswer, kPingLastEvent, "echo",
         "0 an answer; 1, 2, 3 none, the daemon's number for why", Of<pingmsg>(), "ping-start"},
        {kTracerouteSocket, kTracerouteFirstEvent, kTracerouteLastEvent, "hop",
         "101 a router, 102 the host, 103 no answer, 104 no way, 105 the highest hop, 106 not sent",
         Of<TVimbraTracerouteCBInfo>(), "traceroute-start"},
    };
    for (const char* socket : {kConflictSocket, kConflictSocketV6}) {
        list.push_back({socket, 1, 2, "conflict",
                        "1 an address, 2 a MAC address of this host is used", conflict,
                        "conflict-start"});
    }
    for (const char* socket : {"ipc_dhcpc_INTERFACE", "ipc_dhcpcv6_INTERFACE"}) {
        list.push_back({socket, kDhcpcLease, kDhcpcLease, "lease",
                        "an address was given or renewed", lease, "dhcp-client-start"});
        list.push_back({socket, kDhcpcFail, kDhcpcFail, "lease-failed",
                        "no server gave an address, or it is lost", lease, "dhcp-client-start"});
    }
    for (const char* socket : {kPppoeSocketIpv4, kPppoeSocketIpv6}) {
        list.push_back({socket, kPppoeConnected, kPppoeConnected, "link-up",
                        "the link is up, with these addresses", link, "pppoe-start"});
        list.push_back({socket, kPppoeEvent2, kPppoeStopped, "link-event",
                        "2 lost, 3 not made, 4 user or password refused, 5 not dialled any more",
                        kNone, "pppoe-start"});
    }
    for (const char* socket : {kNtpcSocketIpv4, kNtpcSocketIpv6}) {
        list.push_back({socket, kNtpcReport1, kNtpcReport2, "ntp-report",
                        "the daemon's own; vimbrad: 1 an offset, 2 a failure", report,
                        "ntp-start"});
    }
    return list;
}

bool Fits(const Body& body, size_t size) {
    switch (body.form) {
        case Body::Form::kNone:
            return size == 0;
        case Body::Form::kRecord:
            return size == body.size;
        default:
            return size <= body.size;
    }
}

// INTERFACE stands for whatever the name has there.
bool IsSocket(std::string_view pattern, std::string_view name) {
    constexpr std::string_view kPlace = "INTERFACE";
    if (pattern.ends_with(kPlace)) {
        pattern.remove_suffix(kPlace.size());
        return name.starts_with(pattern);
    }
    return pattern == name;
}

}  // namespace

std::span<const Request> Requests() {
    static const std::vector<Request> list = [] {
        std::vector<Request> all;
        for (auto make :
             {AddressRequests, RouteRequests, GatewayRequests, WatchRequests, ServiceRequests}) {
            const std::vector<Request> some = make();
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    }();
    return list;
}

std::span<const Notification> Notifications() {
    static const std::vector<Notification> list = MakeNotifications();
    return list;
}

const Request* FindRequest(u32 type, size_t size) {
    const Request* found = nullptr;
    for (const Request& request : Requests()) {
        if (request.type == type && (found == nullptr || Fits(request.body, size))) {
            found = &request;
        }
    }
    return found;
}

const Request* FindRequest(std::string_view name) {
    const auto list = Requests();
    const auto found =
        std::ranges::find_if(list, [name](const Request& request) { return request.name == name; });
    return found == list.end() ? nullptr : &*found;
}

const Notification* FindNotification(std::string_view socket, u32 type) {
    const auto list = Notifications();
    const auto found = std::ranges::find_if(list, [&](const Notification& each) {
        return IsSocket(each.socket, socket) && type >= each.firstType && type <= each.lastType;
    });
    return found == list.end() ? nullptr : &*found;
}

const Notification* FindNotification(std::string_view name) {
    const auto list = Notifications();
    const auto found =
        std::ranges::find_if(list, [name](const Notification& each) { return each.name == name; });
    return found == list.end() ? nullptr : &*found;
}

bool IsListener(std::string_view socket) {
    return std::ranges::any_of(Notifications(), [socket](const Notification& each) {
        return IsSocket(each.socket, socket);
    });
}

bool IsCount(const Field& field) {
    const std::string_view name = field.name;
    return field.kind == Kind::kUnsigned && field.size == 4 && field.count == 1 &&
           (name.ends_with("Num") || name.ends_with("num"));
}

}  // namespace protocol
