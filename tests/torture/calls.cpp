// The calls of calls.inc as the library under torture makes them, torture_<call>: memory, output, time.
#include "calls.hpp"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace vimbra::tests::torture {

extern "C" {

// ---- Memory -------------------------------------------------------------------------------------

void* torture_calloc(size_t count, size_t size) {
    TORTURE_OR(calloc, nullptr)
    return Tracked(calloc(count, size));
}

void* torture_malloc(size_t size) {
    TORTURE_OR(malloc, nullptr)
    void* block = malloc(size);
    if (block != nullptr) {
        memset(block, 0xa5, size);  // What is not written is not what it was by chance.
    }
    return Tracked(block);
}

char* torture_strndup(const char* text, size_t size) {
    TORTURE_OR(strndup, nullptr)
    return Tracked(strndup(text, size));
}

void torture_free(void* block) {
    Freed(block);
    free(block);
}

// ---- Output and time -----------------------------------------------------------------------------

int torture_usleep(useconds_t time) {
    TORTURE_OR(usleep, -1)
    return usleep(time);
}

int torture_printf(const char* format, ...) {
    TORTURE_OR(printf, -1)
    va_list arguments;
    va_start(arguments, format);
    const int result = vprintf(format, arguments);
    va_end(arguments);
    return result;
}

int torture_dprintf(int fd, const char* format, ...) {
    TORTURE_OR(dprintf, -1)
    va_list arguments;
    va_start(arguments, format);
    const int result = vdprintf(fd, format, arguments);
    va_end(arguments);
    return result;
}

int torture_vfprintf(FILE* stream, const char* format, va_list arguments) {
    TORTURE_OR(vfprintf, -1)
    return vfprintf(stream, format, arguments);
}

int torture_putchar(int character) {
    TORTURE_OR(putchar, EOF)
    return putchar(character);
}

int torture_clock_gettime(clockid_t clock, timespec* time) {
    const int result = clock_gettime(clock, time);
    if (clock == CLOCK_MONOTONIC) {
        const s64 now = time->tv_sec * kSecond + time->tv_nsec + TimeAhead();
        *time = {static_cast<time_t>(now / kSecond), static_cast<long>(now % kSecond)};
    }
    return result;
}

}  // extern "C"

}  // namespace vimbra::tests::torture
