// The library's result codes in words, and what became of a call.
#ifndef VIMBRA_TOOLS_VIMBRACTL_RESULTS_HPP
#define VIMBRA_TOOLS_VIMBRACTL_RESULTS_HPP

#include <vimbra/types.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exit_status.hpp"

namespace ctl {

struct ResultCode {
    s32 code;
    const char* meaning;
};

// All codes of the library, in ascending order.
std::span<const ResultCode> ResultCodes();

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

// What became of a call, from its result and the error texts that the library logged during it.
// Nothing means that the call did what it was asked. `accepted` says what the arguments may be, for
// a call that refuses one.
std::optional<Failure> Judge(s32 result, const std::vector<std::string>& errors,
                             std::string_view accepted);

}  // namespace ctl

#endif
