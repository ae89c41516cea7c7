// Default gateways, one for each interface, and the network priority: which of them is used.
//
// Every interface may have a default route in every table; the smaller metric wins. Without a
// priority list the first to be set gets metric 0, the next 1, and so on. With one, the interfaces
// of priority 1 come first in the main table, then those of 2 to 5, then those of the default
// priority and last those that the list does not name; interfaces of one priority follow the list's
// order.
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <tuple>

#include "address_text.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "kernel_route.hpp"
#include "ledger.hpp"
#include "log.hpp"
#include "route_text.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

constexpr u32 kMetricsPerPriority = 10;
static_assert(VIMBRA_NETWORK_PRIORITY_MAX <= kMetricsPerPriority);
constexpr u32 kMetricOfDefaultPriority = 6 * kMetricsPerPriority;
constexpr u32 kMetricOfUnnamed = 7 * kMetricsPerPriority;

// As the kernel holds it.
u32 MetricOf(const Route& route) {
    return rtnl_route_get_priority(route.get());
}

std::vector<Route> DefaultRoutes(u16 family, u32 table) {
    std::vector<Route> routes = ListRoutes(family, table);
    std::erase_if(routes, [](const Route& each) { return SpecOf(each.get()).prefix != 0; });
    std::stable_sort(routes.begin(), routes.end(), [](const Route& one, const Route& other) {
        return MetricOf(one) < MetricOf(other);
    });
    return routes;
}

std::vector<Route> DefaultRoutesOf(const std::string& name, u16 family, u32 table) {
    CheckOneFamily(family);
    const int iface = IfaceNumber(name);
    std::vector<Route> routes = DefaultRoutes(family, table);
    std::erase_if(routes, [iface](const Route& each) {
        return iface != 0 && SpecOf(each.get()).iface != iface;
    });
    if (routes.empty()) {
        throw Refusal(ESRCH, "no default gateway");
    }
    return routes;
}

wire::TIpcGateWay Get(const wire::FamilyIfaceBody& body, u32 table) {
    const std::vector<Route> routes =
        DefaultRoutesOf(NameOf(body.achIfaceName), body.wSinFamily, TableNumber(table));
    return {0, SpecOf(routes.front().get()).gateway};
}

// A gateway that a request has set.
struct OwnGateway {
    char iface[VIMBRA_IFACE_NAME_LEN];
    TVimbraAddr address;
    u32 table;
};

// Routers announce themselves again and again, with a metric that is not for us to change.
bool IsAnnounced(const Route& route) {
    return rtnl_route_get_protocol(route.get()) == RTPROT_RA;
}

class GatewayService : public Service {
 public:
    void Attach(Registry& registry) override {
        using wire::PlainResult;
        AttachBoth<wire::GatewayBody>(
            registry, wire::kGatewaySet, "gateway set",
            [this](const wire::GatewayBody& body, u32 table) { return Set(body, table); });
        registry.Query<wire::FamilyIfaceBody, wire::TIpcGateWay>(
            wire::kGatewayGet, "gateway get",
            [](const wire::FamilyIfaceBody& body) { return Get(body, RT_TABLE_MAIN); });
        registry.Query<wire::InTable<wire::FamilyIfaceBody>, wire::TIpcGateWay>(
            wire::kGatewayGet, "gateway get", [](const wire::InTable<wire::FamilyIfaceBody>& body) {
                return Get(wire::FamilyIfaceBody(body.tMain), body.dwTableId);
            });
        AttachBoth<wire::FamilyIfaceBody>(
            registry, wire::kGatewayDel, "gateway delete",
            [this](const wire::FamilyIfaceBody& body, u32 table) { return Delete(body, table); });
        registry.Change<TVimbraNetworkPrioInfo, PlainResult>(
            wire::kPrioritySet, "priority set",
            [this](const TVimbraNetworkPrioInfo& list) { return SetPriority(list); });
        registry.Query<NoBody, TVimbraNetworkPrioInfo>(wire::kPriorityGet, "priority get",
                                                       [this](const NoBody&) { return priority_; });
    }

    void Save(Json& state) const override {
        state["priority"] = TextOfRecord(priority_);
        state["gateways"] = ours_.Save();
    }
    void Restore(const Json& state) override {
        ours_.Restore(state.value("gateways", Json::array()));
        if (state.contains("priority")) {
            const auto priority =
                RecordFromText<TVimbraNetworkPrioInfo>(state.at("priority").get<std::string>());
            CheckPriority(priority);
            priority_ = priority;
        }
    }
    void TakeBack() override { ours_.TakeBack(DeleteOwn); }

    void Show(Json& answer) const override {
        Json& priority = answer["priority"] = Json::array();
        for (u32 i = 0; i < priority_.dwNetNum; ++i) {
            const TVimbraNetworkPriority& each = priority_.tNetPrioParam[i];
            priority.push_back({{"interface", NameOf(each.achIfaceName)},
                                {"priority", static_cast<unsigned>(each.ePrio)}});
        }
        Json& gateways = answer["gateways"] = Json::array();
        for (const u16 family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
            for (const Route& each : AllDefaultRoutes(family)) {
                Json shown = ShownRoute(each.get());
                shown["family"] = FamilyKey(family);
                shown["table"] = rtnl_route_get_table(each.get());
                shown.erase("destination");
                gateways.push_back(std::move(shown));
            }
        }
    }

