// Default gateways, of the main table and of numbered ones.
#include "api/api_route/api_route/api_route.hpp"
#include "api/api_route/api_route/route_request.hpp"
#include "lib/argument.hpp"
#include "lib/base/text.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr u32 kGatewayTableEnd = 255;  // the kernel's own table of local addresses

s32 SendGateway(CallSite site, const char* name, const TVimbraAddr& gateway, const u32* table) {
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

s32 FetchGateway(CallSite site, const char* name, u16 family, TVimbraAddr* gateway,
                 const u32* table) {
    TableRequest<FamilyIfaceBody> request(site, kGatewayRule, table);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    request->wSinFamily = family;
    if (name != nullptr) {
        // Kept: all 16 bytes of the caller's buffer, whatever the name's length; the test is
        // RouteTest.GatewayGetSendsAll16BytesOfTheBuffer.
        memcpy(request->achIfaceName, name, sizeof(request->achIfaceName));
    }
    TIpcGateWay reply = {};
    const s32 result = request.Send(kGatewayGet, reply);
    if (result == VIMBRA_OK) {
        *gateway = reply.tIpaddr;
    }
    return result;
}

s32 SendGatewayDel(CallSite site, const char* name, u16 family, const u32* table) {
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

// No name stands for the interface that the daemon finds.
bool CheckGatewayName(CallSite site, const char* name) {
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

bool CheckGatewayFamily(CallSite site, u16 family) {
    if (!IsOneFamily(family)) {
        VLOG_ERROR_AT(site, "wSinFamily %d is invalid!", family);
        return false;
    }
    VLOG_PRINT_AT(site, "wSinFamily is %d!", family);
    return true;
}

bool CheckGatewayTable(CallSite site, u32 table) {
    if (table == 0 || table >= kGatewayTableEnd) {
        VLOG_ERROR_AT(site, "table id %d is invalid", static_cast<int>(table));
        return false;
    }
    return true;
}

bool CheckGatewaySet(CallSite site, const char* name, const TVimbraAddr& gateway) {
    if (!CheckGatewayName(site, name)) {
        return false;
    }
    if (!IsOneFamily(gateway.wSinFamily)) {
        VLOG_ERROR_AT(site, "tGateWay.wSinFamily %d is invalid!", gateway.wSinFamily);
        return false;
    }
    return true;
}

bool CheckGatewayGet(CallSite site, const char* name, u16 family, const TVimbraAddr* gateway) {
    if (!CheckGatewayName(site, name)) {
        return false;
    }
    if (gateway == nullptr) {
        VLOG_ERROR_AT(site, "ptGateWay is NULL!");
        return false;
    }
    return CheckGatewayFamily(site, family);
}

bool CheckGatewayDel(CallSite site, const char* name, u16 family) {
    return CheckGatewayName(site, name) && CheckGatewayFamily(site, family);
}

// A call whose arguments were looked at; `request` is the name under which its failure is logged.
template <typename Send>
s32 SendIf(bool isRight, CallSite site, const char* request, Send send) {
    if (!isRight) {
        return RefuseArgument(site.function, VIMBRA_ERR_PARAM);
    }
    return LogResult(site, request, send());
}

}  // namespace

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

s32 VimbraSetDefGateway(char* pchIfaceName, TVimbraAddr tGateWay) {
    const bool isRight = CheckGatewaySet(VIMBRA_HERE, pchIfaceName, tGateWay);
    return SendIf(isRight, VIMBRA_HERE, "ApicGateWaySet",
                  [&] { return ApicGateWaySet(pchIfaceName, tGateWay); });
}

s32 VimbraSetDefGatewayToTable(char* pchIfaceName, TVimbraAddr tGateWay, u32 dwTableId) {
    const bool isRight = CheckGatewaySet(VIMBRA_HERE, pchIfaceName, tGateWay) &&
                         CheckGatewayTable(VIMBRA_HERE, dwTableId);
    return SendIf(isRight, VIMBRA_HERE, "ApicGateWaySet",
                  [&] { return ApicGateWaySetToTable(pchIfaceName, tGateWay, dwTableId); });
}

s32 VimbraGetDefGateway(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay) {
    const bool isRight = CheckGatewayGet(VIMBRA_HERE, pchIfaceName, wSinFamily, ptGateWay);
    return SendIf(isRight, VIMBRA_HERE, "ApicGateWayGet",
                  [&] { return ApicGateWayGet(pchIfaceName, wSinFamily, ptGateWay); });
}

s32 VimbraGetDefGatewayFromTable(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay,
                                 u32 dwTableId) {
    const bool isRight = CheckGatewayGet(VIMBRA_HERE, pchIfaceName, wSinFamily, ptGateWay) &&
                         CheckGatewayTable(VIMBRA_HERE, dwTableId);
    return SendIf(isRight, VIMBRA_HERE, "ApicGateWayGet", [&] {
        return ApicGateWayGetFromTable(pchIfaceName, wSinFamily, ptGateWay, dwTableId);
    });
}

s32 VimbraDelDefGateway(char* pchIfaceName, u16 wSinFamily) {
    const bool isRight = CheckGatewayDel(VIMBRA_HERE, pchIfaceName, wSinFamily);
    return SendIf(isRight, VIMBRA_HERE, "ApicGateWayDel",
                  [&] { return ApicGateWayDel(pchIfaceName, wSinFamily); });
}

s32 VimbraDelDefGatewayFromTable(char* pchIfaceName, u16 wSinFamily, u32 dwTableId) {
    const bool isRight = CheckGatewayDel(VIMBRA_HERE, pchIfaceName, wSinFamily) &&
                         CheckGatewayTable(VIMBRA_HERE, dwTableId);
    return SendIf(isRight, VIMBRA_HERE, "ApicGateWayDel",
                  [&] { return ApicGateWayDelFromTable(pchIfaceName, wSinFamily, dwTableId); });
}
