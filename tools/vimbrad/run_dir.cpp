#include "run_dir.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "keeper.hpp"
#include "private_dir.hpp"
#include "refusal.hpp"

namespace vimbrad {
namespace {

constexpr char kLockName[] = "lock";
// A program that a dying daemon was about to run holds its lock for a moment.
constexpr int kLockTries = 50;
constexpr auto kLockPause = std::chrono::milliseconds(20);

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

RunDirectory::RunDirectory(std::string path) : path_(std::move(path)) {
    Make();
    Lock();
    Clean();
}

// Whoever may write there decides what root runs and what it believes of its past.
void RunDirectory::Make() const {
    if (mkdir(path_.c_str(), 0700) != 0 && errno != EEXIST) {
        Fail("run directory " + path_);
    }
    struct stat found {};
    if (lstat(path_.c_str(), &found) != 0) {
        Fail("run directory " + path_);
    }
    if (!S_ISDIR(found.st_mode)) {
        throw std::runtime_error("run directory " + path_ + " is no directory");
    }
    if (found.st_uid != geteuid()) {
        throw std::runtime_error("run directory " + path_ + " belongs to user " +
                                 std::to_string(found.st_uid));
    }
    if ((found.st_mode & 07777) != 0700 && chmod(path_.c_str(), 0700) != 0) {
        Fail("run directory " + path_);
    }
}

void RunDirectory::Lock() {
    const std::string path = PathOf(kLockName);
    lock_.Reset(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!lock_) {
        Fail(path);
    }
    for (int left = kLockTries; flock(lock_.Get(), LOCK_EX | LOCK_NB) != 0; --left) {
        if (errno != EWOULDBLOCK) {
            Fail(path);
        }
        if (left == 0) {
            const std::string holder = Read(kLockName);
            throw std::runtime_error("another daemon" +
                                     (holder.empty() ? holder : ", process " + holder + ",") +
                                     " holds " + path);
        }
        std::this_thread::sleep_for(kLockPause);
    }
    const std::string pid = std::to_string(getpid());
    if (ftruncate(lock_.Get(), 0) != 0 || write(lock_.Get(), pid.data(), pid.size()) < 0) {
        Fail(path);
    }
}

void RunDirectory::Clean() const {
    for (const auto& each : std::filesystem::directory_iterator(path_)) {
        const std::string name = each.path().filename();
        std::error_code ignored;
        if (name != kLockName && name != kStateName && name != kResolverName &&
            !std::filesystem::exists(each.path() / kControlName, ignored)) {
            std::filesystem::remove_all(each.path(), ignored);
        }
    }
}

void RunDirectory::Replace(const std::string& name, std::string_view text, mode_t mode) const {
    const std::string path = PathOf(name);
    const std::string fresh = path + ".new";
    WriteWholeFile(fresh, text, mode);
    if (rename(fresh.c_str(), path.c_str()) != 0) {
        throw Refusal(errno, path + ": " + std::strerror(errno));
    }
}

std::string RunDirectory::Read(const std::string& name) const {
    return ReadWholeFile(PathOf(name));
}

void RunDirectory::Remove(const std::string& name) const {
    unlink(PathOf(name).c_str());
}

}  // namespace vimbrad
