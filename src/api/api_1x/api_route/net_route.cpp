#include <vimbra/net_route.h>
#include <vimbra/route.h>

#include <algorithm>

#include "api/api_1x/legacy.hpp"
#include "lib/base/text.hpp"
#include "lib/failure.hpp"

using namespace vimbra;

namespace {

static_assert(NET_ROUTE_MAX == VIMBRA_ROUTE_MAX);

s32 OnRoute(CallSite site, u32 number, const TNetIpRouteParam* legacy,
            s32 (*call)(TVimbraIpRouteParam*)) {
    return OnInterface(site, number, "interface_name failed", [=](char* name) {
        if (legacy == nullptr) {
            return RefuseArgument(site.function, VIMBRA_ERR_PARAM);
        }
        TVimbraIpRouteParam route = {};
        CopyField(route.achIfaceName, name);
        route.tDestIpNet = Ipv4(legacy->dwDesIpNet);
        route.tDestGateWay = Ipv4(legacy->dwGwIpAdrs);
        route.dwPrefix = legacy->dwDesIpMask;  // A bit count, despite its name.
        route.dwRoutePri = legacy->dwRoutePri;
        return call(&route);
    });
}

}  // namespace

s32 NetSetDefGateway(u32 byEthId, u32 dwGateway) {
    return OnInterface(VIMBRA_HERE, byEthId, "NetSetDefGateway interface_name failed",
                       [=](char* name) { return VimbraSetDefGateway(name, Ipv4(dwGateway)); });
}

s32 NetGetDefGateway(u32 byEthId, u32* pdwGateway) {
    if (pdwGateway == nullptr) {
        VLOG_ERROR("pdwGateway is null");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return OnInterface(
        VIMBRA_HERE, byEthId, "NetGetDefGateway interface_name failed", [=](char* name) {
            TVimbraAddr gateway = {};
            const s32 result = VimbraGetDefGateway(name, VIMBRA_FAMILY_IPV4, &gateway);
            if (result == VIMBRA_OK) {
                *pdwGateway = gateway.tV4Addr.s_addr;
            }
            return result;
        });
}

s32 NetDelDefGateway(u32 byEthId) {
    return OnInterface(VIMBRA_HERE, byEthId, "NetDelDefGateway interface_name failed",
                       [](char* name) { return VimbraDelDefGateway(name, VIMBRA_FAMILY_IPV4); });
}

s32 NetAddOneIpRoute(u32 byEthId, TNetIpRouteParam* ptNetIpRouteParam) {
    return OnRoute(VIMBRA_HERE, byEthId, ptNetIpRouteParam, VimbraAddOneIpRoute);
}

s32 NetDelOneIpRoute(u32 byEthId, TNetIpRouteParam* ptNetIpRouteParam) {
    return OnRoute(VIMBRA_HERE, byEthId, ptNetIpRouteParam, VimbraDelOneIpRoute);
}

s32 NetModifyIpRouteMetric(TNetIpRouteParam* ptNetIpRouteParam) {
    if (ptNetIpRouteParam == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return OnRoute(VIMBRA_HERE, ptNetIpRouteParam->byEthId, ptNetIpRouteParam,
                   VimbraModifyIpRouteMetric);
}

s32 NetGetAllIpRoute(TNetAllIpRouteInfo* ptNetAllIpRouteInfo) {
    if (ptNetAllIpRouteInfo == nullptr) {
        VLOG_ERROR("ptNetAllIpRouteInfo is null");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    TVimbraAllIpRouteInfo listing = {};
    const s32 result = VimbraGetAllIpRoute(VIMBRA_FAMILY_IPV4, &listing);
    if (result != VIMBRA_OK) {
        return result;
    }
    const u32 count = std::min<u32>(listing.dwIpRouteNum, NET_ROUTE_MAX);
    ptNetAllIpRouteInfo->dwIpRouteNum = count;
    for (u32 i = 0; i < count; i++) {
        const TVimbraIpRouteParam& from = listing.tNetIpRouteParam[i];
        TNetIpRouteParam& to = ptNetAllIpRouteInfo->tNetIpRouteParam[i];
        to.dwDesIpNet = from.tDestIpNet.tV4Addr.s_addr;
        to.dwDesIpMask = from.dwPrefix;
        to.dwGwIpAdrs = from.tDestGateWay.tV4Addr.s_addr;
        to.dwRoutePri = from.dwRoutePri;
    }
    return VIMBRA_OK;
}
