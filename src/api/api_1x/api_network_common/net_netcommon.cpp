#include <vimbra/common.h>
#include <vimbra/net_common.h>

#include "api/api_1x/legacy.hpp"

using namespace vimbra;

namespace {

constexpr char kNamingFailed[] = "interface_name failed";

}  // namespace

s32 NetInit() {
    return VimbraInit();
}

s32 NetLogSwitch(u32 dwSwitch) {
    return VimbraLogSwitch(dwSwitch);
}

s32 NetInterfaceShutdown(u32 byEthId) {
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed, VimbraIfaceShutdown);
}

s32 NetInterfaceNoShutdown(u32 byEthId) {
    return OnInterface(VIMBRA_HERE, byEthId, kNamingFailed, VimbraIfaceNoShutdown);
}

s32 NetGetEthState(s32 nEthNum, u32* pdwFlag) {
    return OnInterface(VIMBRA_HERE, static_cast<u32>(nEthNum), kNamingFailed,
                       [=](char* name) { return VimbraGetIfaceState(name, pdwFlag); });
}

s32 NetCheckTheSameNet(u32 dwIpAddr, u32 dwMask, u32 dwGateway) {
    // Kept: the mask is a prefix length; the test is NetCheckTheSameNet.TakesThePrefixLengthAsMask.
    return VimbraCheckIsSameNet(Ipv4(dwIpAddr), dwMask, Ipv4(dwGateway));
}
