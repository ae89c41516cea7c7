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

// Asked before the arguments are made: a silent library does not even look up its process id.
inline bool Logs(u32 level) {
    return __atomic_load_n(&g_nVimbraLogSwitch, __ATOMIC_RELAXED) >= level;
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

#define VIMBRA_LOG_TAGGED(level, log, tag, site, format, ...) \
    do {                                                      \
        if (::vimbra::Logs(level)) {                          \
            const ::vimbra::CallSite vimbraSite = (site);     \
            log(tag format, getpid(), vimbraSite.function,    \
                vimbraSite.line __VA_OPT__(, ) __VA_ARGS__);  \
        }                                                     \
    } while (0)

// With a call site; the format is a literal.
#define VLOG_ERROR_AT(site, ...) \
    VIMBRA_LOG_TAGGED(VIMBRA_LEVEL_ERR, VimbraLogError, VIMBRA_TAG_ERR, site, __VA_ARGS__)
#define VLOG_PRINT_AT(site, ...) \
    VIMBRA_LOG_TAGGED(VIMBRA_LEVEL_INFO, VimbraLogPrint, VIMBRA_TAG_PRT, site, __VA_ARGS__)
#define VLOG_DEBUG_AT(site, ...) \
    VIMBRA_LOG_TAGGED(VIMBRA_LEVEL_DEBUG, VimbraLogDebug, VIMBRA_TAG_PRT, site, __VA_ARGS__)

// For the function at hand.
#define VLOG_ERROR(...) VLOG_ERROR_AT(VIMBRA_HERE, __VA_ARGS__)
#define VLOG_PRINT(...) VLOG_PRINT_AT(VIMBRA_HERE, __VA_ARGS__)
#define VLOG_WARN(...)                                                                   \
    VIMBRA_LOG_TAGGED(VIMBRA_LEVEL_WARNING, VimbraLogWarn, VIMBRA_TAG_WARN, VIMBRA_HERE, \
                      __VA_ARGS__)
#define VLOG_DEBUG(...) VLOG_DEBUG_AT(VIMBRA_HERE, __VA_ARGS__)

namespace vimbra {

// A failed system call: the step's name and errno as the call left it.
inline void LogErrnoAt(const CallSite& site, const char* step) {
    const int error = errno;
    if (Logs(VIMBRA_LEVEL_ERR)) {
        VimbraLogPerror(VIMBRA_FORMAT_PERROR, getpid(), site.function, site.line, step, error,
                        strerror(error));
    }
    errno = error;
}

// The same, and noted as the reason why a call of the application fails.
void FailedCallAt(const CallSite& site, const char* step);

}  // namespace vimbra

#define VLOG_ERRNO(step) ::vimbra::FailedCallAt(VIMBRA_HERE, step)

#endif
