#include "messages.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace vimbra::tests {

using namespace bed;

s32 Ask(u32 type, const Bytes& body) {
    Connection connection("api_daemon");
    EXPECT_TRUE(connection.Connected());
    connection.Send(Message(type, body));
    const Bytes reply = connection.Receive(16);
    EXPECT_EQ(16u, reply.size());
    EXPECT_EQ(type, reply.U32(0));
    EXPECT_EQ(4u, reply.U32(4));
    EXPECT_TRUE(connection.WaitPeerClosed());
    return reply.S32(12);
}

std::vector<u32> Types(const std::vector<Told>& messages) {
    std::vector<u32> types;
    for (const Told& each : messages) {
        types.push_back(each.type);
    }
    return types;
}

Listener::Listener(const std::string& name)
    : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/tmp/%s", name.c_str());
    unlink(address.sun_path);
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket_, 100) != 0) {
        throw std::runtime_error("cannot listen on " + name);
    }
    thread_ = std::thread(&Listener::Run, this);
}

// Nobody listens any more when it has gone.
Listener::~Listener() {
    over_ = true;
    shutdown(socket_, SHUT_RDWR);
    thread_.join();
    close(socket_);
}

void Listener::Run() {
    while (!over_) {
        const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            continue;
        }
        // The daemon closes its end after one message.
        Bytes raw;
        u8 buffer[4096];
        for (ssize_t count; (count = read(connection, buffer, sizeof(buffer))) > 0;) {
            raw.insert(raw.end(), buffer, buffer + count);
        }
        close(connection);
        const std::lock_guard lock(mutex_);
        messages_.push_back({raw.U32(0), raw.U32(4), raw.Slice(12, raw.size())});
    }
}

std::vector<Told> Listener::Messages() const {
    const std::lock_guard lock(mutex_);
    return messages_;
}

void Listener::Forget() {
    const std::lock_guard lock(mutex_);
    messages_.clear();
}

std::vector<Told> Listener::Wait(size_t count) const {
    EXPECT_TRUE(WaitFor([&] { return Messages().size() >= count; }))
        << Messages().size() << " of " << count;
    std::vector<Told> messages = Messages();
    // A test that goes on has something to look at.
    messages.resize(std::max(messages.size(), count));
    return messages;
}

}  // namespace vimbra::tests
