#include "proxy.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

#include "tool.hpp"

namespace ctl {

namespace {

constexpr char kName[] = "/tmp/api_daemon";
constexpr char kHidden[] = "/tmp/api_daemon.monitored";
constexpr char kOwn[] = "/tmp/api_daemon.monitor";
constexpr int kBacklog = 128;

sockaddr_un AddressOf(const char* path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
    return address;
}

int NewSocket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool Connect(int fd, const char* path) {
    const sockaddr_un address = AddressOf(path);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

[[noreturn]] void Fail(const std::string& what) {
    throw CommandFailed(ExitStatus::kUnreachable, what + ": " + strerror(errno));
}

bool Write(int fd, const std::vector<std::byte>& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// A header and what it announces; less where the other side ends before.
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

std::string NameOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

}  // namespace

Proxy::Proxy(std::function<void(const Passed&)> seen)
    : seen_(std::move(seen)), listener_(NewSocket()) {
    struct stat daemon = {};
    const int probe = NewSocket();
    const bool isServed = stat(kName, &daemon) == 0 && Connect(probe, kName);
    const int error = errno;
    close(probe);
    errno = error;
    if (!isServed) {
        Fail(std::string("no daemon at ") + kName);
    }
    // Ours is ready before the name is taken: no application finds the place empty.
    unlink(kOwn);
    const sockaddr_un address = AddressOf(kOwn);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener_, kBacklog) != 0 || chmod(kOwn, daemon.st_mode & 07777) != 0 ||
        chown(kOwn, daemon.st_uid, daemon.st_gid) != 0 || link(kName, kHidden) != 0 ||
        rename(kOwn, kName) != 0) {
        const int why = errno;
        unlink(kOwn);
        errno = why;
        Fail(std::string("cannot stand in front of ") + kName);
    }
    std::thread([this] { Serve(); }).detach();
}

// The process ends soon after: connections that are open are cut, as by a daemon that ends.
Proxy::~Proxy() {
    rename(kHidden, kName);
    shutdown(listener_, SHUT_RDWR);
}

void Proxy::Serve() {
    while (true) {
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            std::thread([this, client] { Carry(client); }).detach();
        } else if (errno != EINTR && errno != ECONNABORTED && errno != EMFILE) {
            return;
        }
    }
}

void Proxy::Carry(int client) const {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    Passed passed{peer.pid, peer.uid, NameOf(peer.pid), ReadMessage(client), {}};
    const int daemon = NewSocket();
    if (Connect(daemon, kHidden) && Write(daemon, passed.request)) {
        passed.reply = ReadMessage(daemon);
        Write(client, passed.reply);
    }
    close(daemon);
    close(client);
    seen_(passed);
}

}  // namespace ctl
