#include <vimbra/net_ping.h>

#include "api/api_1x/legacy.hpp"
#include "api/api_ping/ping_wire.hpp"
#include "lib/base/shared_function.hpp"
#include "lib/failure.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

// One for all legacy tests; listener threads read it while the application changes it.
SharedFunction<TNetPingCallBack> g_ping_callback;

int PrivatePingCallBack(s32 nResult, TVimbraPingCBInfo* ptInfo) {
    const TNetPingCallBack callback = g_ping_callback.Get();
    if (callback == nullptr) {
        return 0;
    }
    const u32 event = static_cast<u32>(nResult);
    if (event == kPingAnswer) {
        callback(nResult, ptInfo->nTtl, ptInfo->nTripTime, ptInfo->nSeq, ptInfo->nUserID, 0, 0);
    } else {
        callback(nResult, 0, 0, ptInfo->nSeq, ptInfo->nUserID, 0, 0);
    }
    return 0;
}

}  // namespace

s32 NetPingStart(u32 dwDestIP, TPingOpt* ptPingOpt, s32 nUserID, TNetPingCallBack ptCallBackFunc) {
    if (ptCallBackFunc == nullptr) {
        VLOG_ERROR("the ping callback function is null!");
        return RefuseArgument(__func__, VIMBRA_ERR_CALLBACK);
    }
    g_ping_callback.Set(ptCallBackFunc);
    return VimbraPingStart(Ipv4(dwDestIP), ptPingOpt, nUserID, PrivatePingCallBack);
}

s32 NetPingStop(s32 nUserID) {
    g_ping_callback.Set(nullptr);
    return VimbraPingStop(nUserID);
}
