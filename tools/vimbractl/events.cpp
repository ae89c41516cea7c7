#include "events.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "tool.hpp"

namespace ctl {

namespace {

int Checked(int descriptor, const char* step) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), step);
    }
    return descriptor;
}

}  // namespace

EndWish::EndWish(int output) : output_(output) {
    sigset_t wishes;
    sigemptyset(&wishes);
    sigaddset(&wishes, SIGINT);
    sigaddset(&wishes, SIGTERM);
    signals_ = Checked(signalfd(-1, &wishes, SFD_CLOEXEC | SFD_NONBLOCK), "signals");
    pthread_sigmask(SIG_BLOCK, &wishes, &before_);
    // The stop has to be sent even when nobody reads the output any more.
    pipeBefore_ = signal(SIGPIPE, SIG_IGN);
}

EndWish::~EndWish() {
    signalfd_siginfo taken;
    while (read(signals_, &taken, sizeof(taken)) > 0) {
    }
    close(signals_);
    signal(SIGPIPE, pipeBefore_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

Bell::Bell()
    : counter_(Checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE), "events")) {}

Bell::~Bell() {
    close(counter_);
}

void Bell::Ring() {
    eventfd_write(counter_, 1);
}

Woken Bell::Wait(const EndWish& wish, std::optional<std::chrono::milliseconds> patience) {
    // Of the output only errors are awaited: a pipe whose reader has gone.
    pollfd awaited[] = {{wish.Signals(), POLLIN, 0}, {wish.Output(), 0, 0}, {counter_, POLLIN, 0}};
    const int timeout = patience ? static_cast<int>(patience->count()) : -1;
    const int found = poll(awaited, std::size(awaited), timeout);
    if (found == 0) {
        return Woken::kTimeout;
    }
    eventfd_t count;
    const bool wished = awaited[0].revents != 0 || (awaited[1].revents & (POLLERR | POLLHUP)) != 0;
    return found < 0 || wished || eventfd_read(counter_, &count) != 0 ? Woken::kEnd : Woken::kEvent;
}

void ExpectMore(Woken woken) {
    if (woken == Woken::kTimeout) {
        throw CommandFailed(ExitStatus::kUnreachable, "the network daemon tells no more");
    }
}

}  // namespace ctl
