#include "log.hpp"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace vimbrad {
namespace {

LogLevel g_level = LogLevel::kInfo;

// What a peer sent may be quoted in a line: nothing of it may start a line of its own.
void MakePrintable(char* text) {
    for (; *text != '\0'; ++text) {
        if (static_cast<unsigned char>(*text) < 0x20 || *text == 0x7f) {
            *text = '?';
        }
    }
}

void Write(LogLevel level, const char* word, const char* format, va_list arguments) {
    if (level > g_level) {
        return;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);

    char line[512];
    size_t length = std::strftime(line, sizeof(line), "%F %T ", &local);
    length += static_cast<size_t>(
        std::snprintf(line + length, sizeof(line) - length, "vimbrad[%d] %s: ", getpid(), word));
    std::vsnprintf(line + length, sizeof(line) - length - 1, format, arguments);
    MakePrintable(line + length);
    length = std::strlen(line);
    line[length++] = '\n';
    // One write for a line, so that lines of several processes in one file do not mix.
    if (write(STDERR_FILENO, line, length) < 0) {
        return;
    }
}

}  // namespace

void SetLogLevel(LogLevel level) {
    g_level = level;
}

#define VIMBRAD_DEFINE_LOG(name, level, word)  \
    void name(const char* format, ...) {       \
        va_list arguments;                     \
        va_start(arguments, format);           \
        Write(level, word, format, arguments); \
        va_end(arguments);                     \
    }
VIMBRAD_DEFINE_LOG(LogError, LogLevel::kError, "error")
VIMBRAD_DEFINE_LOG(LogWarning, LogLevel::kWarning, "warning")
VIMBRAD_DEFINE_LOG(LogInfo, LogLevel::kInfo, "info")
VIMBRAD_DEFINE_LOG(LogDebug, LogLevel::kDebug, "debug")
#undef VIMBRAD_DEFINE_LOG

}  // namespace vimbrad
