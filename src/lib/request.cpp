#include "lib/request.hpp"

namespace vimbra {

namespace {

s32 Fail(const CallSite& site, const char* format, Failure failure, s32 value) {
    if (Logs(VIMBRA_LEVEL_ERR)) {
        VimbraLogError(format, getpid(), site.function, site.line, value);
    }
    return failure == Failure::kPassOn ? value : VIMBRA_ERR_GENERAL;
}

}  // namespace

RequestBase::RequestBase(const CallSite& site, const RequestRule& rule, u32 bodySize)
    : site_(site), rule_(rule) {
    if (message_.Allocate(bodySize)) {
        return;
    }
    if (rule_.outOfMemory == RequestRule::OutOfMemory::kErrno) {
        LogErrnoAt(site_, rule_.outOfMemoryText);
    } else {
        VLOG_ERROR_AT(site_, "%s", rule_.outOfMemoryText);
    }
}

s32 RequestBase::Exchange(u32 type, void* reply, s32 replySize, bool hasResult) {
    const s32 transport =
        IpcExchange({"IpcApiSendAndRecv", __LINE__}, kDaemonPeer, type, message_, message_.Body(),
                    static_cast<s32>(message_.BodySize()), reply, replySize);
    if (transport != VIMBRA_OK) {
        return Fail(site_, rule_.transportFormat, rule_.transport, transport);
    }
    s32 result = VIMBRA_OK;
    if (hasResult) {
        memcpy(&result, reply, sizeof(result));
    }
    if (result != VIMBRA_OK) {
        return Fail(site_, rule_.refusalFormat, rule_.refusal, result);
    }
    return VIMBRA_OK;
}

}  // namespace vimbra
