#include <vimbra/net_ip_conflict.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "api/api_network_common/api_ip_conflict.hpp"
#include "lib/base/shared_function.hpp"

using namespace vimbra;

namespace {

constexpr u32 kNoNumber = 65535;

// Both are set by the application's threads and read by the listener's.
SharedFunction<TIpConflictCallBack> ip_conflict_callback;
SharedFunction<TIpConflictCallBackEx> ip_conflict_callback_ex;

u32 NumberOf(const char* name) {
    for (const char* prefix : {"eth", "wlan"}) {
        const char* found = strstr(name, prefix);
        if (found != nullptr) {
            return static_cast<u32>(strtol(found + strlen(prefix), nullptr, 10));
        }
    }
    return kNoNumber;
}

// To the plain callback, if there is one. The watch tells of conflicts alone.
void PrivateIpConflictCallBack(EVimbraConflictType eType, TVimbraIfaceMac* ptIfaceMac,
                               TVimbraAddr* ptIpAddr, const char*) {
    const TIpConflictCallBack callback = ip_conflict_callback.Get();
    if (callback != nullptr) {
        callback(eType, ptIfaceMac->abyMacAddr, ptIpAddr->tV4Addr.s_addr);
    }
}

// To the extended callback: 0, or -1 when there is none.
int PrivateIpConflictCallBackEx(EVimbraConflictType eType, TVimbraIfaceMac* ptIfaceMac,
                                TVimbraAddr* ptIpAddr, const char* pchIfaceName) {
    const TIpConflictCallBackEx callback = ip_conflict_callback_ex.Get();
    if (callback == nullptr) {
        return -1;
    }
    TNetConflictInfo info = {};
    memcpy(info.abyMacAddr, ptIfaceMac->abyMacAddr, sizeof(info.abyMacAddr));
    if (eType == VIMBRA_IP_CONFLICT) {
        info.dwIpaddr = ptIpAddr->tV4Addr.s_addr;
    }
    info.byEthId = NumberOf(pchIfaceName);
    // Kept: always as an IP conflict; the test is
    // Legacy.ExtendedCallbackGoesFirstAndAlwaysSaysIpConflict.
    callback(VIMBRA_IP_CONFLICT, &info);
    return 0;
}

// What the watch is started with. It knows no interface name.
void TellPlain(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    PrivateIpConflictCallBack(type, mac, address, nullptr);
}

}  // namespace

vimbra_bool NetIpOnceConflicted() {
    return 0;
}

s32 NetIpConflictCallBackReg(TIpConflictCallBack ptFunc) {
    ip_conflict_callback.Set(ptFunc);
    return VimbraIpConflictCheckStart(VIMBRA_FAMILY_IPV4, TellPlain);
}

s32 NetIpConflictCallBackRegEx(TIpConflictCallBackEx ptFunc) {
    ip_conflict_callback_ex.Set(ptFunc);
    SetConflictFilter(PrivateIpConflictCallBackEx);
    return VimbraIpConflictCheckStart(VIMBRA_FAMILY_IPV4, TellPlain);
}
