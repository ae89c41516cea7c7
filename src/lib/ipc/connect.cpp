#include "lib/ipc/connect.hpp"

#include <fcntl.h>
#include <time.h>
#include <vimbra/types.h>

#include <algorithm>
#include <cerrno>

namespace {

bool Connect(int fd, const sockaddr_un& address) {
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

constexpr s32 kSecond = 1000000;

// Of times: in microseconds, and back. What is left of a wait is a minute at most, so that a word
// holds it: a division of 64 bits is a function of its own where the processor has none.
s64 Count(const timeval& time) {
    return static_cast<s64>(time.tv_sec) * kSecond + time.tv_usec;
}

timeval Time(s32 count) {
    return {count / kSecond, count % kSecond};
}

s64 Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<s64>(now.tv_sec) * kSecond + now.tv_nsec / 1000;
}

// Takes off the time that has gone since then, as select(2) does with its own.
void TakeTimeSince(s64 start, timeval* left) {
    *left = Time(static_cast<s32>(std::max<s64>(Count(*left) - (Now() - start), 0)));
}

// Connects a socket that blocks, for no longer than the time that is left. The kernel takes the
// socket's time-out for sending as that of its wait for a place in the backlog. A signal, which may
// be the application's own business, starts the wait again.
bool ConnectWithin(int fd, const sockaddr_un& address, timeval* left) {
    while (Count(*left) > 0) {
        const s64 start = Now();
        if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, left, sizeof(*left)) != 0) {
            return false;
        }
        if (Connect(fd, address)) {
            TakeTimeSince(start, left);
            return true;
        }
        if (errno != EINTR) {
            return false;
        }
        TakeTimeSince(start, left);
    }
    errno = EAGAIN;  // As when the kernel finds that the time is over.
    return false;
}

// A socket's own time-out for sending, put back at the end.
class SendTimeout {
 public:
    explicit SendTimeout(int fd) : fd_(fd) {
        socklen_t size = sizeof(own_);
        known_ = getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &own_, &size) == 0;
    }
    ~SendTimeout() {
        if (known_) {
            const int error = errno;
            setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &own_, sizeof(own_));
            errno = error;
        }
    }
    SendTimeout(const SendTimeout&) = delete;
    SendTimeout& operator=(const SendTimeout&) = delete;

    // The shorter of the two; a socket without a time-out of its own has zero.
    timeval Within(const timeval& most) const {
        const s64 own = Count(own_);
        return own > 0 ? Time(static_cast<s32>(std::min(own, Count(most)))) : most;
    }

 private:
    const int fd_;
    bool known_;
    timeval own_ = {};
};

}  // namespace

bool vimbra::ConnectNonBlocking(int fd, const sockaddr_un& address, timeval* left) {
    if (Connect(fd, address)) {
        return true;
    }
    if (errno != EAGAIN || Count(*left) == 0) {
        return false;
    }
    // The socket is ours and has no other flags.
    return fcntl(fd, F_SETFL, 0) == 0 && ConnectWithin(fd, address, left) &&
           fcntl(fd, F_SETFL, O_NONBLOCK) == 0;
}

bool vimbra::ConnectAny(int fd, const sockaddr_un& address, const timeval& most) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || (flags & O_NONBLOCK) != 0) {
        return Connect(fd, address);
    }
    const SendTimeout timeout(fd);
    timeval left = timeout.Within(most);
    return ConnectWithin(fd, address, &left);
}
