#include "log.hpp"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>

#include "log_sink.hpp"

namespace vimbrad {
namespace {

struct Log {
    LogLevel operatorLevel = LogLevel::kInfo;
    LogLevel level = LogLevel::kInfo;
    std::unique_ptr<LogSink> sink;
    u64 lost = 0;
};

// Made by the first line, when standard error is certain to be open.
Log& TheLog() {
    static Log log;
    if (!log.sink) {
        log.sink = MakeStandardErrorSink();
    }
    return log;
}

struct Severity {
    LogLevel level;
    int priority;
    const char* word;
};

constexpr Severity kError{LogLevel::kError, LOG_ERR, "error"};
constexpr Severity kWarning{LogLevel::kWarning, LOG_WARNING, "warning"};
constexpr Severity kInfo{LogLevel::kInfo, LOG_INFO, "info"};
constexpr Severity kDebug{LogLevel::kDebug, LOG_DEBUG, "debug"};

// What a peer sent may be quoted in a line: nothing of it may start a line of its own.
void MakePrintable(char* text) {
    for (; *text != '\0'; ++text) {
        if (static_cast<unsigned char>(*text) < 0x20 || *text == 0x7f) {
            *text = '?';
        }
    }
}

void TellLost(Log& log) {
    if (log.lost == 0) {
        return;
    }
    const std::string text = std::to_string(log.lost) + " log lines were lost: nobody took them";
    if (log.sink->Write(kWarning.priority, kWarning.word, text)) {
        log.lost = 0;
    }
}

void Write(LogLevel wanted, const Severity& severity, const char* format, va_list arguments) {
    if (severity.level > wanted) {
        return;
    }
    char text[1024];
    std::vsnprintf(text, sizeof(text), format, arguments);
    MakePrintable(text);
    Log& log = TheLog();
    TellLost(log);
    if (log.lost != 0 || !log.sink->Write(severity.priority, severity.word, text)) {
        ++log.lost;
    }
}

}  // namespace

void SetOperatorLogLevel(LogLevel level) {
    TheLog().operatorLevel = level;
    TheLog().level = level;
}

void SetLogLevel(LogLevel level) {
    TheLog().level = level;
}

LogLevel CurrentLogLevel() {
    return TheLog().level;
}

void LogToSyslog() {
    TheLog().sink = MakeSyslogSink();
}

u64 LostLogLines() {
    return TheLog().lost;
}

#define VIMBRAD_DEFINE_LOG(name, wanted, severity)  \
    void name(const char* format, ...) {            \
        va_list arguments;                          \
        va_start(arguments, format);                \
        Write(wanted, severity, format, arguments); \
        va_end(arguments);                          \
    }
VIMBRAD_DEFINE_LOG(LogError, TheLog().level, kError)
VIMBRAD_DEFINE_LOG(LogWarning, TheLog().level, kWarning)
VIMBRAD_DEFINE_LOG(LogInfo, TheLog().level, kInfo)
VIMBRAD_DEFINE_LOG(LogDebug, TheLog().level, kDebug)
VIMBRAD_DEFINE_LOG(LogChange, TheLog().operatorLevel, kInfo)
VIMBRAD_DEFINE_LOG(LogRefused, TheLog().operatorLevel, kWarning)
#undef VIMBRAD_DEFINE_LOG

}  // namespace vimbrad
