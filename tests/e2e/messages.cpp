#include "messages.hpp"

#include <gtest/gtest.h>

namespace vimbra::e2e {

using namespace bed;

int32_t Ask(uint32_t type, const Bytes& body) {
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

Listener::Listener(const std::string& name) : socket_(name) {
    socket_.Default(Answer::Close());
}

std::vector<Request> Listener::Wait(size_t count) {
    EXPECT_TRUE(socket_.WaitRequests(count)) << Messages().size() << " of " << count;
    return Messages();
}

}  // namespace vimbra::e2e
