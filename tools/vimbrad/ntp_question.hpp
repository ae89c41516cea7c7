// One question to an NTP server: how far our clock is off.
#ifndef VIMBRA_TOOLS_VIMBRAD_NTP_QUESTION_HPP
#define VIMBRA_TOOLS_VIMBRAD_NTP_QUESTION_HPP

#include <vimbra/addr.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "child.hpp"
#include "private_dir.hpp"
#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

inline constexpr s64 kMicroseconds = 1'000'000;

struct NtpOutcome {
    int error = 0;
    // What our clock lacks, in microseconds.
    s64 offset = 0;
};

// Why nothing can be sent to a server, as far as the kernel knows without trying; 0 when it can.
int NtpWayError(const TVimbraAddr& server);

// A run of chronyd that touches neither the clock nor any file but those of its own directory.
class NtpQuestion {
 public:
    using Answered = std::function<void(const NtpOutcome&)>;

    // Throws Refusal when chronyd cannot be run. `answered` is called from the loop, once; it may
    // destroy this.
    NtpQuestion(const Context& context, const TVimbraAddr& server, Answered answered);

 private:
    std::vector<std::string> Command(const TVimbraAddr& server) const;
    void TakeLine(std::string_view line);
    void TakeEnd(const ChildEnd& end);
    void Finish(const NtpOutcome& outcome);

    Answered answered_;
    PrivateDir files_;
    std::optional<s64> offset_;
    bool timedOut_ = false;
    std::string lastLine_;
    UvHandle<uv_timer_t> timer_;
    Child child_;
};

}  // namespace vimbrad

#endif
