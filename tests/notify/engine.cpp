// Stands between the engine and the system.
#include "engine.hpp"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace vimbra::tests {
namespace {

struct HeldThread {
    const bed::Gate* gate;
    void* (*run)(void*);
    void* argument;
};

void* PassAndRun(void* argument) {
    const HeldThread held = *static_cast<HeldThread*>(argument);
    delete static_cast<HeldThread*>(argument);
    held.gate->Pass();
    return held.run(held.argument);
}

}  // namespace

// The engine is linked to these.
extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    g_accepts++;
    if (const int error = g_acceptError; error != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(syscall(SYS_accept4, fd, address, length, flags));
}

extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
    void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (t_heldThreads == nullptr) {
        return create(thread, attributes, run, argument);
    }
    return create(thread, attributes, PassAndRun, new HeldThread{t_heldThreads, run, argument});
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    if (const int error = g_socketError; error != 0 && (type & SOCK_NONBLOCK) != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

}  // namespace vimbra::tests
