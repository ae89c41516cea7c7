#include "api/api_webs/api_webs.hpp"

#include "api/api_webs/webs_wire.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

namespace {

constexpr RequestRule kRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet = %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nErrid = %d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

}  // namespace

s32 ApicWebEnable(s32 port) {
    return SendRequest<WebEnableBody>(VIMBRA_HERE, kRule, kWebEnable,
                                      [&](auto& body) { body.port = port; });
}

s32 ApicWebDisable() {
    Request<NoBody> request(VIMBRA_HERE, kRule);
    return request ? request.Send(kWebDisable) : VIMBRA_ERR_GENERAL;
}

s32 VimbraWebsEnable(s32 port) {
    const s32 result = ApicWebEnable(port);
    if (result != VIMBRA_OK) {
        VLOG_ERROR("web server start fault:ret=%d", result);
    }
    return result;
}

s32 VimbraWebsDisable() {
    const s32 result = ApicWebDisable();
    if (result != VIMBRA_OK) {
        VLOG_ERROR("web server stop fault:ret=%d", result);
    }
    return result;
}
