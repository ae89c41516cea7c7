#include "lib/ipc/request.hpp"

namespace vimbra {

namespace {

// Whose lines the exchange's own are: of the call that applications know.
constexpr char kTransport[] = "IpcApiSendAndRecv";

s32 Fail(CallSite site, const char* format, Failure failure, s32 value) {
    if (Logs(VIMBRA_LEVEL_ERR)) {
        VimbraLogError(format, getpid(), site.function, site.line, value);
    }
    return failure == Failure::kPassOn ? value : VIMBRA_ERR_GENERAL;
}

}  // namespace

RequestBase::RequestBase(CallSite site, const RequestRule& rule, u32 bodySize)
    : site_(site), rule_(rule) {
    if (message_.Allocate(bodySize)) {
        return;
    }
    NoteFailure(site_.function, VIMBRA_FAILURE_LOCAL, ENOMEM);
    switch (bodySize > 0 ? rule_.outOfMemory : RequestRule::OutOfMemory::kTransport) {
        case RequestRule::OutOfMemory::kErrno:
            LogErrnoAt(site_, rule_.outOfMemoryText);
            break;
        case RequestRule::OutOfMemory::kPlain:
            VLOG_ERROR_AT(site_, "%s", rule_.outOfMemoryText);
            break;
        case RequestRule::OutOfMemory::kTransport:
            LogErrnoAt({kTransport, __LINE__}, kNoMemory);
            Fail(site_, rule_.transportFormat, rule_.transport, VIMBRA_ERR_GENERAL);
            break;
    }
}

// A reply that still holds what stands for none has not come.
void RequestBase::NoteResult(s32 result) const {
    if (result == rule_.unanswered) {
        NoteFailure(site_.function, VIMBRA_FAILURE_ANSWER);
    } else {
        NoteRefusal(site_.function, result);
    }
}

s32 RequestBase::Exchange(u32 type, void* reply, s32 replySize, bool hasResult) {
    const s32 transport =
        IpcExchange({kTransport, __LINE__}, kDaemonPeer, type, message_, reply, replySize);
    if (transport != VIMBRA_OK) {
        NameFailure(site_.function);
        return Fail(site_, rule_.transportFormat, rule_.transport, transport);
    }
    s32 result = VIMBRA_OK;
    if (hasResult) {
        memcpy(&result, reply, sizeof(result));
    }
    if (result != VIMBRA_OK) {
        NoteResult(result);
        return Fail(site_, rule_.refusalFormat, rule_.refusal, result);
    }
    return VIMBRA_OK;
}

}  // namespace vimbra
