#include "library_log.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace ctl {

namespace {

constexpr std::string_view kTag = "[VIMBRA_";
constexpr size_t kErrorsKept = 64;

[[noreturn]] void Fail(const char* step) {
    throw std::system_error(errno, std::generic_category(), step);
}

// The text behind the tag of an error message; empty for any other message.
// [VIMBRA_ERR]:PID[%d]:[%s](%d): text
// [VIMBRA_PERROR]PID[%d]:%s(%d):text
std::string_view ErrorText(std::string_view message) {
    const bool plain = message.starts_with("[VIMBRA_ERR]");
    if (!plain && !message.starts_with("[VIMBRA_PERROR]")) {
        return {};
    }
    const std::string_view end = plain ? "): " : "):";
    const size_t at = message.find(end);
    return at == std::string_view::npos ? std::string_view() : message.substr(at + end.size());
}

}  // namespace

LibraryLog::LibraryLog() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        Fail("pipe");
    }
    reading_ = ends[0];
    const int out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    output_ = out >= 0 ? fdopen(out, "w") : nullptr;
    // Only the reading end must not block.
    if (output_ == nullptr || fcntl(ends[1], F_SETFL, 0) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
        Fail("standard output");
    }
    close(ends[1]);
    // One write for each message, so that each arrives whole and at once.
    setvbuf(stdout, nullptr, _IONBF, 0);
    reader_ = std::thread(&LibraryLog::Run, this);
}

LibraryLog::~LibraryLog() {
    fflush(stdout);
    // The last writing end goes, and with it the reader.
    dup2(fileno(output_), STDOUT_FILENO);
    reader_.join();
    fclose(output_);
    close(reading_);
}

std::vector<std::string> LibraryLog::TakeErrors() {
    fflush(stdout);
    const std::lock_guard lock(mutex_);
    Drain();
    return std::exchange(errors_, {});
}

void LibraryLog::Run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    for (;;) {
        pollfd readable = {reading_, POLLIN, 0};
        poll(&readable, 1, -1);
        const std::lock_guard lock(mutex_);
        Drain();
        if (ended_) {
            return;
        }
    }
}

void LibraryLog::Drain() {
    std::string text;
    std::array<char, 4096> piece;
    ssize_t count;
    while ((count = read(reading_, piece.data(), piece.size())) > 0) {
        text.append(piece.data(), static_cast<size_t>(count));
    }
    ended_ = ended_ || count == 0;
    // Most messages have no newline: each ends where the next one's tag begins.
    std::string_view rest = text;
    while (!rest.empty()) {
        const size_t next = rest.find(kTag, 1);
        std::string_view message = rest.substr(0, next);
        rest.remove_prefix(message.size());
        while (message.ends_with('\n')) {
            message.remove_suffix(1);
        }
        if (!message.empty()) {
            Handle(message);
        }
    }
}

void LibraryLog::Handle(std::string_view message) {
    if (show_) {
        fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
    }
    const std::string_view text = ErrorText(message);
    if (!text.empty() && errors_.size() < kErrorsKept) {
        errors_.emplace_back(text);
    }
}

}  // namespace ctl
