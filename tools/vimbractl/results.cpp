#include "results.hpp"

#include <unistd.h>
#include <vimbra/ipc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace ctl {

namespace {

constexpr const char* kSocket = "/tmp/api_daemon";

// Several services share numbers: the words of each are told.
constexpr std::array kCodes = {
    ResultCode{-1, "general failure"},
    ResultCode{0, "success"},
    ResultCode{1101, "the request could not be written whole"},
    ResultCode{1102, "no reply within the time-out"},
    ResultCode{1103, "time-out while writing"},
    ResultCode{1105, "invalid argument"},
    ResultCode{1106, "missing callback"},
    ResultCode{1108, "DHCP client process not found"},
    ResultCode{1109, "the daemon refused to start the service"},
    ResultCode{1111, "address and gateway are not in the same subnet"},
    ResultCode{1201, "no interface of this number"},
    ResultCode{1301, "IPv4 class A; ping: no listener"},
    ResultCode{1302, "IPv4 class B"},
    ResultCode{1303, "IPv4 class C; ping: the daemon refused the stop"},
    ResultCode{1304, "IPv4 class D, multicast"},
    ResultCode{1305, "no IPv4 class; ping: no test under this user id"},
    ResultCode{1403, "traceroute: the daemon refused the stop"},
};

// The number behind the first of the markers that the text holds.
std::optional<s32> NumberAfter(std::string_view text, std::span<const std::string_view> markers) {
    for (const std::string_view marker : markers) {
        const size_t at = text.find(marker);
        if (at == std::string_view::npos) {
            continue;
        }
        const std::string_view rest = text.substr(at + marker.size());
        s32 number = 0;
        if (std::from_chars(rest.begin(), rest.end(), number).ec == std::errc()) {
            return number;
        }
    }
    return std::nullopt;
}

// The daemon's own code, which most calls only log.
std::optional<s32> DaemonCode(const std::vector<std::string>& errors) {
    constexpr std::array<std::string_view, 4> kMarkers = {
        "msg error num : ", "nErrid : ", "nErrId = ", "nErrid = "};
    for (const std::string& text : errors) {
        if (const auto code = NumberAfter(text, kMarkers)) {
            return code;
        }
    }
    return std::nullopt;
}

// A call that failed in the transport has words of the transport in its log.
bool TransportSpoke(const std::vector<std::string>& errors) {
    constexpr std::array<std::string_view, 9> kWords = {"fail to receive message!",
                                                        "received message's head is error!",
                                                        "wait time out for",
                                                        "write message failed",
                                                        "connect error",
                                                        "MakeAddrClient error!",
                                                        "select error",
                                                        "socket error",
                                                        "XMALLOC error"};
    return std::any_of(errors.begin(), errors.end(), [&kWords](const std::string& error) {
        return std::any_of(kWords.begin(), kWords.end(), [&error](std::string_view word) {
            return error.find(word) != std::string::npos;
        });
    });
}

// The daemon's own code where a call logs it in the words of the transport's result.
std::optional<s32> DaemonCodeInDisguise(const std::vector<std::string>& errors) {
    constexpr std::array<std::string_view, 3> kMarkers = {"nRet = ", "nRet : ", "msg error:"};
    if (TransportSpoke(errors)) {
        return std::nullopt;
    }
    for (const std::string& text : errors) {
        if (const auto code = NumberAfter(text, kMarkers)) {
            return code;
        }
    }
    return std::nullopt;
}

// What the transport gave back where the call only gives -1.
std::optional<s32> TransportResult(const std::vector<std::string>& errors) {
    constexpr std::array<std::string_view, 3> kMarkers = {
        "msg return num : ", "nRet = ", "nRet : "};
    for (const std::string& text : errors) {
        if (const auto result = NumberAfter(text, kMarkers)) {
            return result;
        }
    }
    return std::nullopt;
}

bool Holds(const std::vector<std::string>& errors, std::string_view text) {
    return std::any_of(errors.begin(), errors.end(), [text](const std::string& error) {
        return error.find(text) != std::string::npos;
    });
}

// Asked only where the library kept silent, as it must at log level 0.
bool DaemonAnswers() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    sockaddr_un address;
    socklen_t length;
    const bool answers = MakeAddrClient(fd, "api_daemon", &address, &length) == 0;
    close(fd);
    return answers;
}

