// Which interface has the default route, the first that works.
#include "api/api_route/api_route/api_route.hpp"
#include "api/api_route/api_route/route_request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

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

s32 VimbraSetNetworkPriority(TVimbraNetworkPrioInfo* ptConfig) {
    if (ptConfig == nullptr) {
        VLOG_ERROR("params is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicGateWaySet", ApicPrioritySet(ptConfig));
}

s32 VimbraGetNetworkPriority(TVimbraNetworkPrioInfo* ptInfo) {
    if (ptInfo == nullptr) {
        VLOG_ERROR("params is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return LogResult(VIMBRA_HERE, "ApicGateWaySet", ApicPriorityGet(ptInfo));
}
