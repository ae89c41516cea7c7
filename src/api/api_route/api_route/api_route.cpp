#include "api/api_route/api_route/api_route.hpp"

#include <algorithm>

#include "api/api_route/api_route/route_wire.hpp"
#include "lib/argument.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

// Routes, tables and rules tell the application what went wrong.
constexpr RequestRule kRouteRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

// The listing has words of its own.
constexpr RequestRule kListingRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid : %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

// Gateways and the priority list only log it.
constexpr RequestRule kGatewayRule = {
    VIMBRA_TAG_ERR "send and recv msg return num : %d!",
    VIMBRA_TAG_ERR "send and recv msg error num : %d!",
    Failure::kMinusOne,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

constexpr u32 kRoutePriEnd = 256;
constexpr u32 kRuleTableEnd = 256;
constexpr u32 kRulePrefEnd = 32766;     // the kernel's own rule for the main table stands there
constexpr u32 kGatewayTableEnd = 255;   // the kernel's own table of local addresses
constexpr u32 kCreatedTableLast = 252;  // 253 to 255 always exist

// The differing texts of the rule check and the route check are one and the same.
constexpr char kFamiliesDiffer[] = "tDestIpNet and tDestGateWay sinFamily is differ";
constexpr char kRouteRefused[] = "CheckRouteParam error!";

// A request that is the same for the main table (null) and for a numbered one.
template <typename Main>
class TableRequest : public BytesRequest {
 public:
    TableRequest(const CallSite& site, const RequestRule& rule, const u32* table)
        : BytesRequest(site, rule, table == nullptr ? sizeof(Main) : sizeof(InTable<Main>)) {
        if (*this && table != nullptr) {
            reinterpret_cast<InTable<Main>*>(Body())->dwTableId = *table;
        }
    }

    Main* operator->() { return reinterpret_cast<Main*>(Body()); }

    using BytesRequest::Send;
    template <typename Reply>
    s32 Send(u32 type, Reply& reply) {
        return Exchange(type, &reply, sizeof(reply), true);
    }
};

s32 SendRoute(const CallSite& site, u32 type, const TVimbraIpRouteParam& route, const u32* table) {
    TableRequest<RouteBody> request(site, kRouteRule, table);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    CopyField(request->achIfaceName, route.achIfaceName);
    request->tRoute = route;
    return request.Send(type);
}

s32 SendGateway(const CallSite& site, const char* name, const TVimbraAddr& gateway,
                const u32* table) {
    TableRequest<GatewayBody> request(site, kGatewayRule, table);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    if (name != nullptr) {
        CopyField(request->achIfaceName, name);
    }
    request->tGateWay = gateway;
    return request.Send(kGatewaySet);
}

s32 FetchGateway(const CallSite& site, const char* name, u16 family, TVimbraAddr* gateway,
                 const u32* table) {
    TableRequest<FamilyIfaceBody> request(site, kGatewayRule, table);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->wSinFamily = family;
    if (name != nullptr) {
        // The whole field, whatever the name's length: the caller's buffer has 16 bytes.
        memcpy(request->achIfaceName, name, sizeof(request->achIfaceName));
    }
    TIpcGateWay reply = {};
    const s32 result = request.Send(kGatewayGet, reply);
    if (result == VIMBRA_OK) {
        *gateway = reply.tIpaddr;
    }
    return result;
}

s32 SendGatewayDel(const CallSite& site, const char* name, u16 family, const u32* table) {
    TableRequest<FamilyIfaceBody> request(site, kGatewayRule, table);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->wSinFamily = family;
    if (name != nullptr) {
        CopyField(request->achIfaceName, name);
    }
    return request.Send(kGatewayDel);
}

// A body that is one record, or one number.
template <typename Body>
s32 SendRecord(const CallSite& site, const RequestRule& rule, u32 type, const Body& body) {
    Request<Body> request(site, rule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    *request = body;
    return request.Send(type);
}

s32 SendRule(const CallSite& site, u32 type, const TVimbraIpRuleParam* rule) {
    if (rule == nullptr) {
        VLOG_ERROR_AT(site, "ptRule is NULL");
        return VIMBRA_ERR_GENERAL;
    }
    return SendRecord(site, kRouteRule, type, *rule);
}

// No name stands for the interface that the daemon finds.
bool CheckGatewayName(const CallSite& site, const char* name) {
    if (name == nullptr) {
        VLOG_DEBUG_AT(site, "the pchIfaceName is NULL!");
        return true;
    }
    if (!IsIfaceName(name)) {
        VLOG_ERROR_AT(site, "pchIfaceName is more than VIMBRA_IFACE_NAME_LEN!");
        return false;
    }
    VLOG_DEBUG_AT(site, "the pchIfaceName is %s", name);
    return true;
}

bool CheckGatewayFamily(const CallSite& site, u16 family) {
    if (!IsOneFamily(family)) {
        VLOG_ERROR_AT(site, "wSinFamily %d is invalid!", family);
        return false;
    }
    VLOG_PRINT_AT(site, "wSinFamily is %d!", family);
    return true;
}

bool CheckGatewayTable(const CallSite& site, u32 table) {
    if (table == 0 || table >= kGatewayTableEnd) {
        VLOG_ERROR_AT(site, "table id %d is invalid", static_cast<int>(table));
        return false;
    }
    return true;
}

bool CheckGatewaySet(const CallSite& site, const char* name, const TVimbraAddr& gateway) {
    if (!CheckGatewayName(site, name)) {
        return false;
    }
    if (!IsOneFamily(gateway.wSinFamily)) {
        VLOG_ERROR_AT(site, "tGateWay.wSinFamily %d is invalid!", gateway.wSinFamily);
        return false;
    }
    return true;
}

bool CheckGatewayGet(const CallSite& site, const char* name, u16 family,
                     const TVimbraAddr* gateway) {
    if (!CheckGatewayName(site, name)) {
        return false;
    }
    if (gateway == nullptr) {
        VLOG_ERROR_AT(site, "ptGateWay is NULL!");
        return false;
    }
    return CheckGatewayFamily(site, family);
}

bool CheckGatewayDel(const CallSite& site, const char* name, u16 family) {
    return CheckGatewayName(site, name) && CheckGatewayFamily(site, family);
}

bool IsCreatedTable(u32 table) {
    return table >= 1 && table <= kCreatedTableLast;
}

// A null record is refused without a word: these calls have never looked for one.
bool CheckRoute(const CallSite& site, const TVimbraIpRouteParam* route) {
    if (route == nullptr) {
        return false;
    }
    if (CheckRouteParam(route) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s", kRouteRefused);
        return false;
    }
    return true;
}

bool CheckRule(const CallSite& site, const TVimbraIpRuleParam* rule) {
    if (rule == nullptr) {
        return false;
    }
    if (CheckIpRuleParam(rule) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "CheckIpRuleParam error!");
        return false;
    }
    return true;
}

// The result, logged if it is a failure. Several calls log under the name of another's request;
// log readers know them so.
s32 Told(const CallSite& site, const char* request, s32 result) {
    if (result != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s error : %d!", request, result);
    }
    return result;
}

}  // namespace

