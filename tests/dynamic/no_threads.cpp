#include "no_threads.hpp"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace vimbra::tests {
namespace {

std::atomic<bool> g_refuse = false;

}  // namespace

NoThreads::NoThreads() {
    g_refuse = true;
}

NoThreads::~NoThreads() {
    g_refuse = false;
}

// Stands before the C library's in the program and in all its libraries.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
    void* argument) noexcept {
    if (g_refuse) {
        return EAGAIN;
    }
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attributes, run, argument);
}

}  // namespace vimbra::tests
