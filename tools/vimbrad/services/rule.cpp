// Policy rules: which table a packet's route is looked up in.
#include <linux/fib_rules.h>
#include <netlink/route/rule.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "address_text.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "kernel_route.hpp"
#include "ledger.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

using Rule = std::unique_ptr<rtnl_rule, FreeWith<rtnl_rule_put>>;

Rule MakeRule(const TVimbraIpRuleParam& record) {
    const NlAddr source = MakeNlAddr(record.tFromIpNet, record.dwPrefix);
    auto rule = Allocated<Rule>(rtnl_rule_alloc());
    rtnl_rule_set_family(rule.get(), record.tFromIpNet.wSinFamily);
    rtnl_rule_set_action(rule.get(), FR_ACT_TO_TBL);
    rtnl_rule_set_table(rule.get(), TableNumber(record.dwTableId));
    rtnl_rule_set_prio(rule.get(), record.dwPref);
    // A prefix of 0 is any source, a mark of 0 any mark.
    if (record.dwPrefix != 0 && rtnl_rule_set_src(rule.get(), source.get()) < 0) {
        throw Refusal(EINVAL);
    }
    if (record.dwFwmark != 0) {
        rtnl_rule_set_mark(rule.get(), record.dwFwmark);
    }
    return rule;
}

void Add(const TVimbraIpRuleParam& record) {
    const Rule rule = MakeRule(record);
    Netlink().Change(Build<NlMessage>([&rule](nl_msg** message) {
        return rtnl_rule_build_add_request(rule.get(), NLM_F_EXCL, message);
    }));
}

void Delete(const TVimbraIpRuleParam& record) {
    const Rule rule = MakeRule(record);
    Netlink().Change(Build<NlMessage>([&rule](nl_msg** message) {
        return rtnl_rule_build_delete_request(rule.get(), 0, message);
    }));
}

// The same rule by another record has the same place.
bool IsSame(const TVimbraIpRuleParam& one, const TVimbraIpRuleParam& other) {
    return one.dwPref == other.dwPref && one.dwPrefix == other.dwPrefix &&
           one.dwFwmark == other.dwFwmark &&
           TableNumber(one.dwTableId) == TableNumber(other.dwTableId) &&
           Same(one.tFromIpNet, other.tFromIpNet);
}

Json Shown(rtnl_rule* rule) {
    Json shown{{"family", FamilyKey(static_cast<u16>(rtnl_rule_get_family(rule)))},
               {"priority", rtnl_rule_get_prio(rule)},
               {"table", rtnl_rule_get_table(rule)}};
    if (const nl_addr* source = rtnl_rule_get_src(rule)) {
        shown["source"] = TextOf(MakeAddr(source), nl_addr_get_prefixlen(source));
    }
    constexpr u32 kNone = 0xffffffff;
    if (const u32 mark = rtnl_rule_get_mark(rule); mark != 0 && mark != kNone) {
        shown["mark"] = mark;
    }
    return shown;
}

// Those of a family, as the kernel goes through them. The library's cache holds those of all
// families, multicast's own among them, whichever is asked for.
std::vector<rtnl_rule*> InOrder(const NlCache& rules, int family) {
    std::vector<rtnl_rule*> found;
    ForEach<rtnl_rule>(rules, [&](rtnl_rule* each) {
        if (rtnl_rule_get_family(each) == family) {
            found.push_back(each);
        }
    });
    std::ranges::stable_sort(found, {}, rtnl_rule_get_prio);
    return found;
}

class RuleService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.Change<TVimbraIpRuleParam, wire::PlainResult>(
            wire::kIpRuleAdd, "rule add", [this](const TVimbraIpRuleParam& record) {
                Add(record);
                ours_.Note(record);
                return wire::PlainResult{0};
            });
        registry.Change<TVimbraIpRuleParam, wire::PlainResult>(
            wire::kIpRuleDel, "rule delete", [this](const TVimbraIpRuleParam& record) {
                Delete(record);
                ours_.ForgetIf([&](const auto& each) { return IsSame(each, record); });
                return wire::PlainResult{0};
            });
    }

    void Save(Json& state) const override { state["rules"] = ours_.Save(); }
    void Restore(const Json& state) override { ours_.Restore(state.value("rules", Json::array())); }
    void TakeBack() override { ours_.TakeBack(Delete); }

    void Show(Json& answer) const override {
        Json& list = answer["rules"] = Json::array();
        const NlCache rules = Netlink().Dump([](nl_sock* socket, nl_cache** cache) {
            return rtnl_rule_alloc_cache(socket, AF_UNSPEC, cache);
        });
        for (const int family : {VIMBRA_FAMILY_IPV4, VIMBRA_FAMILY_IPV6}) {
            for (rtnl_rule* each : InOrder(rules, family)) {
                list.push_back(Shown(each));
            }
        }
    }

 private:
    Ledger<TVimbraIpRuleParam> ours_;
};

}  // namespace

std::unique_ptr<Service> MakeRuleService(const Context&) {
    return std::make_unique<RuleService>();
}

}  // namespace vimbrad
