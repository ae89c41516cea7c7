// Static routes and the tables that hold them.
//
// The kernel makes a table when the first route enters it, so creating one only notes its number;
// that note is a part of the daemon's state. Removing a table removes its routes.
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "api/api_route/api_route/route_wire.hpp"
#include "kernel_route.hpp"
#include "ledger.hpp"
#include "route_text.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// The numbers above are the kernel's own: default, main, local.
constexpr u32 kTableMax = 252;

RouteSpec Wanted(const TVimbraIpRouteParam& record, u32 table) {
    RouteSpec spec;
    spec.destination = record.tDestIpNet;
    spec.prefix = record.dwPrefix;
    spec.gateway = record.tDestGateWay;
    spec.iface = IfaceNumber(NameOf(record.achIfaceName));
    spec.metric = record.dwRoutePri;
    spec.table = TableNumber(table);
    return spec;
}

// The kernel's routes to the same destination that do not contradict the record: a name or a
// gateway that is not given does not matter. The one with the smallest metric comes first.
std::vector<Route> Matching(const RouteSpec& wanted) {
    MakeNlAddr(wanted.destination, wanted.prefix);
    std::vector<Route> found = ListRoutes(wanted.destination.wSinFamily, wanted.table);
    std::erase_if(found, [&wanted](const Route& each) {
        const RouteSpec held = SpecOf(each.get());
        return !Same(held.destination, wanted.destination) || held.prefix != wanted.prefix ||
               (wanted.iface != 0 && held.iface != wanted.iface) ||
               (!IsZero(wanted.gateway) && !Same(held.gateway, wanted.gateway));
    });
    std::stable_sort(found.begin(), found.end(), [](const Route& one, const Route& other) {
        return rtnl_route_get_priority(one.get()) < rtnl_route_get_priority(other.get());
    });
    return found;
}

auto WithMetric(std::vector<Route>& routes, u32 metric) {
    return std::find_if(routes.begin(), routes.end(), [metric](const Route& each) {
        return SpecOf(each.get()).metric == metric;
    });
}

// A route that a request has added.
struct OwnRoute {
    TVimbraIpRouteParam record;
    u32 table;
};

bool GoesToSame(const OwnRoute& one, const OwnRoute& other) {
    return one.table == other.table && one.record.dwPrefix == other.record.dwPrefix &&
           Same(one.record.tDestIpNet, other.record.tDestIpNet);
}

// The metric of the route that went. Metric 0 stands for any metric where no route has it.
u32 Delete(const TVimbraIpRouteParam& record, u32 table) {
    std::vector<Route> routes = Matching(Wanted(record, table));
    auto route = WithMetric(routes, record.dwRoutePri);
    if (route == routes.end() && record.dwRoutePri == 0) {
        route = routes.begin();
    }
    if (route == routes.end()) {
        throw Refusal(ESRCH, "no such route");
    }
    DeleteRoute(route->get());
    return SpecOf(route->get()).metric;
}

// The metric before. The route with the new metric comes before the one with the old goes.
u32 ModifyMetric(const TVimbraIpRouteParam& record) {
    std::vector<Route> routes = Matching(Wanted(record, RT_TABLE_MAIN));
    if (routes.empty()) {
        throw Refusal(ESRCH, "no such route");
    }
    if (WithMetric(routes, record.dwRoutePri) != routes.end()) {
        return record.dwRoutePri;
    }
    RouteSpec occupied = Wanted(record, RT_TABLE_MAIN);
    occupied.iface = 0;
    occupied.gateway = {occupied.destination.wSinFamily, {}};
    std::vector<Route> rivals = Matching(occupied);
    if (WithMetric(rivals, record.dwRoutePri) != rivals.end()) {
        throw Refusal(EEXIST, "another route to the destination has this metric");
    }
    AppendWithMetric(routes.front().get(), record.dwRoutePri);
    DeleteRoute(routes.front().get());
    return SpecOf(routes.front().get()).metric;
}

TVimbraIpRouteParam RecordOf(rtnl_route* route) {
    const RouteSpec spec = SpecOf(route);
    TVimbraIpRouteParam record{};
    char name[IF_NAMESIZE] = "";
    if (if_indextoname(static_cast<unsigned>(spec.iface), name) != nullptr) {
        std::memcpy(record.achIfaceName, name, sizeof(record.achIfaceName));
    }
    record.tDestIpNet = spec.destination;
    record.tDestGateWay = spec.gateway;
    record.dwPrefix = spec.prefix;
    record.dwRoutePri = spec.metric;
    return record;
}

// The main table. What somebody configured goes before what the kernel made by itself for the
// interfaces' own subnets, so that the latter is what a full list leaves out; then IPv4 first.
wire::TIpcAllRoute List(const wire::FamilyBody& body) {
    std::vector<Route> routes;
    for (const u16 family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
        if (!Covers(body.wSinFamily, family)) {
            continue;
        }
        for (Route& each : ListRoutes(family, RT_TABLE_MAIN)) {
            routes.push_back(std::move(each));
        }
    }
    std::stable_partition(routes.begin(), routes.end(), [](const Route& each) {
        return rtnl_route_get_protocol(each.get()) != RTPROT_KERNEL;
    });
    wire::TIpcAllRoute reply{};
    TVimbraAllIpRouteInfo& list = reply.tAllRouteInfo;
    for (const Route& each : routes) {
        if (list.dwIpRouteNum == VIMBRA_ROUTE_MAX) {
            break;
        }
        list.tNetIpRouteParam[list.dwIpRouteNum++] = RecordOf(each.get());
    }
    return reply;
}

