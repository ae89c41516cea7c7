// Owner of a descriptor.
#ifndef VIMBRA_LIB_FD_HPP
#define VIMBRA_LIB_FD_HPP

#include <unistd.h>

#include <cerrno>

namespace vimbra {

class Fd {
 public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(other.Release()) {}
    Fd& operator=(Fd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~Fd() { Reset(); }

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    int Release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    // Keeps errno: a log line or a caller may still want to know why the descriptor is given up.
    void Reset(int fd = -1) {
        if (fd_ >= 0) {
            const int error = errno;
            close(fd_);
            errno = error;
        }
        fd_ = fd;
    }

 private:
    int fd_ = -1;
};

}  // namespace vimbra

#endif
