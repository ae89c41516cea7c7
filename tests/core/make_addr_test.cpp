// The addresses of sockets: MakeAddrClient and MakeAddrServer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "expect_log.hpp"
#include "transport.hpp"

namespace vimbra::tests {

using namespace bed;

namespace {

// ---- MakeAddrClient ------------------------------------------------------------------------

class Address : public testing::Test {
 protected:
    void SetUp() override { fd_ = socket(AF_UNIX, SOCK_STREAM, 0); }
    void TearDown() override { close(fd_); }
    bool IsOpen() const { return fcntl(fd_, F_GETFD) >= 0; }

    int fd_ = -1;
    sockaddr_un address_ = {};
    socklen_t length_ = 0;
};

TEST_F(Address, ClientConnectsAndTellsTheAddress) {
    ScriptedDaemon daemon("ipc_stat");
    memset(&address_, 0xA5, sizeof(address_));
    Capture log;
    EXPECT_EQ(0, MakeAddrClient(fd_, "ipc_stat", &address_, &length_));
    EXPECT_EQ(AF_UNIX, address_.sun_family);
    EXPECT_STREQ("/tmp/ipc_stat", address_.sun_path);
    EXPECT_EQ(15u, length_);
    EXPECT_TRUE(WaitFor([&] { return daemon.Connections() == 1; }));
    EXPECT_TRUE(log.IsSilent());
}

TEST_F(Address, ClientFailsWhereNobodyListens) {
    Capture log;
    EXPECT_EQ(-1, MakeAddrClient(fd_, "nobody", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ENOENT)}));
    EXPECT_TRUE(IsOpen());
}

TEST_F(Address, ClientTakes96CharactersAndRefuses97) {
    const std::string longest(96, 'n');
    ScriptedDaemon daemon(longest);
    EXPECT_EQ(0, MakeAddrClient(fd_, longest.c_str(), &address_, &length_));
    EXPECT_EQ("/tmp/" + longest, address_.sun_path);
    EXPECT_EQ(103u, length_);

    Capture log;
    for (const size_t size : {size_t{97}, size_t{102}, size_t{5000}}) {
        log.Clear();
        EXPECT_EQ(-1, MakeAddrClient(fd_, std::string(size, 'n').c_str(), &address_, &length_));
        EXPECT_TRUE(Wrote(log, {Err("MakeAddrClient", "the name is too long!")}));
    }
}

TEST_F(Address, ClientRefusesNullArguments) {
    EXPECT_EQ(-1, MakeAddrClient(fd_, nullptr, &address_, &length_));
    EXPECT_EQ(-1, MakeAddrClient(fd_, "name", nullptr, &length_));
    EXPECT_EQ(-1, MakeAddrClient(fd_, "name", &address_, nullptr));
}

TEST_F(Address, ClientFailsOnWhatIsNoSocket) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    Capture log;
    EXPECT_EQ(-1, MakeAddrClient(ends[0], "ipc_stat", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", ENOTSOCK)}));
    close(ends[0]);
    close(ends[1]);
    log.Clear();
    for (const int fd : {ends[0], -1}) {
        EXPECT_EQ(-1, MakeAddrClient(fd, "ipc_stat", &address_, &length_));
    }
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrClient", "connect error", EBADF),
                            Perr("MakeAddrClient", "connect error", EBADF)}));
}

class AddressOfFullPeer : public Address {
 protected:
    s32 Connect() { return MakeAddrClient(fd_, "ipc_stat", &address_, &length_); }
    timeval SendTimeout() const {
        timeval timeout = {};
        socklen_t size = sizeof(timeout);
        EXPECT_EQ(0, getsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &timeout, &size));
        return timeout;
    }
    void SetSendTimeout(const timeval& timeout) const {
        ASSERT_EQ(0, setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)));
    }

    DeafServer server_{"ipc_stat"};
    FullBacklog full_{"ipc_stat"};
    Capture log_;
};

TEST_F(AddressOfFullPeer, ClientThatDoesNotBlockTriesOnce) {
    ASSERT_EQ(0, fcntl(fd_, F_SETFL, O_NONBLOCK));
    EXPECT_EQ(-1, Connect());
    EXPECT_TRUE(Wrote(log_, {Perr("MakeAddrClient", "connect error", EAGAIN)}));
    EXPECT_NE(0, fcntl(fd_, F_GETFL) & O_NONBLOCK);
    server_.AcceptOne();
    EXPECT_EQ(0, Connect());
}

TEST_F(AddressOfFullPeer, ClientThatBlocksWaitsAndStaysAsItWas) {
    const int flags = fcntl(fd_, F_GETFL);
    Asking connecting([this] { return Connect(); });
    EXPECT_TRUE(connecting.WaitAsleep());
    EXPECT_FALSE(connecting.IsDone());
    server_.AcceptOne();
    EXPECT_TRUE(connecting.WaitDone());
    EXPECT_EQ(0, connecting.Result());
    EXPECT_EQ(flags, fcntl(fd_, F_GETFL));
    const timeval timeout = SendTimeout();
    EXPECT_FALSE(timerisset(&timeout));
    EXPECT_TRUE(log_.IsSilent());
}