class RouteService : public Service {
 public:
    void Attach(Registry& registry) override {
        using wire::PlainResult;
        AttachRoute(registry, wire::kRouteAdd, "route add", [this](const auto& record, u32 table) {
            AddOwn({record, table});
        });
        AttachRoute(registry, wire::kRouteDel, "route delete",
                    [this](const auto& record, u32 table) {
                        DeleteAny({record, table});
                    });
        registry.Change<TVimbraIpRouteParam, PlainResult>(
            wire::kRouteMetricModify, "route metric", [this](const TVimbraIpRouteParam& record) {
                Move({record, RT_TABLE_MAIN}, ModifyMetric(record));
                return PlainResult{0};
            });
        registry.Query<wire::FamilyBody, wire::TIpcAllRoute>(wire::kAllRouteGet, "route list",
                                                             List);
        registry.Change<wire::TableBody, PlainResult>(
            wire::kRouteTableAdd, "table add",
            [this](const wire::TableBody& body) { return AddTable(body.dwTableId); });
        registry.Change<wire::TableBody, PlainResult>(
            wire::kRouteTableDel, "table delete",
            [this](const wire::TableBody& body) { return DeleteTable(body.dwTableId); });
    }

    void Save(Json& state) const override {
        state["tables"] = created_;
        state["routes"] = ours_.Save();
    }
    void Restore(const Json& state) override {
        created_ = state.value("tables", std::set<u32>());
        ours_.Restore(state.value("routes", Json::array()));
    }
    void TakeBack() override {
        ours_.TakeBack([](const OwnRoute& each) { Delete(each.record, each.table); });
    }

    void Show(Json& answer) const override {
        std::map<u32, Json> tables;
        for (const u32 each : created_) {
            tables[each] = Json::array();
        }
        for (const u16 family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
            for (const Route& each : ListAllRoutes(family)) {
                Json shown = ShownRoute(each.get());
                shown["family"] = FamilyKey(family);
                tables[rtnl_route_get_table(each.get())].push_back(std::move(shown));
            }
        }
        Json& list = answer["tables"] = Json::array();
        for (auto& [table, routes] : tables) {
            list.push_back({{"table", table},
                            {"created", created_.contains(table)},
                            {"routes", std::move(routes)}});
        }
    }

 private:
    void AddOwn(const OwnRoute& route) {
        AddRoute(Wanted(route.record, route.table));
        ours_.Note(route);
    }

    void DeleteAny(const OwnRoute& route) {
        const u32 metric = Delete(route.record, route.table);
        ours_.ForgetIf([&](const OwnRoute& each) {
            return GoesToSame(each, route) && each.record.dwRoutePri == metric;
        });
    }

    // A route of ours stays ours with another metric.
    void Move(const OwnRoute& moved, u32 before) {
        OwnRoute old = moved;
        old.record.dwRoutePri = before;
        ours_.Alter([&](OwnRoute& each) {
            if (GoesToSame(each, old) && each.record.dwRoutePri == before) {
                each.record.dwRoutePri = moved.record.dwRoutePri;
            }
        });
    }

    using RouteHandler = std::function<void(const TVimbraIpRouteParam&, u32 table)>;

    static void AttachRoute(Registry& registry, u32 type, const char* what,
                            const RouteHandler& handler) {
        registry.Change<wire::RouteBody, wire::PlainResult>(type, what,
                                                            [handler](const wire::RouteBody& body) {
                                                                handler(body.tRoute, RT_TABLE_MAIN);
                                                                return wire::PlainResult{0};
                                                            });
        registry.Change<wire::InTable<wire::RouteBody>, wire::PlainResult>(
            type, what, [handler](const wire::InTable<wire::RouteBody>& body) {
                handler(wire::RouteBody(body.tMain).tRoute, TableNumber(body.dwTableId));
                return wire::PlainResult{0};
            });
    }

    static void CheckTable(u32 table) {
        if (table == 0 || table > kTableMax) {
            throw Refusal(EINVAL, "not a number for a table");
        }
    }

    wire::PlainResult AddTable(u32 table) {
        CheckTable(table);
        if (!created_.insert(table).second) {
            throw Refusal(EEXIST, "the table was created before");
        }
        return {0};
    }

    // Also one that was created before the daemon started, which shows in its routes only.
    wire::PlainResult DeleteTable(u32 table) {
        CheckTable(table);
        bool existed = created_.contains(table);
        for (const u16 family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
            for (const Route& each : ListRoutes(family, table)) {
                existed = true;
                DeleteRoute(each.get());
            }
        }
        created_.erase(table);
        ours_.ForgetIf([table](const OwnRoute& each) { return each.table == table; });
        if (!existed) {
            throw Refusal(ENOENT, "no such table");
        }
        return {0};
    }

    std::set<u32> created_;
    Ledger<OwnRoute> ours_;
};

}  // namespace

std::unique_ptr<Service> MakeRouteService(const Context&) {
    return std::make_unique<RouteService>();
}

}  // namespace vimbrad
