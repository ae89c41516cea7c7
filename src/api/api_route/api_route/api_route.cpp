#include "api/api_route/api_route/api_route.hpp"

#include <algorithm>

#include "api/api_route/api_route/route_request.hpp"
#include "lib/argument.hpp"
#include "lib/base/text.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

// The listing has words of its own.
constexpr RequestRule kListingRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid : %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

constexpr u32 kRoutePriEnd = 256;

s32 SendRoute(CallSite site, u32 type, const TVimbraIpRouteParam& route, const u32* table) {
    TableRequest<RouteBody> request(site, kRouteRule, table);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    CopyField(request->achIfaceName, route.achIfaceName);
    request->tRoute = route;
    return request.Send(type);
}

// Kept: no word for a missing record; the test is RouteCheck.ANullRecordIsRefused.
bool CheckRoute(CallSite site, const TVimbraIpRouteParam* route) {
    if (route == nullptr) {
        return false;
    }
    if (CheckRouteParam(route) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s", kRouteRefused);
        return false;
    }
    return true;
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
    TIpcAllRoute reply = {};
    const s32 result = SendRequest<FamilyBody>(VIMBRA_HERE, kListingRule, kAllRouteGet, reply,
                                               [&](auto& body) { body.wSinFamily = wSinFamily; });
    if (result == VIMBRA_OK) {
        // A count that the listing cannot hold would lead the application past its record.
        u32& count = reply.tAllRouteInfo.dwIpRouteNum;
        count = std::min<u32>(count, VIMBRA_ROUTE_MAX);
        *ptNetAllIpRouteInfo = reply.tAllRouteInfo;
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
    return LogResult(VIMBRA_HERE, "ApicOneRouteAdd", ApicOneRouteAdd(ptNetIpRouteParam));
}

s32 VimbraAddOneIpRouteToTable(TVimbraIpRouteParam* ptNetIpRouteParam, u32 nTableId) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicOneRouteAdd",
                     ApicOneRouteAddToTable(ptNetIpRouteParam, nTableId));
}

s32 VimbraDelOneIpRoute(TVimbraIpRouteParam* ptNetIpRouteParam) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicOneRouteDel", ApicOneRouteDel(ptNetIpRouteParam));
}

s32 VimbraDelOneIpRouteFromTable(TVimbraIpRouteParam* ptNetIpRouteParam, u32 nTableId) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicOneRouteAdd",
                     ApicOneRouteDelFromTable(ptNetIpRouteParam, nTableId));
}

s32 VimbraModifyIpRouteMetric(TVimbraIpRouteParam* ptNetIpRouteParam) {
    if (!CheckRoute(VIMBRA_HERE, ptNetIpRouteParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicOneRouteMeticModify",
                     ApicOneRouteMeticModify(ptNetIpRouteParam));
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
    return LogResult(VIMBRA_HERE, "ApicAllRouteGet",
                     ApicAllRouteGet(wSinFamily, ptNetAllIpRouteInfo));
}
