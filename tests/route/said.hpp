// Lines under the information tag come from two levels; only the system log's priority tells them
// apart.
#ifndef VIMBRA_TESTS_ROUTE_SAID_HPP
#define VIMBRA_TESTS_ROUTE_SAID_HPP

#include <syslog.h>

#include <algorithm>
#include <string_view>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

inline constexpr int kDebugPriority = LOG_LOCAL6 | LOG_DEBUG;
inline constexpr int kInfoPriority = LOG_LOCAL6 | LOG_INFO;

// Was this said, on standard output, and in the system log at this priority?
inline bool Said(const bed::Capture& log, int priority, std::string_view function,
                 std::string_view text) {
    const auto lines = log.Syslog();
    return log.Has(bed::Kind::kPrint, function, text, bed::Where::kStdout) &&
           std::any_of(lines.begin(), lines.end(), [&](const bed::LogLine& line) {
               return line.kind == bed::Kind::kPrint && line.priority == priority &&
                      line.function == function && line.text == text;
           });
}

}  // namespace vimbra::tests

#endif
