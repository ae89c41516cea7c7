#include "watch.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace ctl {

namespace {

// A byte for each report and each signal. Never closed: a listener may tell until the process ends.
int g_pipe[2] = {-1, -1};
std::mutex g_mutex;
Watch* g_watch = nullptr;

void Wake(char what) {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(g_pipe[1], &what, 1);
    errno = error;
}

void OnSignal(int) {
    Wake('s');
}

void Handle(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

Watch::Watch() {
    if (g_pipe[0] < 0 && pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw CommandFailed(ExitStatus::kFailed, std::string("pipe: ") + strerror(errno));
    }
    const std::lock_guard lock(g_mutex);
    g_watch = this;
    Handle(OnSignal);
}

Watch::~Watch() {
    const std::lock_guard lock(g_mutex);
    Handle(SIG_DFL);
    g_watch = nullptr;
}

void Watch::Tell(Report report) {
    const std::lock_guard lock(g_mutex);
    if (g_watch == nullptr) {
        return;
    }
    {
        const std::lock_guard own(g_watch->mutex_);
        g_watch->reports_.push_back(std::move(report));
    }
    Wake('r');
}

std::optional<Watch::Report> Watch::Next(int milliseconds) {
    while (!interrupted_) {
        {
            const std::lock_guard lock(mutex_);
            if (!reports_.empty()) {
                Report report = std::move(reports_.front());
                reports_.pop_front();
                return report;
            }
        }
        struct pollfd readable = {g_pipe[0], POLLIN, 0};
        if (poll(&readable, 1, milliseconds) == 0) {
            return std::nullopt;
        }
        char what = 0;
        if (read(g_pipe[0], &what, 1) == 1 && what == 's') {
            interrupted_ = true;
        }
    }
    return std::nullopt;
}

void Watch::ShowAll(Tool& tool) {
    while (const auto report = Next(-1)) {
        (*report)(tool);
        tool.Finish();
    }
}

bool Watch::ShowOne(Tool& tool, std::chrono::seconds patience) {
    const auto report = Next(static_cast<int>(std::chrono::milliseconds(patience).count()));
    if (!report) {
        return false;
    }
    (*report)(tool);
    return true;
}

}  // namespace ctl
