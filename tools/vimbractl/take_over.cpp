#include "take_over.hpp"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "commands.hpp"

namespace ctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFlag = "--take-over";

// The inode of the socket that listens at the path; nothing when nobody does.
std::optional<std::string> ListenerAt(const std::string& path) {
    constexpr unsigned kAccepts = 0x10000;
    std::ifstream sockets("/proc/net/unix");
    std::string line;
    std::getline(sockets, line);
    while (std::getline(sockets, line)) {
        std::istringstream fields(line);
        std::string number, references, protocol, type, state, inode, name;
        unsigned flags = 0;
        fields >> number >> references >> protocol >> std::hex >> flags >> type >> state >> inode >>
            name;
        if ((flags & kAccepts) != 0 && name == path) {
            return inode;
        }
    }
    return std::nullopt;
}

bool HoldsSocket(const fs::path& process, const std::string& inode) {
    std::error_code hidden;
    for (const auto& descriptor : fs::directory_iterator(process / "fd", hidden)) {
        if (fs::read_symlink(descriptor, hidden) == "socket:[" + inode + "]") {
            return true;
        }
    }
    return false;
}

// "process 12 (watcher)", where we may see whose socket it is.
std::string OwnerOf(const std::string& inode) {
    std::error_code hidden;
    for (const auto& process : fs::directory_iterator("/proc", hidden)) {
        u32 pid = 0;
        if (ParseNumber(process.path().filename(), pid) && HoldsSocket(process, inode)) {
            std::string name;
            std::getline(std::ifstream(process.path() / "comm"), name);
            return "process " + std::to_string(pid) + " (" + name + ")";
        }
    }
    return "another process";
}

std::string UserText(uid_t uid) {
    const passwd* const account = getpwuid(uid);
    return (account != nullptr ? account->pw_name : "user") +
           (" (uid " + std::to_string(uid) + ")");
}

// In a folder that everybody may write to, only its owner, the file's and root may remove a file.
bool MayRemove(const struct stat& file, const std::string& path) {
    struct stat folder = {};
    const uid_t me = geteuid();
    return me == 0 || me == file.st_uid ||
           stat(fs::path(path).parent_path().c_str(), &folder) != 0 || me == folder.st_uid ||
           (folder.st_mode & S_ISVTX) == 0;
}

}  // namespace

bool IsListening(const std::string& path) {
    return ListenerAt(path).has_value();
}

void AddTakeOverFlag(CLI::App& command, bool& target) {
    AddFlag(command, kFlag, target, "Take the events from a process that gets them now");
}

void ExpectFree(const std::string& socket, bool takeOver) {
    const std::string path = "/tmp/" + socket;
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0) {
        return;
    }
    if (S_ISDIR(file.st_mode)) {
        throw CommandFailed(ExitStatus::kFailed, path + " is a folder: no events can come");
    }
    const auto listener = ListenerAt(path);
    if (!MayRemove(file, path)) {
        throw CommandFailed(ExitStatus::kFailed,
                            path + " belongs to " + UserText(file.st_uid) +
                                (listener ? ", whose process gets the events"
                                          : ", whose process has left it behind") +
                                ": only that user or root can remove it");
    }
    if (listener && !takeOver) {
        throw CommandFailed(ExitStatus::kFailed, "the events go to " + OwnerOf(*listener) +
                                                     ", which would get no more of them; " + kFlag +
                                                     " takes them over");
    }
}

}  // namespace ctl
