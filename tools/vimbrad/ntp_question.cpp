#include "ntp_question.hpp"

#include <netlink/addr.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <utility>

#include "address_text.hpp"
#include "lib/base/fd.hpp"
#include "log.hpp"
#include "netlink.hpp"

namespace vimbrad {
namespace {

// For an answer, in seconds; the question is repeated every two. It is chronyd that counts them.
constexpr int kAnswer = 5;
// A chronyd that still runs then never ends.
constexpr u64 kHangMs = 10'000;
// A hundred years: whoever says more, or that it is no number, knows no time.
constexpr double kSecondsMax = 100 * 365.0 * 86'400;

}  // namespace

int NtpWayError(const TVimbraAddr& server) {
    const vimbra::Fd fd(socket, server.wSinFamily, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (!fd) {
        return errno;
    }
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    const NlAddr whole = MakeNlAddr(server, FullPrefix(server.wSinFamily));
    nl_addr_fill_sockaddr(whole.get(), reinterpret_cast<sockaddr*>(&address), &length);
    return connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), length) == 0 ? 0 : errno;
}

NtpQuestion::NtpQuestion(const Context& context, const TVimbraAddr& server, Answered answered)
    : answered_(std::move(answered)),
      files_(context.runDir),
      timer_(MakeTimer(context.loop, this)),
      child_(context.loop, {Command(server)},
             {[this](std::string_view line) { TakeLine(line); },
              [this](const ChildEnd& end) { TakeEnd(end); }}) {
    uv_timer_start(
        timer_.get(),
        [](uv_timer_t* timer) {
            LogWarning("chronyd does not end");
            static_cast<NtpQuestion*>(timer->data)->Finish({ETIMEDOUT});
        },
        kHangMs, 0);
}

// Directives on the command line keep chronyd from the machine's own configuration. It stays
// root, since its usual user may not exist.
std::vector<std::string> NtpQuestion::Command(const TVimbraAddr& server) const {
    return {"chronyd",
            "-Q",
            "-U",
            "-u",
            "root",
            "-t",
            std::to_string(kAnswer),
            "pidfile " + files_.PathOf("pid"),
            "bindcmdaddress /",
            "cmdport 0",
            "server " + TextOf(server) + " iburst maxsamples 1"};
}

void NtpQuestion::TakeLine(std::string_view line) {
    LogDebug("%.*s", static_cast<int>(line.size()), line.data());
    constexpr std::string_view kWrongBy = "System clock wrong by ";
    if (const size_t at = line.find(kWrongBy); at != line.npos) {
        double seconds = 0;
        const char* number = line.data() + at + kWrongBy.size();
        if (std::from_chars(number, line.data() + line.size(), seconds).ec == std::errc() &&
            std::abs(seconds) <= kSecondsMax) {
            offset_ = std::llround(seconds * kMicroseconds);
        }
    }
    timedOut_ = timedOut_ || line.ends_with("Timeout reached");
    lastLine_ = line;
}

void NtpQuestion::TakeEnd(const ChildEnd& end) {
    if (offset_ && end.status == 0 && end.signal == 0) {
        Finish({0, *offset_});
    } else if (timedOut_) {
        Finish({ETIMEDOUT});
    } else {
        LogWarning("chronyd ended with %s: %s", end.Text().c_str(), lastLine_.c_str());
        Finish({EIO});
    }
}

void NtpQuestion::Finish(const NtpOutcome& outcome) {
    // The call may end this object, and the function with it.
    const Answered answered = std::move(answered_);
    answered(outcome);
}

}  // namespace vimbrad