 private:
    static std::vector<Route> AllDefaultRoutes(u16 family) {
        std::vector<Route> routes = ListAllRoutes(family);
        std::erase_if(routes, [](const Route& each) { return SpecOf(each.get()).prefix != 0; });
        std::ranges::stable_sort(routes, [](const Route& one, const Route& other) {
            return MetricOf(one) < MetricOf(other);
        });
        return routes;
    }

    static void DeleteOwn(const OwnGateway& own) {
        const int iface = IfaceNumber(NameOf(own.iface));
        for (const Route& each : DefaultRoutes(own.address.wSinFamily, own.table)) {
            const RouteSpec held = SpecOf(each.get());
            if (held.iface == iface && Same(held.gateway, own.address) && !IsAnnounced(each)) {
                DeleteRoute(each.get());
            }
        }
    }

    wire::PlainResult Delete(const wire::FamilyIfaceBody& body, u32 table) {
        for (const Route& each :
             DefaultRoutesOf(NameOf(body.achIfaceName), body.wSinFamily, TableNumber(table))) {
            ForgetRoute(SpecOf(each.get()));
            DeleteRoute(each.get());
        }
        return {0};
    }

    static OwnGateway OwnOf(const RouteSpec& spec) {
        OwnGateway own{};
        if_indextoname(static_cast<unsigned>(spec.iface), own.iface);
        own.address = spec.gateway;
        own.table = spec.table;
        return own;
    }

    void ForgetRoute(const RouteSpec& spec) {
        const OwnGateway gone = OwnOf(spec);
        ours_.ForgetIf([&gone](const OwnGateway& each) { return IsForSame(each, gone); });
    }

    static bool IsForSame(const OwnGateway& one, const OwnGateway& other) {
        return std::ranges::equal(one.iface, other.iface) && one.table == other.table &&
               one.address.wSinFamily == other.address.wSinFamily;
    }

    // Who came first stays first, whatever its gateway is now.
    void NoteOwn(const RouteSpec& spec) {
        const OwnGateway fresh = OwnOf(spec);
        ours_.Replace(fresh, [&fresh](const OwnGateway& each) { return IsForSame(each, fresh); });
    }

    // The place in which an interface got its gateway; those of others have theirs before.
    size_t PlaceOf(const RouteSpec& spec) const {
        const OwnGateway wanted = OwnOf(spec);
        const auto& all = ours_.Records();
        const auto found = std::ranges::find_if(
            all, [&wanted](const OwnGateway& each) { return IsForSame(each, wanted); });
        return found == all.end() ? 0 : static_cast<size_t>(found - all.begin()) + 1;
    }

    // A change of the main table and the same one of a numbered table.
    template <class Body, class Handler>
    static void AttachBoth(Registry& registry, u32 type, const char* what, Handler handler) {
        registry.Change<Body, wire::PlainResult>(
            type, what, [handler](const Body& body) { return handler(body, RT_TABLE_MAIN); });
        registry.Change<wire::InTable<Body>, wire::PlainResult>(
            type, what, [handler](const wire::InTable<Body>& body) {
                return handler(Body(body.tMain), body.dwTableId);
            });
    }

    // Replaces the gateway of one interface: the new route is there before an old one goes.
    wire::PlainResult Set(const wire::GatewayBody& body, u32 table) {
        RouteSpec wanted;
        wanted.destination.wSinFamily = body.tGateWay.wSinFamily;
        wanted.gateway = body.tGateWay;
        wanted.table = TableNumber(table);
        MakeNlAddr(wanted.gateway, 0);
        wanted.iface = IfaceNumber(NameOf(body.achIfaceName));
        if (wanted.iface == 0) {
            if (IsZero(wanted.gateway)) {
                throw Refusal(EINVAL, "neither interface nor gateway");
            }
            wanted.iface = IfaceTowards(wanted.gateway);
        }

        std::vector<Route> own = DefaultRoutes(wanted.destination.wSinFamily, wanted.table);
        const u32 base =
            std::max(BaseMetric(wanted.iface, wanted.destination.wSinFamily, wanted.table),
                     MetricBehindEarlier(own, wanted));
        std::set<u32> taken;
        std::erase_if(own, [&](const Route& each) {
            const RouteSpec held = SpecOf(each.get());
            if (held.iface == wanted.iface && !IsAnnounced(each)) {
                return false;
            }
            taken.insert(MetricOf(each));
            return true;
        });
        wanted.metric = FirstFree(taken, base);
        if (!Keep(own, wanted)) {
            Install(own, wanted);
        }
        for (const Route& each : own) {
            DeleteRoute(each.get());
        }
        NoteOwn(wanted);
        return {0};
    }

