#include <vimbra/net_ntpc.h>

#include "api/api_1x/legacy.hpp"

using namespace vimbra;

s32 VimBraNtpcStart(u32 dwServerIp, u32 dwSyncTimeInterval, VimBraNtpcSyncTimeCallBack ptCallBack) {
    return VimbraNtpcStart(Ipv4(dwServerIp), dwSyncTimeInterval, ptCallBack);
}

s32 VimBraNtpcStop() {
    return VimbraNtpcStop(VIMBRA_FAMILY_IPV4);
}

s32 NetCheckNtpcServer(u32 dwServerIp) {
    return VimbraNtpcSerCheck(Ipv4(dwServerIp));
}