// A failed system call's number: "connect error{errno(2):No such file or directory}".
std::optional<s32> ErrnoOf(const std::string& text) {
    constexpr std::array<std::string_view, 1> kMarkers = {"{errno("};
    return NumberAfter(text, kMarkers);
}

std::string Unreachable(const std::vector<std::string>& errors) {
    std::string message = std::string("the network daemon cannot be reached at ") + kSocket;
    for (const std::string& text : errors) {
        if (const auto error = ErrnoOf(text); error && text.starts_with("connect error{")) {
            return message + ": " + strerror(*error);
        }
    }
    return message;
}

std::string DaemonCodeText(s32 code) {
    std::string text = std::to_string(code);
    // The companion daemon hands on the kernel's errno; another daemon's numbers may be its own.
    if (const std::string_view words = strerror(code); code > 0 && !words.starts_with("Unknown")) {
        text += " (" + std::string(words) + ")";
    }
    return text;
}

Failure Make(ExitStatus status, std::string message, s32 result) {
    return {status, std::move(message), result, std::nullopt};
}

Failure Transport(s32 result, s32 transport, const std::vector<std::string>& errors) {
    if (transport > 0 && Holds(errors, "fail to receive message!")) {
        return Make(ExitStatus::kUnreachable,
                    "the network daemon's answer came to " + std::to_string(transport) +
                        " bytes, not to what was awaited",
                    result);
    }
    if (transport > 0 && Holds(errors, "received message's head is error!")) {
        return Make(ExitStatus::kUnreachable,
                    "the network daemon's answer has a header that does not fit", result);
    }
    return Make(ExitStatus::kUnreachable,
                "no exchange with the network daemon: " + Describe(transport), result);
}

ExitStatus StatusOf(s32 result) {
    switch (result) {
        case VIMBRA_ERR_PARAM:
        case VIMBRA_ERR_CALLBACK:
            return ExitStatus::kUsage;
        case VIMBRA_ERR_SEND:
        case VIMBRA_ERR_RECV_TIMEOUT:
        case VIMBRA_ERR_SEND_TIMEOUT:
            return ExitStatus::kUnreachable;
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

Failure Local(s32 result, const std::vector<std::string>& errors, std::string_view accepted) {
    std::string message = Describe(result);
    ExitStatus status = StatusOf(result);
    if (!errors.empty()) {
        const std::optional<s32> error = ErrnoOf(errors.front());
        message += ": " + (error ? strerror(*error) : errors.front());
        if (error == ENODEV) {
            status = ExitStatus::kNotSo;
        }
    }
    if (result == VIMBRA_ERR_PARAM && !accepted.empty()) {
        message += "; accepted: " + std::string(accepted);
    }
    return Make(status, std::move(message), result);
}

}  // namespace

std::span<const ResultCode> ResultCodes() {
    return kCodes;
}

std::string Describe(s32 code) {
    std::string text = std::to_string(code);
    for (const ResultCode& known : kCodes) {
        if (known.code == code) {
            text += " (" + std::string(known.meaning) + ")";
        }
    }
    return text;
}

Failure Refused(s32 result, s32 code) {
    return {ExitStatus::kRefused, "the network daemon refused: " + DaemonCodeText(code), result,
            code};
}

std::optional<Failure> Judge(s32 result, const std::vector<std::string>& errors,
                             std::string_view accepted) {
    if (result == VIMBRA_OK) {
        // A daemon that closes without answering makes a call succeed with an empty reply. The
        // library logs that, and it logs no error otherwise.
        if (Holds(errors, "fail to receive message!") ||
            Holds(errors, "wait time out for writing!")) {
            return Make(ExitStatus::kUnreachable, "the network daemon gave no answer", result);
        }
        return std::nullopt;
    }
    if (Holds(errors, "connect error{")) {
        return Make(ExitStatus::kUnreachable, Unreachable(errors), result);
    }
    if (const auto code = DaemonCode(errors)) {
        return Refused(result, *code);
    }
    if (const auto code = DaemonCodeInDisguise(errors)) {
        return Refused(result, *code);
    }
    if (const auto transport = TransportResult(errors)) {
        return Transport(result, *transport, errors);
    }
    // A bare exchange has no other result than the transport's own.
    if (result > 0 && TransportSpoke(errors)) {
        return Transport(result, result, errors);
    }
    if (errors.empty() && result == VIMBRA_ERR_GENERAL && !DaemonAnswers()) {
        return Make(ExitStatus::kUnreachable, Unreachable(errors), result);
    }
    return Local(result, errors, accepted);
}

}  // namespace ctl
