#include <vimbra/net_traceroute.h>

#include "api/api_1x/legacy.hpp"
#include "api/api_traceroute/traceroute_wire.hpp"
#include "lib/base/shared_function.hpp"
#include "lib/failure.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

// One for all legacy traces; listener threads read it while the application changes it.
SharedFunction<TNetTracerouteCallBack> g_traceroute_callback;

int PrivateTracerouteCallBack(s32 nResult, TVimbraTracerouteCBInfo* ptInfo) {
    const TNetTracerouteCallBack callback = g_traceroute_callback.Get();
    if (callback != nullptr) {
        callback(nResult, static_cast<s32>(ptInfo->dwTtl), ptInfo->nTripTime,
                 ptInfo->tIpaddr.tV4Addr.s_addr, nullptr, ptInfo->nUserId, ptInfo->nErrType,
                 ptInfo->nErrCode);
    }
    return 0;
}

}  // namespace

s32 NetTracerouteStart(TTraceroutePara* ptTraceroutePara, s32 nUserID,
                       TNetTracerouteCallBack ptCallBackFunc) {
    if (ptCallBackFunc == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    g_traceroute_callback.Set(ptCallBackFunc);
    if (ptTraceroutePara == nullptr) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    TVimbraTracerouteOpt option = {ptTraceroutePara->dwTtl};
    return VimbraTracerouteStart(Ipv4(ptTraceroutePara->dwDstIp), &option, nUserID,
                                 PrivateTracerouteCallBack);
}

s32 NetTracerouteStop(s32 nUserID) {
    g_traceroute_callback.Set(nullptr);
    return VimbraTracerouteStop(nUserID);
}