    // Without a list who comes later stays behind, also where an earlier one has gone and left room.
    u32 MetricBehindEarlier(const std::vector<Route>& routes, const RouteSpec& wanted) const {
        if (IsOrdered(wanted.table)) {
            return 0;
        }
        const size_t wantedPlace = PlaceOf(wanted);
        u32 metric = 0;
        for (const Route& each : routes) {
            const size_t place = PlaceOf(SpecOf(each.get()));
            if (place != 0 && (wantedPlace == 0 || place < wantedPlace)) {
                metric = std::max(metric, MetricOf(each) + 1);
            }
        }
        return metric;
    }

    // By the priority list, that is.
    bool IsOrdered(u32 table) const { return priority_.dwNetNum != 0 && table == RT_TABLE_MAIN; }

    // Takes the wanted route out of those that go, if it is there already.
    static bool Keep(std::vector<Route>& own, const RouteSpec& wanted) {
        return std::erase_if(own, [&wanted](const Route& each) {
                   return MetricOf(each) == wanted.metric &&
                          Same(SpecOf(each.get()).gateway, wanted.gateway);
               }) != 0;
    }

    static void Install(std::vector<Route>& own, const RouteSpec& wanted) {
        const bool replaces = std::erase_if(own, [&wanted](const Route& each) {
                                  return MetricOf(each) == wanted.metric;
                              }) != 0;
        if (replaces) {
            ReplaceRoute(wanted);
        } else {
            AddRoute(wanted);
        }
    }

    static u32 FirstFree(const std::set<u32>& taken, u32 metric) {
        while (taken.contains(metric)) {
            ++metric;
        }
        return metric;
    }

    // Where the metric of an interface's default route starts.
    u32 BaseMetric(int iface, u16 family, u32 table) const {
        if (!IsOrdered(table)) {
            return family == VIMBRA_FAMILY_IPV6 ? kIpv6DefaultMetric : 0;
        }
        for (u32 place = 0; place < priority_.dwNetNum; ++place) {
            const TVimbraNetworkPriority& entry = priority_.tNetPrioParam[place];
            if (Number(entry) != iface) {
                continue;
            }
            return (entry.ePrio == VIMBRA_NETWORK_PRIORITY_DEF
                        ? kMetricOfDefaultPriority
                        : entry.ePrio * kMetricsPerPriority) +
                   place;
        }
        return kMetricOfUnnamed;
    }

    // 0 for an interface that is not there: it may come later.
    static int Number(const TVimbraNetworkPriority& entry) {
        try {
            return IfaceNumber(NameOf(entry.achIfaceName));
        } catch (const Refusal&) {
            return 0;
        }
    }

    wire::PlainResult SetPriority(const TVimbraNetworkPrioInfo& list) {
        CheckPriority(list);
        priority_ = list;
        for (const u16 family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
            Reorder(family);
        }
        return {0};
    }

    static void CheckPriority(const TVimbraNetworkPrioInfo& list) {
        if (list.dwNetNum > VIMBRA_NETWORK_PRIORITY_MAX) {
            throw Refusal(EINVAL, "more interfaces than the list can hold");
        }
        std::set<std::string> names;
        for (u32 i = 0; i < list.dwNetNum; ++i) {
            const TVimbraNetworkPriority& entry = list.tNetPrioParam[i];
            if (entry.ePrio > VIMBRA_NETWORK_PRIORITY_5) {
                throw Refusal(EINVAL, "no such priority");
            }
            const std::string name = NameOf(entry.achIfaceName);
            if (name.empty() || !names.insert(name).second) {
                throw Refusal(EINVAL, "an interface without a name, or named twice");
            }
        }
    }

    // Gives the default routes of the main table the metrics that the list asks for. Each route is
    // there with its new metric before it goes with its old one.
    void Reorder(u16 family) {
        struct Move {
            Route route;
            u32 metric;
            size_t place;
        };
        std::vector<Move> moves;
        std::set<u32> taken;
        for (Route& each : DefaultRoutes(family, RT_TABLE_MAIN)) {
            const RouteSpec held = SpecOf(each.get());
            if (IsAnnounced(each)) {
                taken.insert(MetricOf(each));
            } else {
                moves.push_back({std::move(each), BaseMetric(held.iface, family, RT_TABLE_MAIN),
                                 PlaceOf(held)});
            }
        }
        std::stable_sort(moves.begin(), moves.end(), [](const Move& one, const Move& other) {
            return std::tie(one.metric, one.place) < std::tie(other.metric, other.place);
        });
        for (Move& each : moves) {
            each.metric = FirstFree(taken, each.metric);
            taken.insert(each.metric);
        }
        std::erase_if(moves, [](const Move& each) { return MetricOf(each.route) == each.metric; });
        for (const Move& each : moves) {
            AppendWithMetric(each.route.get(), each.metric);
            DeleteRoute(each.route.get());
        }
    }

    TVimbraNetworkPrioInfo priority_{};
    // In the order in which the interfaces got theirs.
    Ledger<OwnGateway> ours_;
};

}  // namespace

std::unique_ptr<Service> MakeGatewayService(const Context&) {
    return std::make_unique<GatewayService>();
}

}  // namespace vimbrad
