#include "api/api_dhcps/api_dhcps.hpp"

#include <vimbra/common.h>
#include <vimbra/iface.h>

#include "api/api_dhcps/dhcps_wire.hpp"
#include "lib/argument.hpp"
#include "lib/base/text.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid : %d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

constexpr RequestRule kStateRule = {
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
};

// Kept: the yen sign, which was a backslash once; the test is Dhcps.LegacyStopAll.
constexpr RequestRule kStopAllRule = {
    VIMBRA_TAG_ERR "send and recv msg error:%d!¥n",
    VIMBRA_TAG_ERR "send and recv msg error:%d!¥n",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

bool CheckFamily(CallSite site, u16 family) {
    if (IsOneFamily(family)) {
        return true;
    }
    VLOG_ERROR_AT(site, "wSinFamily %d is invalid!", family);
    return false;
}

bool HasFamily(const TVimbraDhcpsInfo& info, u16 family) {
    return info.tIfaceIp.wSinFamily == family || info.tIpPoolStart.wSinFamily == family ||
           info.tIpPoolEnd.wSinFamily == family || info.tRoutes.wSinFamily == family;
}

}  // namespace

s32 ApicDhcpsStart(const char* pchIfaceName, u16 wSinFamily,
                   const TVimbraDhcpsInfo* ptDhcpsConfInfo) {
    return SendRequest<DhcpsStartBody>(VIMBRA_HERE, kRule, kDhcpsStart, [&](auto& body) {
        CopyField(body.achIfaceName, pchIfaceName);
        body.wSinFamily = wSinFamily;
        body.tDhcpsInfo = *ptDhcpsConfInfo;
    });
}

s32 ApicDhcpsStop(const char* pchIfaceName, u16 wSinFamily) {
    return SendRequest<DhcpsIfaceBody>(VIMBRA_HERE, kRule, kDhcpsStop, [&](auto& body) {
        CopyField(body.achIfaceName, pchIfaceName);
        body.wSinFamily = wSinFamily;
    });
}

s32 ApicDhcpsGetState(const char* pchIfaceName, u16 wSinFamily, TVimbraDhcpsState* ptState) {
    Request<DhcpsIfaceBody> request(VIMBRA_HERE, kStateRule);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    CopyField(request->achIfaceName, pchIfaceName);
    request->wSinFamily = wSinFamily;
    TVimbraDhcpsState state = {};
    const s32 result = request.SendForRecord(kDhcpsState, state);
    if (result == VIMBRA_OK) {
        *ptState = state;
    }
    return result;
}

s32 ApicDhcpsStopAll() {
    Request<NoBody> request(VIMBRA_HERE, kStopAllRule);
    return request ? request.Send(kDhcpsStopAll) : VIMBRA_ERR_GENERAL;
}

s32 CheckDhcpsParam(char* pchIfaceName, u16 wSinFamily, const TVimbraDhcpsInfo* ptDhcpsConfInfo) {
    // A name that is too long is reported below, where the interface is asked for.
    if (ptDhcpsConfInfo == nullptr || pchIfaceName == nullptr) {
        VLOG_ERROR("ptDhcpsConfInfo || pchIfaceName is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckFamily(VIMBRA_HERE, wSinFamily)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    const TVimbraDhcpsInfo& info = *ptDhcpsConfInfo;
    if (!HasFamily(info, wSinFamily)) {
        VLOG_ERROR("the wSinFamily is differern TVimbraDhcpsInfo wSinFamily!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (VimbraCheckIsSameNet(info.tIpPoolStart, info.dwIpPoolPrefix, info.tIpPoolEnd) !=
        VIMBRA_OK) {
        VLOG_ERROR("the pool start and the pool end ip not the same net!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (VimbraCheckIsSameNet(info.tIpPoolStart, info.dwIpPoolPrefix, info.tRoutes) != VIMBRA_OK) {
        VLOG_ERROR("the pool start and the route ip not the same net!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    TVimbraIfaceAllIp addresses = {};
    if (VimbraIfaceGetIp(pchIfaceName, wSinFamily, &addresses) != VIMBRA_OK) {
        VLOG_ERROR("VimbraIfaceGetIp error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraDhcpsStart(char* pchIfaceName, u16 wSinFamily, TVimbraDhcpsInfo* ptDhcpsConfInfo) {
    if (CheckDhcpsParam(pchIfaceName, wSinFamily, ptDhcpsConfInfo) != VIMBRA_OK) {
        VLOG_ERROR("CheckDhcpsParam error!");
        return VIMBRA_ERR_PARAM;  // What is noted may be the daemon's refusal of its question.
    }
    if (ApicDhcpsStart(pchIfaceName, wSinFamily, ptDhcpsConfInfo) != VIMBRA_OK) {
        VLOG_ERROR("DHCPS client start error!");
        return VIMBRA_ERR_REFUSED;
    }
    return VIMBRA_OK;
}

s32 VimbraDhcpsStop(char* pchIfaceName, u16 wSinFamily) {
    if (!IsIfaceName(pchIfaceName)) {
        VLOG_ERROR("pchIfaceName is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckFamily(VIMBRA_HERE, wSinFamily)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ApicDhcpsStop(pchIfaceName, wSinFamily) != VIMBRA_OK) {
        VLOG_ERROR("DHCPS client stop all eth error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraDhcpsGetState(char* pchIfaceName, u16 wSinFamily, TVimbraDhcpsState* ptNetdhcpsState) {
    if (!IsIfaceName(pchIfaceName) || ptNetdhcpsState == nullptr) {
        VLOG_ERROR("pchIfaceName or ptNetdhcpsState is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckFamily(VIMBRA_HERE, wSinFamily)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ApicDhcpsGetState(pchIfaceName, wSinFamily, ptNetdhcpsState) != VIMBRA_OK) {
        VLOG_ERROR("DHCPS client get interface %s state error!", pchIfaceName);
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}
