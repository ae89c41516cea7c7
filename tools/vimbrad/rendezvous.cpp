#include "rendezvous.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include "log.hpp"

namespace vimbrad {
namespace {

constexpr int kBacklog = 128;
// Whoever may connect may reconfigure the device: its owner and, after a chgrp, one group.
constexpr mode_t kSocketMask = 0117;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_un Address() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(sizeof(kSocketPath) <= sizeof(address.sun_path));
    std::memcpy(address.sun_path, kSocketPath, sizeof(kSocketPath));
    return address;
}

vimbra::Fd MakeSocket() {
    vimbra::Fd fd(socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (!fd) {
        Fail("socket");
    }
    return fd;
}

// A full queue (EAGAIN) is somebody's queue.
bool SomebodyListens() {
    const sockaddr_un address = Address();
    const vimbra::Fd probe = MakeSocket();
    return connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
               0 ||
           errno == EAGAIN;
}

void RemoveStaleSocket() {
    struct stat found {};
    if (lstat(kSocketPath, &found) != 0) {
        if (errno == ENOENT) {
            return;
        }
        Fail(kSocketPath);
    }
    if (!S_ISSOCK(found.st_mode)) {
        throw std::runtime_error(std::string(kSocketPath) + " exists and is no socket");
    }
    if (SomebodyListens()) {
        throw std::runtime_error(std::string("another daemon answers on ") + kSocketPath);
    }
    if (unlink(kSocketPath) != 0 && errno != ENOENT) {
        Fail(kSocketPath);
    }
    LogInfo("removed the stale socket %s", kSocketPath);
}

}  // namespace

Rendezvous::Rendezvous() {
    // Two daemons that start at once must not both find the place free: the directory is locked
    // from the first look until the winner listens.
    const vimbra::Fd directory(open, "/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (!directory || flock(directory.Get(), LOCK_EX) != 0) {
        Fail("/tmp");
    }

    RemoveStaleSocket();
    vimbra::Fd fd = MakeSocket();
    const sockaddr_un address = Address();
    const mode_t mask = umask(kSocketMask);
    const int bound = bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    umask(mask);
    if (bound != 0) {
        Fail(kSocketPath);
    }
    struct stat made {};
    if (listen(fd.Get(), kBacklog) != 0 || lstat(kSocketPath, &made) != 0) {
        const int error = errno;
        unlink(kSocketPath);
        errno = error;
        Fail(kSocketPath);
    }
    device_ = made.st_dev;
    inode_ = made.st_ino;
    socket_ = std::move(fd);
}

Rendezvous::~Rendezvous() {
    struct stat found {};
    if (lstat(kSocketPath, &found) == 0 && found.st_dev == device_ && found.st_ino == inode_) {
        unlink(kSocketPath);
    }
}

}  // namespace vimbrad
