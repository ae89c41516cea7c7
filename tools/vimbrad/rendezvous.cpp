#include "rendezvous.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "log.hpp"

namespace vimbrad {
namespace {

constexpr int kBacklog = 128;
// Whoever may connect may reconfigure the device: its owner and one group.
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

// Who listens there: the user, as the kernel noted it when the socket began to listen. Nobody is
// nothing; of a full queue (EAGAIN) only the file's owner is known.
std::optional<uid_t> Listener(const struct stat& file) {
    const sockaddr_un address = Address();
    const vimbra::Fd probe = MakeSocket();
    if (connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return errno == EAGAIN ? std::optional(file.st_uid) : std::nullopt;
    }
    ucred peer{};
    socklen_t length = sizeof(peer);
    if (getsockopt(probe.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
        Fail(kSocketPath);
    }
    return peer.uid;
}

// Nothing is lost: what is no socket goes into a directory of its own beside it. That needs no
// name which somebody could foresee.
void MoveAside() {
    std::string aside = "/tmp/in-the-way-of-vimbrad.XXXXXX";
    if (mkdtemp(aside.data()) == nullptr) {
        Fail(aside.c_str());
    }
    const std::string place = aside + "/api_daemon";
    if (rename(kSocketPath, place.c_str()) != 0) {
        const int error = errno;
        rmdir(aside.c_str());
        errno = error;
        Fail(kSocketPath);
    }
    LogWarning("%s was no socket: moved to %s", kSocketPath, place.c_str());
}

// A daemon of ours is left alone, and so is root's, whoever we are. What any other user put there
// only keeps applications from us.
void MakeRoom() {
    struct stat found {};
    if (lstat(kSocketPath, &found) != 0) {
        if (errno == ENOENT) {
            return;
        }
        Fail(kSocketPath);
    }
    if (!S_ISSOCK(found.st_mode)) {
        MoveAside();
        return;
    }
    const std::optional<uid_t> listener = Listener(found);
    if (listener && (*listener == 0 || *listener == geteuid())) {
        throw std::runtime_error(std::string("another daemon answers on ") + kSocketPath);
    }
    if (unlink(kSocketPath) != 0 && errno != ENOENT) {
        Fail(kSocketPath);
    }
    if (listener) {
        LogWarning("user %u listened on %s: removed", *listener, kSocketPath);
    } else {
        LogInfo("removed the stale socket %s", kSocketPath);
    }
}

vimbra::Fd Bind() {
    vimbra::Fd fd = MakeSocket();
    const sockaddr_un address = Address();
    const mode_t mask = umask(kSocketMask);
    const int bound = bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    umask(mask);
    if (bound != 0) {
        Fail(kSocketPath);
    }
    return fd;
}

}  // namespace

// The run directory's lock keeps two daemons of one machine from being here at once.
Rendezvous::Rendezvous(std::optional<gid_t> group) {
    MakeRoom();
    socket_ = Bind();
    struct stat made {};
    if ((group && lchown(kSocketPath, static_cast<uid_t>(-1), *group) != 0) ||
        listen(socket_.Get(), kBacklog) != 0 || lstat(kSocketPath, &made) != 0) {
        const int error = errno;
        unlink(kSocketPath);
        errno = error;
        Fail(kSocketPath);
    }
    device_ = made.st_dev;
    inode_ = made.st_ino;
}

Rendezvous::~Rendezvous() {
    struct stat found {};
    if (lstat(kSocketPath, &found) == 0 && found.st_dev == device_ && found.st_ino == inode_) {
        unlink(kSocketPath);
    }
}

}  // namespace vimbrad
