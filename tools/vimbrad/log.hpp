// The daemon's log: one plain line per event, on standard error or to the system's log. A line that
// cannot be taken at once is counted and told later: nobody who reads too slowly stops the service.
#ifndef VIMBRA_TOOLS_VIMBRAD_LOG_HPP
#define VIMBRA_TOOLS_VIMBRAD_LOG_HPP

#include <vimbra/types.h>

namespace vimbrad {

// Numbered as the applications' log levels, so that one switch sets both.
enum class LogLevel : unsigned {
    kNone = 0,
    kAlert = 1,
    kError = 2,
    kWarning = 3,
    kInfo = 4,
    kDebug = 5
};

inline constexpr unsigned kLogLevelMax = static_cast<unsigned>(LogLevel::kDebug);

// What the operator wants to read; changes are told at this level whatever applications set.
void SetOperatorLogLevel(LogLevel level);
// What an application asks for.
void SetLogLevel(LogLevel level);
LogLevel CurrentLogLevel();

// From now on lines go to the system's log.
void LogToSyslog();

// Lines that nobody took and that have not been told of yet.
u64 LostLogLines();

void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogWarning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A change that was made, and one that was refused.
void LogChange(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogRefused(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vimbrad

#endif
