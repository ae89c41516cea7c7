// Numbered routing tables, and the rules that lead to them.
#include "api/api_route/api_route/api_route.hpp"
#include "api/api_route/api_route/route_request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr u32 kRuleTableEnd = 256;
constexpr u32 kRulePrefEnd = 32766;     // the kernel's own rule for the main table stands there
constexpr u32 kCreatedTableLast = 252;  // 253 to 255 always exist

s32 SendRule(CallSite site, u32 type, const TVimbraIpRuleParam* rule) {
    if (rule == nullptr) {
        VLOG_ERROR_AT(site, "ptRule is NULL");
        return VIMBRA_ERR_GENERAL;
    }
    return SendRecord(site, kRouteRule, type, *rule);
}

bool IsCreatedTable(u32 table) {
    return table >= 1 && table <= kCreatedTableLast;
}

// Kept: no word for a missing record; the test is RuleCheck.ANullRuleIsRefusedWithoutAWord.
bool CheckRule(CallSite site, const TVimbraIpRuleParam* rule) {
    if (rule == nullptr) {
        return false;
    }
    if (CheckIpRuleParam(rule) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "CheckIpRuleParam error!");
        return false;
    }
    return true;
}

}  // namespace

s32 CheckIpRuleParam(const TVimbraIpRuleParam* ptRule) {
    if (ptRule->dwTableId >= kRuleTableEnd) {
        // Kept: the route check's words; the test is RuleCheck.TableThenFamilyThenPriority.
        VLOG_ERROR("%s", kFamiliesDiffer);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptRule->tFromIpNet.wSinFamily != VIMBRA_FAMILY_IPV4) {
        VLOG_ERROR("sinFamily%d is not support ", ptRule->tFromIpNet.wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptRule->dwPref >= kRulePrefEnd) {
        VLOG_ERROR("pref %d is not support ", static_cast<int>(ptRule->dwPref));
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return VIMBRA_OK;
}

s32 ApicRouteTableAdd(u32 dwTable) {
    return SendRecord(VIMBRA_HERE, kRouteRule, kRouteTableAdd, TableBody{dwTable});
}

s32 ApicRouteTableDel(u32 dwTable) {
    return SendRecord(VIMBRA_HERE, kRouteRule, kRouteTableDel, TableBody{dwTable});
}

s32 ApicIpRuleAdd(const TVimbraIpRuleParam* ptRule) {
    return SendRule(VIMBRA_HERE, kIpRuleAdd, ptRule);
}

s32 ApicIpRuleDel(const TVimbraIpRuleParam* ptRule) {
    return SendRule(VIMBRA_HERE, kIpRuleDel, ptRule);
}

s32 VimbraAddRouteTable(u32 dwTable) {
    if (!IsCreatedTable(dwTable)) {
        VLOG_ERROR("CheckRouteParam error!dwTable = %d", static_cast<int>(dwTable));
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicOneRouteAdd", ApicRouteTableAdd(dwTable));
}

s32 VimbraDelRouteTable(u32 dwTable) {
    if (!IsCreatedTable(dwTable)) {
        // Kept: without the number; the test is RouteTest.RefusedTableNumbers.
        VLOG_ERROR("%s", kRouteRefused);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicOneRouteAdd", ApicRouteTableDel(dwTable));
}

s32 VimbraAddIpRule(TVimbraIpRuleParam* ptRule) {
    if (!CheckRule(VIMBRA_HERE, ptRule)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicIpRuleAdd", ApicIpRuleAdd(ptRule));
}

s32 VimbraDelIpRule(TVimbraIpRuleParam* ptRule) {
    if (!CheckRule(VIMBRA_HERE, ptRule)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicIpRuleDel", ApicIpRuleDel(ptRule));
}

s32 VimbraGetAllIpRule() {
    return VIMBRA_OK;
}
