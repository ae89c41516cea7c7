#include "stand_in.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "take_over.hpp"

namespace ctl {

namespace {

constexpr int kBacklog = 128;

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    return address;
}

// Where the other one is found, while there is one of ours before it.
std::string AsideOf(const std::string& path) {
    return path + ".monitor";
}

vimbra::Fd NewSocket() {
    return vimbra::Fd(socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

}  // namespace

vimbra::Fd ConnectTo(const std::string& path) {
    // For a listener whose callback takes its time.
    constexpr timeval kPatience = {30, 0};
    vimbra::Fd fd = NewSocket();
    setsockopt(fd.Get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof(kPatience));
    const sockaddr_un address = AddressOf(path);
    if (connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        fd.Reset();
    }
    return fd;
}

std::vector<std::byte> ReadMessage(int fd) {
    constexpr size_t kMost = sizeof(IpcMsgHead) + 65536;
    std::vector<std::byte> bytes;
    size_t wanted = sizeof(IpcMsgHead);
    while (bytes.size() < wanted) {
        std::vector<std::byte> piece(wanted - bytes.size());
        const ssize_t count = read(fd, piece.data(), piece.size());
        if (count <= 0) {
            break;
        }
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
        if (bytes.size() == sizeof(IpcMsgHead)) {
            IpcMsgHead head;
            std::memcpy(&head, bytes.data(), sizeof(head));
            wanted = std::min<size_t>(sizeof(head) + size_t{head.size}, kMost);
        }
    }
    return bytes;
}

bool WriteMessage(int fd, const std::vector<std::byte>& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

StandIn::StandIn(const std::string& path)
    : path_(path), aside_(AsideOf(path)), listener_(NewSocket()) {}

std::unique_ptr<StandIn> StandIn::For(const std::string& path) {
    Restore(path);
    std::unique_ptr<StandIn> made(new StandIn(path));
    if (!made->Take()) {
        made.reset();
    }
    return made;
}

// Only a name that does not answer was left behind; another was taken by somebody since.
void StandIn::Restore(const std::string& path) {
    const std::string aside = AsideOf(path);
    if (access(aside.c_str(), F_OK) == 0 && !IsListening(aside) && !ConnectTo(path)) {
        rename(aside.c_str(), path.c_str());
    }
}

// Ours is ready before the name is taken, and as open to others as the one before.
bool StandIn::Take() {
    struct stat theirs = {};
    struct stat own = {};
    if (lstat(path_.c_str(), &theirs) != 0) {
        return false;
    }
    if (!S_ISSOCK(theirs.st_mode) || IsListening(aside_)) {
        errno = EBUSY;
        return false;
    }
    unlink(aside_.c_str());
    const sockaddr_un address = AddressOf(aside_);
    isTaken_ =
        bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        listen(listener_.Get(), kBacklog) == 0 && lstat(aside_.c_str(), &own) == 0 &&
        chmod(aside_.c_str(), theirs.st_mode & 07777) == 0 &&
        lchown(aside_.c_str(), theirs.st_uid, theirs.st_gid) == 0 && Exchange();
    if (!isTaken_) {
        const int error = errno;
        unlink(aside_.c_str());
        errno = error;
    }
    device_ = own.st_dev;
    inode_ = own.st_ino;
    return isTaken_;
}

bool StandIn::Exchange() const {
    return renameat2(AT_FDCWD, aside_.c_str(), AT_FDCWD, path_.c_str(), RENAME_EXCHANGE) == 0;
}

bool StandIn::IsOwn(const std::string& path) const {
    struct stat file = {};
    return lstat(path.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_;
}

bool StandIn::HasName() const {
    return IsOwn(path_);
}

vimbra::Fd StandIn::Original() const {
    vimbra::Fd fd = ConnectTo(aside_);
    // Its own name is given back before the last messages are handed on.
    return fd || HasName() ? std::move(fd) : ConnectTo(path_);
}

// Somebody may take the name at any moment: then his stays there. What is aside in the end is ours,
// or what nobody asks for any more.
void StandIn::GiveBack() {
    const std::lock_guard lock(mutex_);
    if (!isTaken_) {
        return;
    }
    isTaken_ = false;
    if (IsOwn(path_) && Exchange() && !IsOwn(aside_)) {
        Exchange();
    }
    unlink(aside_.c_str());
}

}  // namespace ctl
