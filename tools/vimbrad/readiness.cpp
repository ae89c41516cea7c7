#include "readiness.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "lib/base/fd.hpp"
#include "log.hpp"

namespace vimbrad {
namespace {

void Notify(std::string_view message) {
    const char* const name = getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (name == nullptr || *name == '\0' || std::strlen(name) >= sizeof(address.sun_path)) {
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, std::strlen(name));
    // A name of the abstract kind is written with an @.
    if (address.sun_path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name));
    const vimbra::Fd fd(socket, AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (!fd || sendto(fd.Get(), message.data(), message.size(), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), length) < 0) {
        LogWarning("%s is not told: %s", name, std::strerror(errno));
    }
}

}  // namespace

void Readiness::TellReady() {
    Notify("READY=1");
    if (fd_ < 0) {
        return;
    }
    if (write(fd_, "\n", 1) != 1) {
        LogWarning("descriptor %d is not told: %s", fd_, std::strerror(errno));
    }
    close(fd_);
    fd_ = -1;
}

void Readiness::TellStopping() {
    Notify("STOPPING=1");
}

}  // namespace vimbrad
