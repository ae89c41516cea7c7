// Log lines of the library itself: tag, process id, function and line are filled in here.
#ifndef VIMBRA_LIB_LOG_HPP
#define VIMBRA_LIB_LOG_HPP

#include <unistd.h>
#include <vimbra/log.h>

#include <cerrno>
#include <cstring>

namespace vimbra {

// Where a log line comes from. Shared code takes one from its caller, so that the line names the
// operation that the application knows and not the mechanism behind it.
struct CallSite {
    const char* function;
    int line;
};

// Does the level let such a line pass?
inline bool Logs(u32 level) {
    return __atomic_load_n(&g_nVimbraLogSwitch, __ATOMIC_RELAXED) >= level;
}

// With its terminator. A longer one would be cut, perhaps in the middle of a directive.
inline constexpr size_t kLogFormatMax = 160;

enum class LogKind : u8 { kError, kWarn, kPrint, kDebug };

// A log line of the library's own: tag, process id, function and line are put before it. The level is
// looked at inside, so that a line in the code is one call and little more: a third of the library
// would be log lines otherwise.
[[gnu::format(printf, 3, 4)]] void LogAt(LogKind kind, CallSite site, const char* format, ...);

// The same for the function at hand, in fewer words: kind and line are one number.
[[gnu::format(printf, 3, 4)]] void LogHere(u32 kindAndLine, const char* function,
                                           const char* format, ...);

constexpr u32 KindAndLine(LogKind kind, int line) {
    return static_cast<u32>(line) << 8 | static_cast<u32>(kind);
}

// Around fork(2): a child must not find the system log's own lock taken.
void HoldSyslog();
void ReleaseSyslog();

}  // namespace vimbra

#define VIMBRA_HERE (::vimbra::CallSite{__func__, __LINE__})

#define VIMBRA_TAG_ERR "[VIMBRA_ERR]:PID[%d]:[%s](%d): "
#define VIMBRA_TAG_WARN "[VIMBRA_WARN]:PID[%d]:[%s](%d): "
#define VIMBRA_TAG_PRT "[VIMBRA_PRT]:PID[%d]:[%s](%d): "
#define VIMBRA_FORMAT_PERROR "[VIMBRA_PERROR]PID[%d]:%s(%d):%s{errno(%d):%s}\n"

// With a call site. A format is a literal that fits behind its tag.
#define VIMBRA_LOG_AT(kind, site, format, ...)                                             \
    do {                                                                                   \
        static_assert(sizeof("" format) <= ::vimbra::kLogFormatMax);                       \
        ::vimbra::LogAt(::vimbra::LogKind::kind, site, format __VA_OPT__(, ) __VA_ARGS__); \
    } while (0)
#define VLOG_ERROR_AT(site, ...) VIMBRA_LOG_AT(kError, site, __VA_ARGS__)
#define VLOG_PRINT_AT(site, ...) VIMBRA_LOG_AT(kPrint, site, __VA_ARGS__)
#define VLOG_DEBUG_AT(site, ...) VIMBRA_LOG_AT(kDebug, site, __VA_ARGS__)

// For the function at hand.
#define VIMBRA_LOG_HERE(kind, format, ...)                                                    \
    do {                                                                                      \
        static_assert(sizeof("" format) <= ::vimbra::kLogFormatMax);                          \
        ::vimbra::LogHere(::vimbra::KindAndLine(::vimbra::LogKind::kind, __LINE__), __func__, \
                          format __VA_OPT__(, ) __VA_ARGS__);                                 \
    } while (0)
#define VLOG_ERROR(...) VIMBRA_LOG_HERE(kError, __VA_ARGS__)
#define VLOG_PRINT(...) VIMBRA_LOG_HERE(kPrint, __VA_ARGS__)
#define VLOG_WARN(...) VIMBRA_LOG_HERE(kWarn, __VA_ARGS__)
#define VLOG_DEBUG(...) VIMBRA_LOG_HERE(kDebug, __VA_ARGS__)

namespace vimbra {

// A failed system call: the step's name and errno as the call left it.
void LogErrnoAt(CallSite site, const char* step);

// The same, and noted as the reason why a call of the application fails.
void FailedCallAt(CallSite site, const char* step);

}  // namespace vimbra

#define VLOG_ERRNO(step) ::vimbra::FailedCallAt(VIMBRA_HERE, step)

#endif
