// The calls of calls.inc as the library under torture makes them: sockets and what waits for them.
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "calls.hpp"

namespace vimbra::tests::torture {
namespace {

// Longer waits of a run in which something has failed are cut to this.
constexpr s64 kLongestWait = kSecond / 20;
constexpr s64 kPause = kSecond / 1000;
constexpr s64 kSlice = kSecond / 1000;

s64 Nanoseconds(const timeval& time) {
    return time.tv_sec * kSecond + time.tv_usec * 1000;
}

timeval ToTimeval(s64 nanoseconds) {
    return {static_cast<time_t>(nanoseconds / kSecond),
            static_cast<suseconds_t>(nanoseconds % kSecond / 1000)};
}

void Clear(int count, fd_set* set) {
    if (set != nullptr) {
        memset(set, 0, (static_cast<size_t>(count) + 63) / 64 * 8);
    }
}

bool IsIn(int fd, const fd_set* set) {
    return set != nullptr &&
           (reinterpret_cast<const unsigned long*>(set)[fd / 64] >> (fd % 64) & 1) != 0;
}

void Put(int fd, bool in, fd_set* set) {
    if (in) {
        reinterpret_cast<unsigned long*>(set)[fd / 64] |= 1UL << (fd % 64);
    }
}

s64 Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

std::vector<pollfd> Awaited(int count, const fd_set* reading, const fd_set* writing) {
    std::vector<pollfd> awaited;
    for (int fd = 0; fd < count; fd++) {
        const int events = (IsIn(fd, reading) ? POLLIN : 0) | (IsIn(fd, writing) ? POLLOUT : 0);
        if (events != 0) {
            awaited.push_back({fd, static_cast<short>(events), 0});
        }
    }
    return awaited;
}

// How long a wait of the caller's thread really takes: where something has failed nobody waits a
// minute for what does not come.
s64 RealWait(s64 asked) {
    return IsCaller() && HasFailed() ? std::min(asked, kLongestWait) : asked;
}

struct Sets {
    int count;
    fd_set* reading;
    fd_set* writing;
    fd_set* excepted;
};

// One wait, a cancellation point; the sets stay as they are when the time is over.
int SelectFor(const Sets& sets, const std::vector<pollfd>& awaited, s64 time) {
    timeval timeout = ToTimeval(time);
    const int result = select(sets.count, sets.reading, sets.writing, sets.excepted, &timeout);
    if (result == 0) {
        for (const pollfd& one : awaited) {
            Put(one.fd, (one.events & POLLIN) != 0, sets.reading);
            Put(one.fd, (one.events & POLLOUT) != 0, sets.writing);
        }
    }
    return result;
}

// The wait in slices, between which it may be found that nobody wants to wait any more.
int SelectWithin(const Sets& sets, timeval* timeout) {
    const std::vector<pollfd> awaited = Awaited(sets.count, sets.reading, sets.writing);
    const s64 asked = Nanoseconds(*timeout);
    const s64 real = awaited.empty() ? std::min(asked, kPause) : RealWait(asked);
    const s64 start = Now();
    BeginWait(awaited);
    int result = 0;
    s64 gone = 0;
    do {
        result = SelectFor(sets, awaited, std::min(kSlice, real - gone));
        gone = Now() - start;
    } while (result == 0 && gone < real && !IsInHurry());
    EndWait();
    if (result == 0) {
        SpareTime(std::max<s64>(asked - gone, 0));
        Clear(sets.count, sets.reading);
        Clear(sets.count, sets.writing);
        gone = asked;
    }
    *timeout = ToTimeval(std::max<s64>(asked - gone, 0));
    return result;
}

int SelectForEver(const Sets& sets) {
    BeginWait(Awaited(sets.count, sets.reading, sets.writing));
    const int result = select(sets.count, sets.reading, sets.writing, sets.excepted, nullptr);
    EndWait();
    return result;
}

}  // namespace

extern "C" {

int torture_socket(int domain, int type, int protocol) {
    TORTURE_OR(socket, -1)
    return Descriptor(socket(domain, type, protocol));
}

int torture_connect(int fd, const sockaddr* address, socklen_t length) {
    TORTURE_OR(connect, -1)
    const int result = connect(fd, address, length);
    const int error = errno;
    if (result == 0 && strstr(address->sa_data, "api_daemon") != nullptr) {
        Connected();
    }
    errno = error;
    return result;
}

int torture_bind(int fd, const sockaddr* address, socklen_t length) {
    TORTURE_OR(bind, -1)
    return bind(fd, address, length);
}

int torture_listen(int fd, int backlog) {
    TORTURE_OR(listen, -1)
    return listen(fd, backlog);
}

int torture_accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    TORTURE_OR(accept4, -1)
    const int connection = Descriptor(accept4(fd, address, length, flags));
    // What was sent is there at once, so that a run has the same calls each time.
    pollfd sent = {connection, POLLIN, 0};
    const int error = errno;
    static_cast<void>(connection >= 0 && poll(&sent, 1, 10000));
    errno = error;
    return connection;
}

ssize_t torture_send(int fd, const void* data, size_t size, int flags) {
    return Counted(Call::k_send, size, [=](size_t count) { return send(fd, data, count, flags); });
}

ssize_t torture_recv(int fd, void* data, size_t size, int flags) {
    return Counted(Call::k_recv, size, [=](size_t count) { return recv(fd, data, count, flags); });
}

int torture_getsockopt(int fd, int level, int name, void* value, socklen_t* size) {
    TORTURE_OR(getsockopt, -1)
    return getsockopt(fd, level, name, value, size);
}

int torture_setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
    TORTURE_OR(setsockopt, -1)
    return setsockopt(fd, level, name, value, size);
}

int torture_select(int count, fd_set* reading, fd_set* writing, fd_set* excepted,
                   timeval* timeout) {
    const int outcome = Meet(Call::k_select, timeout != nullptr);
    if (outcome == kTimeOut) {
        SpareTime(Nanoseconds(*timeout));
        *timeout = {};
        Clear(count, reading);
        Clear(count, writing);
        return 0;
    }
    if (outcome != 0) {
        return -1;
    }
    const Sets sets = {count, reading, writing, excepted};
    return timeout != nullptr ? SelectWithin(sets, timeout) : SelectForEver(sets);
}

// The library only looks.
int torture_poll(pollfd* awaited, nfds_t count, int timeout) {
    const int outcome = Meet(Call::k_poll, timeout >= 0);
    if (outcome != 0) {
        return outcome == kTimeOut ? 0 : -1;
    }
    return poll(awaited, count, timeout);
}

}  // extern "C"

}  // namespace vimbra::tests::torture
