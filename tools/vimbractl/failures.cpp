#include "failures.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ctl {

namespace {

constexpr const char* kSocket = "/tmp/api_daemon";

std::string DaemonCodeText(s32 code) {
    std::string text = std::to_string(code);
    // The companion daemon hands on the kernel's errno; another daemon's numbers may be its own.
    if (const std::string_view words = strerror(code); code > 0 && !words.starts_with("Unknown")) {
        text += " (" + std::string(words) + ")";
    }
    return text;
}

// A daemon that closes without an answer has done what it was asked, as daemons in the field do it:
// the call succeeds and notes nothing, since an application that asks after its next failure would
// be told of this silence. Who typed a command wants to know of it all the same; only the log says it.
bool WasSilent(const std::vector<std::string>& errors) {
    return std::ranges::any_of(errors, [](const std::string& error) {
        return error.starts_with("fail to receive message!") ||
               error.starts_with("wait time out for writing!");
    });
}

Failure Unreachable(s32 result, const std::string& why, s32 error) {
    const std::string reason = error != 0 ? std::string(": ") + strerror(error) : "";
    return {ExitStatus::kUnreachable, why + reason, result, std::nullopt};
}

ExitStatus StatusOf(s32 result) {
    switch (result) {
        case VIMBRA_ERR_PARAM:
        case VIMBRA_ERR_CALLBACK:
            return ExitStatus::kUsage;
        case VIMBRA_ERR_REFUSED:
            return ExitStatus::kRefused;
        case VIMBRA_ERR_NO_PROCESS:
        case VIMBRA_ERR_NOT_SAME_NET:
        case VIMBRA_ERR_IFACE_NUMBER:
            return ExitStatus::kNotSo;
        default:
            return ExitStatus::kFailed;
    }
}

// Found out in this process.
Failure Local(s32 result, const TVimbraFailure& noted, const std::vector<std::string>& errors,
              std::string_view accepted) {
    std::string message = Describe(result);
    ExitStatus status = StatusOf(result);
    if (noted.nErrno != 0) {
        message += std::string(": ") + strerror(noted.nErrno);
    } else if (!errors.empty()) {
        message += ": " + errors.front();
    }
    if (noted.nErrno == ENODEV) {
        status = ExitStatus::kNotSo;
    }
    if (noted.eStep == VIMBRA_FAILURE_ARGUMENT && status == ExitStatus::kFailed) {
        status = ExitStatus::kUsage;
    }
    if (result == VIMBRA_ERR_PARAM && !accepted.empty()) {
        message += "; accepted: " + std::string(accepted);
    }
    return {status, std::move(message), result, std::nullopt};
}

}  // namespace

std::string Describe(s32 code) {
    const std::string_view words = VimbraResultText(code);
    const bool isKnown = words != "unknown result";
    return std::to_string(code) + (isKnown ? " (" + std::string(words) + ")" : "");
}

Failure Refused(s32 result, s32 code) {
    return {ExitStatus::kRefused, "the network daemon refused: " + DaemonCodeText(code), result,
            code};
}

std::optional<Failure> Judge(s32 result, const TVimbraFailure& noted,
                             const std::vector<std::string>& errors, std::string_view accepted) {
    if (result == VIMBRA_OK) {
        if (WasSilent(errors)) {
            return Unreachable(result, "the network daemon gave no answer", 0);
        }
        return std::nullopt;
    }
    switch (noted.eStep) {
        case VIMBRA_FAILURE_NO_DAEMON:
        case VIMBRA_FAILURE_NO_PERMISSION:
            return Unreachable(result,
                               std::string("the network daemon cannot be reached at ") + kSocket,
                               noted.nErrno);
        case VIMBRA_FAILURE_SENDING:
            return Unreachable(result, "the network daemon did not take the whole request",
                               noted.nErrno);
        case VIMBRA_FAILURE_TIMEOUT:
            return Unreachable(result, "the network daemon did not answer in time", noted.nErrno);
        case VIMBRA_FAILURE_ANSWER:
            return Unreachable(result, "the network daemon gave no whole answer", noted.nErrno);
        case VIMBRA_FAILURE_REFUSAL:
            return Refused(result, noted.nDaemonCode);
        default:
            return Local(result, noted, errors, accepted);
    }
}

}  // namespace ctl
