// The daemon's log: one plain line per event on standard error.
#ifndef VIMBRA_VIMBRAD_LOG_HPP
#define VIMBRA_VIMBRAD_LOG_HPP

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

void SetLogLevel(LogLevel level);

void LogError(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogWarning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vimbrad

#endif