s32 CheckRouteParam(const TVimbraIpRouteParam* ptNetIpRouteParam) {
    const TVimbraIpRouteParam& route = *ptNetIpRouteParam;
    const u16 family = route.tDestIpNet.wSinFamily;
    if (family != route.tDestGateWay.wSinFamily) {
        VLOG_ERROR("%s", kFamiliesDiffer);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!IsOneFamily(family)) {
        VLOG_ERROR("sinFamily%d is not support ", family);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (route.dwRoutePri >= kRoutePriEnd) {
        VLOG_ERROR("dwRoutePri%d is not support ", static_cast<int>(route.dwRoutePri));
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const int longest = family == VIMBRA_FAMILY_IPV4 ? 32 : 128;
    if (route.dwPrefix > static_cast<u32>(longest)) {
        VLOG_ERROR("ptNetIpRouteParam->dwPrefix %d is max %d ", static_cast<int>(route.dwPrefix),
                   longest);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return VIMBRA_OK;
}

s32 CheckIpRuleParam(const TVimbraIpRuleParam* ptRule) {
    if (ptRule->dwTableId >= kRuleTableEnd) {
        VLOG_ERROR("%s", kFamiliesDiffer);  // The route check's words, kept.
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

s32 ApicOneRouteAdd(const TVimbraIpRouteParam* ptNetIpRouteParam) {
    return SendRoute(VIMBRA_HERE, kRouteAdd, *ptNetIpRouteParam, nullptr);
}

s32 ApicOneRouteAddToTable(const TVimbraIpRouteParam* ptNetIpRouteParam, u32 dwTableId) {
    return SendRoute(VIMBRA_HERE, kRouteAdd, *ptNetIpRouteParam, &dwTableId);
}

s32 ApicOneRouteDel(const TVimbraIpRouteParam* ptNetIpRouteParam) {
    return SendRoute(VIMBRA_HERE, kRouteDel, *ptNetIpRouteParam, nullptr);
}

s32 ApicOneRouteDelFromTable(const TVimbraIpRouteParam* ptNetIpRouteParam, u32 dwTableId) {
    return SendRoute(VIMBRA_HERE, kRouteDel, *ptNetIpRouteParam, &dwTableId);
}

s32 ApicOneRouteMeticModify(const TVimbraIpRouteParam* ptNetIpRouteParam) {
    return SendRecord(VIMBRA_HERE, kRouteRule, kRouteMetricModify, *ptNetIpRouteParam);
}

s32 ApicAllRouteGet(u16 wSinFamily, TVimbraAllIpRouteInfo* ptNetAllIpRouteInfo) {
    Request<FamilyBody> request(VIMBRA_HERE, kListingRule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->wSinFamily = wSinFamily;
    TIpcAllRoute reply = {};
    const s32 result = request.Send(kAllRouteGet, reply);
    if (result == VIMBRA_OK) {
        // A count that the listing cannot hold would lead the application past its record.
        u32& count = reply.tAllRouteInfo.dwIpRouteNum;
        count = std::min<u32>(count, VIMBRA_ROUTE_MAX);
        *ptNetAllIpRouteInfo = reply.tAllRouteInfo;
    }
    return result;
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

s32 ApicGateWaySet(const char* pchIfaceName, const TVimbraAddr& tGateWay) {
    return SendGateway(VIMBRA_HERE, pchIfaceName, tGateWay, nullptr);
}

s32 ApicGateWaySetToTable(const char* pchIfaceName, const TVimbraAddr& tGateWay, u32 dwTableId) {
    return SendGateway(VIMBRA_HERE, pchIfaceName, tGateWay, &dwTableId);
}

s32 ApicGateWayGet(const char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay) {
    return FetchGateway(VIMBRA_HERE, pchIfaceName, wSinFamily, ptGateWay, nullptr);
}

s32 ApicGateWayGetFromTable(const char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay,
                            u32 dwTableId) {
    return FetchGateway(VIMBRA_HERE, pchIfaceName, wSinFamily, ptGateWay, &dwTableId);
}

s32 ApicGateWayDel(const char* pchIfaceName, u16 wSinFamily) {
    return SendGatewayDel(VIMBRA_HERE, pchIfaceName, wSinFamily, nullptr);
}

s32 ApicGateWayDelFromTable(const char* pchIfaceName, u16 wSinFamily, u32 dwTableId) {
    return SendGatewayDel(VIMBRA_HERE, pchIfaceName, wSinFamily, &dwTableId);
}

s32 ApicPrioritySet(const TVimbraNetworkPrioInfo* ptConfig) {
    if (ptConfig == nullptr) {
        VLOG_ERROR("ptConfig is NULL");
        return VIMBRA_ERR_GENERAL;
    }
    return SendRecord(VIMBRA_HERE, kGatewayRule, kPrioritySet, *ptConfig);
}

s32 ApicPriorityGet(TVimbraNetworkPrioInfo* ptInfo) {
    Request<NoBody> request(VIMBRA_HERE, kGatewayRule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    TVimbraNetworkPrioInfo reply = {};
    const s32 result = request.SendForRecord(kPriorityGet, reply);
    if (result == VIMBRA_OK) {
        *ptInfo = reply;
    }
    return result;
}

s32 VimbraAddOneIpRoute(TVimbraIpRouteParam* ptNetIpRouteParam) {
    if (ptNetIpRouteParam == nullptr) {
        VLOG_ERROR("Param error!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteAdd", ApicOneRouteAdd(ptNetIpRouteParam));
}

s32 VimbraAddOneIpRouteToTable(TVimbraIpRouteParam* ptNetIpRouteParam, u32 nTableId) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteAdd",
                ApicOneRouteAddToTable(ptNetIpRouteParam, nTableId));
}

s32 VimbraDelOneIpRoute(TVimbraIpRouteParam* ptNetIpRouteParam) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteDel", ApicOneRouteDel(ptNetIpRouteParam));
}

s32 VimbraDelOneIpRouteFromTable(TVimbraIpRouteParam* ptNetIpRouteParam, u32 nTableId) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteAdd",
                ApicOneRouteDelFromTable(ptNetIpRouteParam, nTableId));
}

s32 VimbraModifyIpRouteMetric(TVimbraIpRouteParam* ptNetIpRouteParam) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteMeticModify", ApicOneRouteMeticModify(ptNetIpRouteParam));
}

s32 VimbraGetAllIpRoute(u16 wSinFamily, TVimbraAllIpRouteInfo* ptNetAllIpRouteInfo) {
    if (ptNetAllIpRouteInfo == nullptr) {
        VLOG_ERROR("ptNetAllIpRouteInfo is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!IsOneFamily(wSinFamily) && wSinFamily != VIMBRA_FAMILY_BOTH) {
        VLOG_ERROR("the wSinFamily %d is invalid!", wSinFamily);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicAllRouteGet", ApicAllRouteGet(wSinFamily, ptNetAllIpRouteInfo));
}

s32 VimbraSetDefGateway(char* pchIfaceName, TVimbraAddr tGateWay) {
    if (!CheckGatewaySet(VIMBRA_HERE, pchIfaceName, tGateWay)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWaySet", ApicGateWaySet(pchIfaceName, tGateWay));
}

s32 VimbraSetDefGatewayToTable(char* pchIfaceName, TVimbraAddr tGateWay, u32 dwTableId) {
    if (!CheckGatewaySet(VIMBRA_HERE, pchIfaceName, tGateWay) ||
        !CheckGatewayTable(VIMBRA_HERE, dwTableId)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWaySet",
                ApicGateWaySetToTable(pchIfaceName, tGateWay, dwTableId));
}

s32 VimbraGetDefGateway(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay) {
    if (!CheckGatewayGet(VIMBRA_HERE, pchIfaceName, wSinFamily, ptGateWay)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWayGet", ApicGateWayGet(pchIfaceName, wSinFamily, ptGateWay));
}

s32 VimbraGetDefGatewayFromTable(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay,
                                 u32 dwTableId) {
    if (!CheckGatewayGet(VIMBRA_HERE, pchIfaceName, wSinFamily, ptGateWay) ||
        !CheckGatewayTable(VIMBRA_HERE, dwTableId)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWayGet",
                ApicGateWayGetFromTable(pchIfaceName, wSinFamily, ptGateWay, dwTableId));
}

s32 VimbraDelDefGateway(char* pchIfaceName, u16 wSinFamily) {
    if (!CheckGatewayDel(VIMBRA_HERE, pchIfaceName, wSinFamily)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWayDel", ApicGateWayDel(pchIfaceName, wSinFamily));
}

s32 VimbraDelDefGatewayFromTable(char* pchIfaceName, u16 wSinFamily, u32 dwTableId) {
    if (!CheckGatewayDel(VIMBRA_HERE, pchIfaceName, wSinFamily) ||
        !CheckGatewayTable(VIMBRA_HERE, dwTableId)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWayDel",
                ApicGateWayDelFromTable(pchIfaceName, wSinFamily, dwTableId));
}

s32 VimbraAddRouteTable(u32 dwTable) {
    if (!IsCreatedTable(dwTable)) {
        VLOG_ERROR("CheckRouteParam error!dwTable = %d", static_cast<int>(dwTable));
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteAdd", ApicRouteTableAdd(dwTable));
}

s32 VimbraDelRouteTable(u32 dwTable) {
    if (!IsCreatedTable(dwTable)) {
        VLOG_ERROR("%s", kRouteRefused);
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicOneRouteAdd", ApicRouteTableDel(dwTable));
}

s32 VimbraAddIpRule(TVimbraIpRuleParam* ptRule) {
    if (!CheckRule(VIMBRA_HERE, ptRule)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicIpRuleAdd", ApicIpRuleAdd(ptRule));
}

s32 VimbraDelIpRule(TVimbraIpRuleParam* ptRule) {
    if (!CheckRule(VIMBRA_HERE, ptRule)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicIpRuleDel", ApicIpRuleDel(ptRule));
}

s32 VimbraGetAllIpRule() {
    return VIMBRA_OK;
}

s32 VimbraSetNetworkPriority(TVimbraNetworkPrioInfo* ptConfig) {
    if (ptConfig == nullptr) {
        VLOG_ERROR("params is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWaySet", ApicPrioritySet(ptConfig));
}

s32 VimbraGetNetworkPriority(TVimbraNetworkPrioInfo* ptInfo) {
    if (ptInfo == nullptr) {
        VLOG_ERROR("params is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return Told(VIMBRA_HERE, "ApicGateWaySet", ApicPriorityGet(ptInfo));
}
