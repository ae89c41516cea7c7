#include "library_output.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace ctl {

namespace {

constexpr size_t kErrorsKept = 64;

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

LibraryOutput::LibraryOutput() {
    const int out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    output_ = out >= 0 ? fdopen(out, "w") : nullptr;
    cookie_io_functions_t functions = {};
    functions.write = [](void* self, const char* text, size_t size) {
        static_cast<LibraryOutput*>(self)->Take({text, size});
        return static_cast<ssize_t>(size);
    };
    FILE* const messages = fopencookie(this, "w", functions);
    if (output_ == nullptr || messages == nullptr) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
    // A message is one write.
    setvbuf(messages, nullptr, _IONBF, 0);
    stdout = messages;
}

std::vector<std::string> LibraryOutput::TakeErrors() {
    const std::lock_guard lock(mutex_);
    return std::exchange(errors_, {});
}

void LibraryOutput::Take(std::string_view message) {
    // Most messages end without a newline.
    while (message.ends_with('\n')) {
        message.remove_suffix(1);
    }
    if (show_ && !message.empty()) {
        fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
    }
    const std::string_view text = ErrorText(message);
    const std::lock_guard lock(mutex_);
    if (!text.empty() && errors_.size() < kErrorsKept) {
        errors_.emplace_back(text);
    }
}

}  // namespace ctl
