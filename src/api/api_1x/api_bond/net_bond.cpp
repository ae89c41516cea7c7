#include <vimbra/bond.h>
#include <vimbra/net_bond.h>

#include <cstdio>

#include "lib/base/memory.hpp"
#include "lib/base/text.hpp"
#include "lib/failure.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

constexpr size_t kTextSize = 128;
constexpr size_t kIds = sizeof(BondParam::adwBondId) / sizeof(u32);

// Allocates one of the record's texts; what is missing is said with the words for it.
bool Allocate(CallSite site, Buffer& buffer, const char* failed) {
    if (buffer.Allocate(kTextSize)) {
        return true;
    }
    VLOG_ERROR_AT(site, "%s", failed);
    return false;
}

char* Text(const Buffer& buffer) {
    return reinterpret_cast<char*>(buffer.Get());
}

char* Name(const Buffer& buffer, u32 number) {
    snprintf(Text(buffer), kTextSize, "eth%d", static_cast<int>(number));
    return Text(buffer);
}

}  // namespace

s32 NetBondStart(u32 dwBondMode, BondParam* ptBondParam) {
    const CallSite site = VIMBRA_HERE;
    if (ptBondParam == nullptr) {
        return VimbraBondStart(dwBondMode, nullptr);
    }
    if (ptBondParam->dwBondIdNum > kIds) {
        VLOG_ERROR("the bond param dwBondIdNum is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    Buffer path;
    Buffer members[kIds];
    Buffer active;
    TVimbraBondParam param = {};
    if (ptBondParam->pchBondPath != nullptr) {
        if (!Allocate(site, path, "BondParam.pchBondPath malloc error")) {
            return VIMBRA_ERR_GENERAL;
        }
        CopyText(Text(path), kTextSize, ptBondParam->pchBondPath);
        param.pchBondPath = Text(path);
    }
    for (u32 i = 0; i < ptBondParam->dwBondIdNum; i++) {
        if (!Allocate(site, members[i], "BondParam.achIface malloc error")) {
            return VIMBRA_ERR_GENERAL;
        }
        param.achIface[i] = Name(members[i], ptBondParam->adwBondId[i]);
    }
    if (!Allocate(site, active, "BondParam.pchActiveIface malloc error")) {
        return VIMBRA_ERR_GENERAL;
    }
    param.pchActiveIface = Name(active, ptBondParam->dwActiveId);
    param.dwIfaceNum = ptBondParam->dwBondIdNum;
    return VimbraBondStart(dwBondMode, &param);
}

s32 NetBondStop() {
    return VimbraBondStop();
}
