#include "lib/failure.hpp"

#include "lib/base/thread_local.hpp"
#include "lib/log.hpp"

namespace vimbra {

namespace {

VIMBRA_THREAD_LOCAL constinit thread_local TVimbraFailure t_failure = {};

}  // namespace

void NoteFailure(const char* call, EVimbraFailureStep step, int error) {
    t_failure = {step, 0, error, call};
}

void NoteRefusal(const char* call, s32 daemonCode) {
    t_failure = {VIMBRA_FAILURE_REFUSAL, daemonCode, 0, call};
}

void NameFailure(const char* call) {
    t_failure.pchCall = call;
}

IgnoredFailure::IgnoredFailure() : before_(t_failure) {}

IgnoredFailure::~IgnoredFailure() {
    t_failure = before_;
}

void FailedCallAt(CallSite site, const char* step) {
    LogErrnoAt(site, step);
    NoteFailure(site.function, VIMBRA_FAILURE_LOCAL, errno);
}

s32 RefuseArgument(const char* call, s32 result) {
    NoteFailure(call, VIMBRA_FAILURE_ARGUMENT);
    return result;
}

}  // namespace vimbra

s32 VimbraLastFailure(TVimbraFailure* ptFailure) {
    if (ptFailure == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    TVimbraFailure& last = vimbra::t_failure;
    const bool isThere = last.eStep != VIMBRA_FAILURE_NONE;
    *ptFailure = last;
    if (!isThere) {
        ptFailure->pchCall = "";
    }
    last = {};
    return isThere ? VIMBRA_OK : VIMBRA_ERR_GENERAL;
}

const char* VimbraResultText(s32 nResult) {
    switch (nResult) {
        case VIMBRA_OK:
            return "success";
        case VIMBRA_ERR_GENERAL:
            return "general failure";
        case VIMBRA_ERR_SEND:
            return "the request could not be written whole";
        case VIMBRA_ERR_RECV_TIMEOUT:
            return "no reply within the time-out";
        case VIMBRA_ERR_SEND_TIMEOUT:
            return "time-out while writing";
        case VIMBRA_ERR_PARAM:
            return "invalid argument";
        case VIMBRA_ERR_CALLBACK:
            return "missing callback";
        case VIMBRA_ERR_NO_PROCESS:
            return "DHCP client process not found";
        case VIMBRA_ERR_REFUSED:
            return "the daemon refused to start the service";
        case VIMBRA_ERR_NOT_SAME_NET:
            return "address and gateway are not in the same subnet";
        case VIMBRA_ERR_IFACE_NUMBER:
            return "no interface of this number";
        case VIMBRA_ERR_PING_THREAD:
            return "IPv4 class A; ping: no listener";
        case VIMBRA_IP_CLASS_B:
            return "IPv4 class B";
        case VIMBRA_ERR_PING_STOP:
            return "IPv4 class C; ping: the daemon refused the stop";
        case VIMBRA_IP_CLASS_D:
            return "IPv4 class D, multicast";
        case VIMBRA_ERR_PING_UNKNOWN:
            return "no IPv4 class; ping: no test under this user id";
        case VIMBRA_ERR_TRACE_STOP:
            return "traceroute: the daemon refused the stop";
        default:
            return "unknown result";
    }
}
