// What became of a call of the library, in words and as an exit status.
#ifndef VIMBRA_TOOLS_VIMBRACTL_FAILURES_HPP
#define VIMBRA_TOOLS_VIMBRACTL_FAILURES_HPP

#include <vimbra/failure.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exit_status.hpp"

namespace ctl {

// "1105 (invalid argument)"; a number that is not the library's stands alone.
std::string Describe(s32 code);

// Why a command failed.
struct Failure {
    ExitStatus status = ExitStatus::kFailed;
    std::string message;
    std::optional<s32> result;  // of the library's call, if one was made
    std::optional<s32> daemon;  // the network daemon's own code, if it refused
};

// The daemon's refusal of a request, with its own code.
Failure Refused(s32 result, s32 code);

// What became of a call, from its result and the failure that the library noted; `errors` are the
// words that it logged meanwhile. Nothing means that the call did what it was asked. `accepted` says
// what the arguments may be, for a call that refuses one.
std::optional<Failure> Judge(s32 result, const TVimbraFailure& noted,
                             const std::vector<std::string>& errors, std::string_view accepted);

}  // namespace ctl

#endif
