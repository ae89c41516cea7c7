// The far side of the library's listeners.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include "internal.hpp"
#include "vimbra/bed.hpp"

namespace vimbra::bed {

using internal::Descriptor;

bool HasListener(std::string_view name) {
    // Num RefCount Protocol Flags Type St Inode Path; a listening socket has this flag.
    constexpr unsigned long kAccepting = 0x10000;
    const std::string path = internal::SocketPath(name);
    std::ifstream table("/proc/net/unix");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string skipped;
        std::string flags;
        std::string bound;
        fields >> skipped >> skipped >> skipped >> flags >> skipped >> skipped >> skipped >> bound;
        if (bound == path && (std::strtoul(flags.c_str(), nullptr, 16) & kAccepting) != 0) {
            return true;
        }
    }
    return false;
}

bool WaitForListener(std::string_view name, std::chrono::milliseconds patience) {
    return WaitFor([&] { return HasListener(name); }, patience);
}

bool WaitForNoListener(std::string_view name, std::chrono::milliseconds patience) {
    return WaitFor([&] { return !HasListener(name); }, patience);
}

struct Connection::Socket {
    Descriptor descriptor;
};

Connection::Connection(std::string_view name)
    : socket_(new Socket{internal::ConnectSocket(SOCK_STREAM, internal::SocketPath(name))}) {
    if (!Connected()) {
        error_ = errno;
    }
}

Connection::~Connection() = default;

bool Connection::Connected() const {
    return socket_->descriptor.Get() >= 0;
}

bool Connection::Send(const Bytes& bytes) {
    return internal::SendAll(socket_->descriptor.Get(), bytes.data(), bytes.size());
}

bool Connection::SendInPieces(const Bytes& bytes, std::initializer_list<size_t> cuts) {
    size_t start = 0;
    for (const size_t cut : cuts) {
        if (!Send(bytes.Slice(start, cut - start)) || !WaitRead()) {
            return false;
        }
        start = cut;
    }
    return Send(bytes.Slice(start, bytes.size()));
}

bool Connection::WaitRead() {
    return internal::AwaitRead(socket_->descriptor.Get(), -1);
}

Bytes Connection::Receive(size_t count, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    Bytes received(count);
    size_t have = 0;
    while (have < count) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd watched{socket_->descriptor.Get(), POLLIN, 0};
        if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) == 0) {
            break;
        }
        const ssize_t got = recv(watched.fd, received.data() + have, count - have, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
            break;
        }
        have += got > 0 ? static_cast<size_t>(got) : 0;
    }
    received.resize(have);
    return received;
}

void Connection::EndSending() {
    shutdown(socket_->descriptor.Get(), SHUT_WR);
}

void Connection::Close() {
    socket_->descriptor.Reset();
}

bool Connection::WaitPeerClosed(std::chrono::milliseconds patience) {
    return WaitFor(
        [&] {
            pollfd watched{socket_->descriptor.Get(), 0, 0};
            poll(&watched, 1, 0);
            return (watched.revents & (POLLHUP | POLLERR)) != 0;
        },
        patience);
}

bool Notify(std::string_view name, uint32_t type, const Bytes& body, const NotifyOptions& options) {
    Connection connection(name);
    const auto size = options.size.value_or(static_cast<uint32_t>(body.size()));
    return connection.Connected() &&
           connection.Send(Pack().U32(type).U32(size).S32(options.flag).Add(body)) &&
           (!options.wait || connection.WaitPeerClosed());
}

struct DeafServer::Socket {
    Descriptor descriptor;
};

DeafServer::DeafServer(std::string_view name) {
    unlink(internal::SocketPath(name).c_str());
    socket_.reset(new Socket{internal::BindSocket(SOCK_STREAM, internal::SocketPath(name))});
    if (listen(socket_->descriptor.Get(), 0) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot listen");
    }
}

DeafServer::~DeafServer() = default;

Bytes DeafServer::AcceptOne(const Bytes& reply) {
    pollfd watched{socket_->descriptor.Get(), POLLIN, 0};
    if (poll(&watched, 1, 0) != 1) {
        return {};
    }
    const Descriptor client = internal::AcceptSocket(watched.fd);
    // Who is to be answered may have got no further than to connect.
    pollfd asked{client.Get(), POLLIN, 0};
    if (!reply.empty()) {
        poll(&asked, 1, static_cast<int>(kPatience.count()));
    }
    Bytes request(4096);
    const ssize_t count = recv(client.Get(), request.data(), request.size(), MSG_DONTWAIT);
    request.resize(count > 0 ? static_cast<size_t>(count) : 0);
    internal::SendAll(client.Get(), reply.data(), reply.size());
    return request;
}

void DeafServer::Close() {
    socket_->descriptor.Reset();
}

struct FullBacklog::Connections {
    std::vector<Descriptor> waiting;
};

FullBacklog::FullBacklog(std::string_view name) : connections_(new Connections) {
    for (;;) {
        Descriptor client =
            internal::ConnectSocket(SOCK_STREAM | SOCK_NONBLOCK, internal::SocketPath(name));
        if (client.Get() < 0) {
            break;
        }
        connections_->waiting.push_back(std::move(client));
    }
    if (errno != EAGAIN) {
        throw std::system_error(errno, std::generic_category(), "nobody listens");
    }
}

FullBacklog::~FullBacklog() = default;

size_t FullBacklog::Count() const {
    return connections_->waiting.size();
}

}  // namespace vimbra::bed
