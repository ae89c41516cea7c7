// Policy rules: which table a packet's route is looked up in.
#include <linux/fib_rules.h>
#include <netlink/route/rule.h>

#include "api/api_route/api_route/route_wire.hpp"
#include "kernel_route.hpp"
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

wire::PlainResult Add(const TVimbraIpRuleParam& record) {
    const Rule rule = MakeRule(record);
    Netlink().Change(Build<NlMessage>([&rule](nl_msg** message) {
        return rtnl_rule_build_add_request(rule.get(), NLM_F_EXCL, message);
    }));
    return {0};
}

wire::PlainResult Delete(const TVimbraIpRuleParam& record) {
    const Rule rule = MakeRule(record);
    Netlink().Change(Build<NlMessage>([&rule](nl_msg** message) {
        return rtnl_rule_build_delete_request(rule.get(), 0, message);
    }));
    return {0};
}

class RuleService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.Change<TVimbraIpRuleParam, wire::PlainResult>(wire::kIpRuleAdd, "rule add", Add);
        registry.Change<TVimbraIpRuleParam, wire::PlainResult>(wire::kIpRuleDel, "rule delete",
                                                               Delete);
    }
};

}  // namespace

std::unique_ptr<Service> MakeRuleService(const Context&) {
    return std::make_unique<RuleService>();
}

}  // namespace vimbrad
