#include "memory.hpp"

#include <cerrno>
#include <cstring>

namespace vimbra::tests {

thread_local int t_failAt = 0;
std::atomic<size_t> g_failSize = 0;

namespace {

bool Fails(size_t size) {
    const bool fails = (size != 0 && size == g_failSize) || (t_failAt > 0 && --t_failAt == 0);
    if (fails) {
        errno = ENOMEM;
    }
    return fails;
}

}  // namespace

extern "C" {

void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
    return Fails(count * size) ? nullptr : __real_calloc(count, size);
}

char* __real_strndup(const char* text, size_t size);
char* __wrap_strndup(const char* text, size_t size) {
    return Fails(strnlen(text, size) + 1) ? nullptr : __real_strndup(text, size);
}
}

}  // namespace vimbra::tests
