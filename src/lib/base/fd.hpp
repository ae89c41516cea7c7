// Owner of a descriptor.
#ifndef VIMBRA_LIB_BASE_FD_HPP
#define VIMBRA_LIB_BASE_FD_HPP

#include <unistd.h>

#include <cerrno>
#include <type_traits>

#include "lib/base/cancel.hpp"

namespace vimbra {

// The thread cannot be cancelled as long as there is one, be it empty: an owner is there before
// its descriptor is, so that no cancellation comes between the two.
class Fd {
 public:
    Fd() = default;
    // Owns what the call gives: Fd file(open, path, O_RDONLY | O_CLOEXEC).
    template <typename Call, typename... Arguments>
    requires std::is_function_v<Call>
    explicit Fd(Call* call, Arguments... arguments) : fd_(call(arguments...)) {}
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
    [[gnu::noinline]] void Reset(int fd = -1) {
        if (fd_ >= 0) {
            const int error = errno;
            close(fd_);
            errno = error;
        }
        fd_ = fd;
    }

 private:
    const CancelGuard guard_;
    int fd_ = -1;
};

}  // namespace vimbra

#endif
