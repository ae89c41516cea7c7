#include "injector.hpp"

#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <cstdarg>

namespace vimbra::tests {
namespace {

thread_local Injector* t_current = nullptr;

}  // namespace

Injector::Injector() {
    t_current = this;
}

Injector::~Injector() {
    Stop();
}

void Injector::FailAt(size_t number, bool forGood) {
    failAt_ = number;
    forGood_ = forGood;
}

void Injector::Stop() {
    t_current = nullptr;
}

Injector* Injector::Current() {
    return t_current;
}

bool Injector::Fails(const char* call) {
    // The bookkeeping allocates, too, and is nobody's business.
    t_current = nullptr;
    calls_.emplace_back(call);
    if (calls_.size() == killAt_) {
        kill(getpid(), SIGKILL);
    }
    const bool fails =
        failEvery_ == call ||
        (failAt_ != 0 && (forGood_ ? calls_.size() >= failAt_ : calls_.size() == failAt_));
    if (fails && failed_.empty()) {
        failed_ = call;
    }
    t_current = this;
    return fails;
}

void Injector::Allocated(void* block, size_t size) {
    sizes_.push_back(size);
    blocks_.insert(block);
}

namespace {

int Failure(int error) {
    errno = error;
    return -1;
}

// How much a write takes of its data.
ssize_t Taken(Injector* injector, size_t size) {
    return injector != nullptr && injector->onWrite ? injector->onWrite(size)
                                                    : static_cast<ssize_t>(size);
}

}  // namespace

extern "C" {

void* __real_calloc(size_t count, size_t size);
void __real_free(void* block);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __real_bind(int fd, const sockaddr* address, socklen_t length);
int __real_listen(int fd, int backlog);
int __real_access(const char* path, int mode);
int __real_unlink(const char* path);
int __real_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);
ssize_t __real_send(int fd, const void* data, size_t size, int flags);
ssize_t __real_read(int fd, void* data, size_t size);
int __real_close(int fd);
int __real_fcntl(int fd, int command, ...);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_setsockopt(int fd, int level, int name, const void* value, socklen_t size);
int __real_open(const char* path, int flags, ...);
ssize_t __real_pread(int fd, void* data, size_t size, off_t offset);
ssize_t __real_pwrite(int fd, const void* data, size_t size, off_t offset);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_ftruncate(int fd, off_t size);
int __real_fallocate(int fd, int mode, off_t offset, off_t size);
int __real_linkat(int from, const char* path, int to, const char* name, int flags);

void* __wrap_calloc(size_t count, size_t size) {
    Injector* injector = Injector::Current();
    if (injector == nullptr) {
        return __real_calloc(count, size);
    }
    if (injector->Fails("calloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    void* block = __real_calloc(count, size);
    injector->Allocated(block, count * size);
    return block;
}

void __wrap_free(void* block) {
    if (Injector* injector = Injector::Current()) {
        injector->Freed(block);
    }
    __real_free(block);
}

int __wrap_socket(int domain, int type, int protocol) {
    Injector* injector = Injector::Current();
    if (injector == nullptr) {
        return __real_socket(domain, type, protocol);
    }
    if (injector->Fails("socket")) {
        return Failure(EMFILE);
    }
    const int fd = __real_socket(domain, type, protocol);
    injector->Opened(fd);
    return fd;
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("connect")) {
        return Failure(ECONNREFUSED);
    }
    if (injector != nullptr && injector->onConnect) {
        const int result = injector->onConnect(fd);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_connect(fd, address, length);
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("bind")) {
        return Failure(EROFS);
    }
    return __real_bind(fd, address, length);
}

int __wrap_listen(int fd, int backlog) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("listen")) {
        return Failure(EADDRINUSE);
    }
    return __real_listen(fd, backlog);
}

int __wrap_access(const char* path, int mode) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("access")) {
        return Failure(EACCES);
    }
    return __real_access(path, mode);
}

int __wrap_unlink(const char* path) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("unlink")) {
        return Failure(EBUSY);
    }
    return __real_unlink(path);
}

