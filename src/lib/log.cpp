#include "lib/log.hpp"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

#include "lib/base/cancel.hpp"
#include "lib/base/lock.hpp"
#include "lib/base/text.hpp"

u32 g_nVimbraLogSwitch = VIMBRA_LEVEL_DEBUG;

namespace {

// The C library's lock around its connection to the system log is not given back in a forked child,
// unlike that of standard output. With this one in front of it nobody is within when a process
// forks.
pthread_mutex_t g_tSyslogMutex = PTHREAD_MUTEX_INITIALIZER;

void ToSyslog(int priority, const char* format, va_list args) {
    const vimbra::Lock lock(g_tSyslogMutex);
    vsyslog(LOG_LOCAL6 | priority, format, args);
}

// Both destinations lock and may block, so a cancelled thread has to finish its line first.
void Emit(u32 level, int priority, const char* format, va_list args) {
    if (!vimbra::Logs(level)) {
        return;
    }
    const int error = errno;
    const vimbra::CancelGuard guard;
    va_list copy;
    va_copy(copy, args);
    ToSyslog(priority, format, copy);
    va_end(copy);
    vfprintf(stdout, format, args);
    errno = error;
}

struct Shape {
    const char* tag;
    u32 level;
    int priority;
};

// By LogKind.
constexpr Shape kShapes[] = {
    {VIMBRA_TAG_ERR, VIMBRA_LEVEL_ERR, LOG_ERR},
    // Debug priority, not warning priority: what device log filters are set up for.
    {VIMBRA_TAG_WARN, VIMBRA_LEVEL_WARNING, LOG_DEBUG},
    {VIMBRA_TAG_PRT, VIMBRA_LEVEL_INFO, LOG_INFO},
    {VIMBRA_TAG_PRT, VIMBRA_LEVEL_DEBUG, LOG_DEBUG},
};

// The tag is written out before the format: process id, function and line are no arguments of its.
constexpr size_t kTaggedMax = vimbra::kLogFormatMax + 160;

void EmitTagged(vimbra::LogKind kind, vimbra::CallSite site, const char* format, va_list args) {
    const Shape& shape = kShapes[static_cast<u8>(kind)];
    if (!vimbra::Logs(shape.level)) {
        return;
    }
    const int error = errno;
    char tagged[kTaggedMax];
    const int length =
        snprintf(tagged, sizeof(tagged), shape.tag, getpid(), site.function, site.line);
    vimbra::CopyText(tagged + length, sizeof(tagged) - static_cast<size_t>(length), format);
    errno = error;
    Emit(shape.level, shape.priority, tagged, args);
}

}  // namespace

void vimbra::LogAt(LogKind kind, CallSite site, const char* format, ...) {
    va_list args;
    va_start(args, format);
    EmitTagged(kind, site, format, args);
    va_end(args);
}

void vimbra::LogHere(u32 kindAndLine, const char* function, const char* format, ...) {
    va_list args;
    va_start(args, format);
    EmitTagged(static_cast<LogKind>(kindAndLine & 0xff),
               {function, static_cast<int>(kindAndLine >> 8)}, format, args);
    va_end(args);
}

void vimbra::LogErrnoAt(CallSite site, const char* step) {
    const int error = errno;
    if (Logs(VIMBRA_LEVEL_ERR)) {
        VimbraLogPerror(VIMBRA_FORMAT_PERROR, getpid(), site.function, site.line, step, error,
                        strerror(error));
    }
    errno = error;
}

void vimbra::HoldSyslog() {
    pthread_mutex_lock(&g_tSyslogMutex);
}

void vimbra::ReleaseSyslog() {
    pthread_mutex_unlock(&g_tSyslogMutex);
}

s32 VimbraDebugLevelSet(u32 nSwitch) {
    __atomic_store_n(&g_nVimbraLogSwitch, nSwitch, __ATOMIC_RELAXED);
    return VIMBRA_OK;
}

void VimbraLogError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    Emit(VIMBRA_LEVEL_ERR, LOG_ERR, format, args);
    va_end(args);
}

void VimbraLogPerror(const char* format, ...) {
    va_list args;
    va_start(args, format);
    Emit(VIMBRA_LEVEL_ERR, LOG_ERR, format, args);
    va_end(args);
}

void VimbraLogWarn(const char* format, ...) {
    va_list args;
    va_start(args, format);
    // Debug priority, not warning priority: what device log filters are set up for.
    Emit(VIMBRA_LEVEL_WARNING, LOG_DEBUG, format, args);
    va_end(args);
}

void VimbraLogPrint(const char* format, ...) {
    va_list args;
    va_start(args, format);
    Emit(VIMBRA_LEVEL_INFO, LOG_INFO, format, args);
    va_end(args);
}

void VimbraLogDebug(const char* format, ...) {
    va_list args;
    va_start(args, format);
    Emit(VIMBRA_LEVEL_DEBUG, LOG_DEBUG, format, args);
    va_end(args);
}
