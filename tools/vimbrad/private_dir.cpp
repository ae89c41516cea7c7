#include "private_dir.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "lib/base/fd.hpp"
#include "log.hpp"
#include "refusal.hpp"
#include "run_dir.hpp"

namespace vimbrad {

namespace {

constexpr char kPrefix[] = "files.";
constexpr size_t kPartSize = 4096;

}  // namespace

PrivateDir::PrivateDir(const RunDirectory& parent)
    : path_(parent.PathOf(std::string(kPrefix) + "XXXXXX")) {
    if (mkdtemp(path_.data()) == nullptr) {
        throw Refusal(errno, path_ + ": " + std::strerror(errno));
    }
}

PrivateDir::PrivateDir(const RunDirectory& parent, const std::string& name)
    : path_(parent.PathOf(name)) {
    // It is going to be removed with all that it holds.
    if (!name.starts_with(kPrefix) || name.find('/') != name.npos) {
        throw Refusal(EINVAL, name + " is no directory of ours");
    }
}

PrivateDir::~PrivateDir() {
    if (!left_) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
}

std::string PrivateDir::Name() const {
    return std::filesystem::path(path_).filename();
}

std::string PrivateDir::Write(const std::string& name, std::string_view text, mode_t mode) const {
    const std::string path = PathOf(name);
    WriteWholeFile(path, text, mode);
    return path;
}

std::string ReadWholeFile(const std::string& path) {
    const vimbra::Fd file(open, path.c_str(), O_RDONLY | O_CLOEXEC);
    if (!file && errno == ENOENT) {
        return {};
    }
    std::string text;
    std::array<char, kPartSize> part;
    while (true) {
        const ssize_t count = file ? read(file.Get(), part.data(), part.size()) : -1;
        if (count < 0) {
            LogWarning("%s cannot be read: %s", path.c_str(), std::strerror(errno));
            return {};
        }
        if (count == 0) {
            return text;
        }
        text.append(part.data(), static_cast<size_t>(count));
    }
}

void WriteWholeFile(const std::string& path, std::string_view text, mode_t mode) {
    const vimbra::Fd file(open, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (!file || fchmod(file.Get(), mode) != 0) {
        throw Refusal(errno, path + ": " + std::strerror(errno));
    }
    while (!text.empty()) {
        const ssize_t count = write(file.Get(), text.data(), text.size());
        if (count < 0) {
            throw Refusal(errno, path + ": " + std::strerror(errno));
        }
        text.remove_prefix(static_cast<size_t>(count));
    }
}

}  // namespace vimbrad