int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("select")) {
        return Failure(EINTR);
    }
    if (injector != nullptr && injector->onSelect) {
        const int result = injector->onSelect(count, read, write, except, timeout);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_select(count, read, write, except, timeout);
}

ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("send")) {
        return Failure(EPIPE);
    }
    if (injector != nullptr && injector->onSend) {
        const ssize_t result = injector->onSend(fd, data, size);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_send(fd, data, size, flags);
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("read")) {
        return Failure(ECONNRESET);
    }
    if (injector != nullptr && injector->onRead) {
        const ssize_t result = injector->onRead(fd, data, size);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_read(fd, data, size);
}

int __wrap_close(int fd) {
    Injector* injector = Injector::Current();
    if (injector == nullptr) {
        return __real_close(fd);
    }
    const bool fails = injector->Fails("close");
    injector->Closed(fd);
    const int result = __real_close(fd);
    return fails ? Failure(EIO) : result;
}

int __wrap_fcntl(int fd, int command, ...) {
    va_list args;
    va_start(args, command);
    const long argument = va_arg(args, long);
    va_end(args);
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("fcntl")) {
        return Failure(EBADF);
    }
    if (injector != nullptr && injector->onFcntl) {
        const int result = injector->onFcntl(fd, command, argument);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_fcntl(fd, command, argument);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("ioctl")) {
        return Failure(EPERM);
    }
    if (injector != nullptr && injector->onIoctl) {
        const int result = injector->onIoctl(fd, request, argument);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_ioctl(fd, request, argument);
}

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("setsockopt")) {
        return Failure(ENOPROTOOPT);
    }
    if (injector != nullptr && injector->onSetsockopt) {
        const int result = injector->onSetsockopt(fd, level, name, value, size);
        if (result != Injector::kReal) {
            return result;
        }
    }
    return __real_setsockopt(fd, level, name, value, size);
}

int __wrap_open(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = makes ? va_arg(args, mode_t) : 0;
    va_end(args);
    Injector* injector = Injector::Current();
    if (injector == nullptr) {
        return __real_open(path, flags, mode);
    }
    if (injector->Fails("open")) {
        return Failure(injector->Error(EACCES));
    }
    int fd = injector->onOpen ? injector->onOpen(path, flags) : Injector::kReal;
    if (fd == Injector::kReal) {
        fd = __real_open(path, flags, mode);
    }
    if (fd >= 0) {
        injector->Opened(fd);
    }
    return fd;
}

ssize_t __wrap_pread(int fd, void* data, size_t size, off_t offset) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("pread")) {
        return Failure(injector->Error(EIO));
    }
    return __real_pread(fd, data, size, offset);
}

ssize_t __wrap_pwrite(int fd, const void* data, size_t size, off_t offset) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("pwrite")) {
        return Failure(injector->Error(ENOSPC));
    }
    const ssize_t taken = Taken(injector, size);
    return taken < 0 ? -1 : __real_pwrite(fd, data, static_cast<size_t>(taken), offset);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("write")) {
        return Failure(injector->Error(ENOSPC));
    }
    const ssize_t taken = Taken(injector, size);
    return taken < 0 ? -1 : __real_write(fd, data, static_cast<size_t>(taken));
}

int __wrap_ftruncate(int fd, off_t size) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("ftruncate")) {
        return Failure(injector->Error(EIO));
    }
    return __real_ftruncate(fd, size);
}

int __wrap_fallocate(int fd, int mode, off_t offset, off_t size) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("fallocate")) {
        return Failure(injector->Error(ENOSPC));
    }
    return __real_fallocate(fd, mode, offset, size);
}

int __wrap_linkat(int from, const char* path, int to, const char* name, int flags) {
    Injector* injector = Injector::Current();
    if (injector != nullptr && injector->Fails("linkat")) {
        return Failure(injector->Error(EIO));
    }
    return __real_linkat(from, path, to, name, flags);
}

}  // extern "C"

}  // namespace vimbra::tests