TEST_F(AddressOfFullPeer, ClientsOwnTimeoutHoldsAndStays) {
    SetSendTimeout({0, 200000});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, Connect());
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(190));
    EXPECT_TRUE(Wrote(log_, {Perr("MakeAddrClient", "connect error", EAGAIN)}));
    EXPECT_EQ(200000, SendTimeout().tv_usec);

    SetSendTimeout({100, 0});
    server_.AcceptOne();
    EXPECT_EQ(0, Connect());
    EXPECT_EQ(100, SendTimeout().tv_sec);
}

// ---- MakeAddrServer ------------------------------------------------------------------------

TEST_F(Address, ServerListensAndTellsTheAddress) {
    memset(&address_, 0xA5, sizeof(address_));
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_EQ(AF_UNIX, address_.sun_family);
    EXPECT_STREQ("/tmp/ipc_stat", address_.sun_path);
    EXPECT_EQ(15u, length_);
    EXPECT_TRUE(HasListener("ipc_stat"));
    EXPECT_TRUE(log.IsSilent());
}

// The two address lengths name the same file.
TEST_F(Address, ClientReachesServer) {
    ASSERT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    u8 byte = 0;
    EXPECT_EQ(0, IpcCallbackSendAndRecv("ipc_stat", 1, "x", 1, nullptr, 0));
    const int peer = accept(fd_, nullptr, nullptr);
    ASSERT_GE(peer, 0);
    EXPECT_EQ(1, recv(peer, &byte, 1, 0));
    EXPECT_EQ(1, byte);
    close(peer);
}

TEST_F(Address, ServerKeepsAHundredWaiting) {
    ASSERT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    std::vector<int> clients;
    for (;;) {
        const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        clients.push_back(client);
        if (connect(client, reinterpret_cast<sockaddr*>(&address_), sizeof(address_)) != 0) {
            EXPECT_EQ(EAGAIN, errno);
            break;
        }
    }
    EXPECT_EQ(102u, clients.size());  // the kernel lets one more wait than it is told
    for (const int client : clients) {
        close(client);
    }
}

TEST_F(Address, ServerReplacesAStaleSocketFile) {
    ASSERT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    close(fd_);
    ASSERT_FALSE(HasListener("ipc_stat"));
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(HasListener("ipc_stat"));
    EXPECT_TRUE(log.IsSilent());
}

TEST_F(Address, ServerReplacesAnyFileAndABrokenLink) {
    WriteFile("/tmp/ipc_stat", "text");
    chmod("/tmp/ipc_stat", 0);
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(HasListener("ipc_stat"));

    close(fd_);
    fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, symlink("/tmp/nowhere", "/tmp/ipc_other"));
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_other", &address_, &length_));
    EXPECT_TRUE(HasListener("ipc_other"));
}

TEST_F(Address, ServerThatCannotBindClosesTheSocketAndSucceeds) {
    ASSERT_EQ(0, mkdir("/tmp/ipc_stat", 0700));
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrServer", "bind error", EADDRINUSE)}));
    EXPECT_FALSE(IsOpen());
    EXPECT_LT(accept(fd_, nullptr, nullptr), 0);
    fd_ = -1;
}

TEST_F(Address, ServerThatCannotListenClosesTheSocketAndRemovesTheFile) {
    close(fd_);
    fd_ = socket(AF_UNIX, SOCK_DGRAM, 0);
    Capture log;
    EXPECT_EQ(0, MakeAddrServer(fd_, "ipc_stat", &address_, &length_));
    EXPECT_TRUE(Wrote(log, {Perr("MakeAddrServer", "listen error!", EOPNOTSUPP)}));
    EXPECT_FALSE(IsOpen());
    EXPECT_NE(0, access("/tmp/ipc_stat", F_OK));
    fd_ = -1;
}

TEST_F(Address, ServerTakes96CharactersAndRefuses97) {
    const std::string longest(96, 'n');
    EXPECT_EQ(0, MakeAddrServer(fd_, longest.c_str(), &address_, &length_));
    EXPECT_EQ("/tmp/" + longest, address_.sun_path);
    EXPECT_EQ(103u, length_);
    EXPECT_TRUE(HasListener(longest));

    const int other = socket(AF_UNIX, SOCK_STREAM, 0);
    Capture log;
    for (const size_t size : {size_t{97}, size_t{102}, size_t{5000}}) {
        log.Clear();
        EXPECT_EQ(-1, MakeAddrServer(other, std::string(size, 'n').c_str(), &address_, &length_));
        EXPECT_TRUE(Wrote(log, {Err("MakeAddrServer", "the name is too long!")}));
    }
    EXPECT_GE(fcntl(other, F_GETFD), 0) << "the socket was closed";
    close(other);
}

TEST_F(Address, ServerRefusesNullArguments) {
    EXPECT_EQ(-1, MakeAddrServer(fd_, nullptr, &address_, &length_));
    EXPECT_EQ(-1, MakeAddrServer(fd_, "name", nullptr, &length_));
    EXPECT_EQ(-1, MakeAddrServer(fd_, "name", &address_, nullptr));
    EXPECT_TRUE(IsOpen());
}

}  // namespace
}  // namespace vimbra::tests
