// What the library writes into the system's files, as the system's own programs take it: resolvers
// and inetd. That a login program takes an account is tested with the accounts.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vimbra/dns.h>
#include <vimbra/service.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

using namespace bed;
using testing::HasSubstr;

namespace {

// A socket address from text, IPv4 or IPv6.
class SocketAddress {
 public:
    SocketAddress(const std::string& text, u16 port) {
        auto& v4 = reinterpret_cast<sockaddr_in&>(storage_);
        auto& v6 = reinterpret_cast<sockaddr_in6&>(storage_);
        if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
            v4.sin_family = AF_INET;
            v4.sin_port = htons(port);
        } else {
            EXPECT_EQ(1, inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr)) << text;
            v6.sin6_family = AF_INET6;
            v6.sin6_port = htons(port);
        }
    }
    int Family() const { return storage_.ss_family; }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage_); }

 private:
    sockaddr_storage storage_{};
};

// Answers every question for an IPv4 address with the same one, which tells who answered.
class NameServer {
 public:
    NameServer(const std::string& address, const std::string& answer) {
        const SocketAddress where(address, 53);
        socket_ = socket(where.Family(), SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(0, bind(socket_, where.Get(), sizeof(sockaddr_storage))) << address;
        EXPECT_EQ(0, pipe(stop_));
        EXPECT_EQ(1, inet_pton(AF_INET, answer.c_str(), &answer_));
        thread_ = std::thread([this] { Serve(); });
    }
    ~NameServer() {
        close(stop_[1]);
        thread_.join();
        close(stop_[0]);
        close(socket_);
    }
    NameServer(const NameServer&) = delete;
    NameServer& operator=(const NameServer&) = delete;

 private:
    static constexpr size_t kHead = 12;

    void Serve() {
        for (;;) {
            pollfd waits[2] = {{socket_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
            poll(waits, 2, -1);
            if (waits[1].revents != 0) {
                return;
            }
            std::vector<u8> message(512);
            sockaddr_storage from{};
            socklen_t length = sizeof(from);
            const ssize_t count = recvfrom(socket_, message.data(), message.size(), 0,
                                           reinterpret_cast<sockaddr*>(&from), &length);
            if (count <= static_cast<ssize_t>(kHead)) {
                continue;
            }
            message.resize(static_cast<size_t>(count));
            Answer(message);
            sendto(socket_, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&from),
                   length);
        }
    }

    void Answer(std::vector<u8>& message) const {
        size_t end = kHead;
        while (end < message.size() && message[end] != 0) {
            end += message[end] + 1U;
        }
        ASSERT_LE(end + 5, message.size());
        const bool isAddress = message[end + 2] == 1;
        message.resize(end + 5);
        // A response, with recursion; one question, perhaps one answer, nothing else.
        message[2] = 0x81;
        message[3] = 0x80;
        const u8 counts[] = {0, 1, 0, isAddress, 0, 0, 0, 0};
        memcpy(&message[4], counts, sizeof(counts));
        if (!isAddress) {
            return;
        }
        const u8 record[] = {0xc0, kHead, 0, 1, 0, 1, 0, 0, 0, 0, 0, 4};
        message.insert(message.end(), std::begin(record), std::end(record));
        const auto* bytes = reinterpret_cast<const u8*>(&answer_);
        message.insert(message.end(), bytes, bytes + sizeof(answer_));
    }

    int socket_ = -1;
    int stop_[2] = {-1, -1};
    in_addr answer_{};
    std::thread thread_;
};

s32 SetServers(std::string iface, u16 family, const std::vector<std::string>& texts) {
    std::vector<TVimbraAddr> servers(texts.size());
    for (size_t i = 0; i < texts.size(); i++) {
        servers[i].wSinFamily = family;
        EXPECT_EQ(1, inet_pton(family, texts[i].c_str(), &servers[i].tV6Addr));
    }
    return VimbraDNSSet(iface.data(), family, servers.data(), static_cast<u32>(servers.size()));
}

// A resolver asks for IPv4 addresses where the machine has one of its own.
void HaveAddress() {
    MakeIface("eth0");
    Shell("ip address add 198.51.100.1/24 dev eth0");
}

// What the C library's resolver finds in a process that begins now.
std::string Resolved() {
    return Shell("getent ahostsv4 device.example. | head -n 1 | cut -d ' ' -f 1");
}

TEST(LocalDns, TheServersThatWereSetAreAsked) {
    HaveAddress();
    const NameServer first("127.0.0.2", "192.0.2.2");
    const NameServer second("127.0.0.3", "192.0.2.3");
    const NameServer sixth("::1", "192.0.2.6");
    WriteFile("/etc/resolv.conf", "");

    ASSERT_EQ(0, SetServers("eth0", VIMBRA_FAMILY_IPV4, {"127.0.0.2"}));
    EXPECT_EQ("192.0.2.2\n", Resolved());
    EXPECT_THAT(Shell("busybox nslookup -type=a device.example"), HasSubstr("192.0.2.2"));

    ASSERT_EQ(0, SetServers("eth0", VIMBRA_FAMILY_IPV4, {"127.0.0.3", "127.0.0.2"}));
    EXPECT_EQ("192.0.2.3\n", Resolved());
    EXPECT_THAT(Shell("busybox nslookup -type=a device.example"), HasSubstr("192.0.2.3"));

    // A new section comes first, and leaves those of the other family and interface.
    ASSERT_EQ(0, SetServers("eth0", VIMBRA_FAMILY_IPV6, {"::1"}));
    EXPECT_EQ("192.0.2.6\n", Resolved());
    ASSERT_EQ(0, SetServers("eth1", VIMBRA_FAMILY_IPV4, {"127.0.0.2"}));
    EXPECT_EQ("192.0.2.2\n", Resolved());
    ASSERT_EQ(0, SetServers("eth1", VIMBRA_FAMILY_IPV4, {}));
    EXPECT_EQ("192.0.2.6\n", Resolved());
    ASSERT_EQ(0, SetServers("eth0", VIMBRA_FAMILY_IPV6, {}));
    EXPECT_EQ("192.0.2.3\n", Resolved());
}

TEST(LocalDns, AServerThatIsSilentIsPassedOver) {
    HaveAddress();
    const NameServer second("127.0.0.3", "192.0.2.3");
    WriteFile("/etc/resolv.conf", "");
    ASSERT_EQ(0, SetServers("eth0", VIMBRA_FAMILY_IPV4, {"127.0.0.2", "127.0.0.3"}));
    EXPECT_EQ("192.0.2.3\n", Resolved());
}

// What a service says to whoever connects; empty when nobody listens.
std::string Greeting(const std::string& address, u16 port) {
    const SocketAddress where(address, port);
    const int fd = socket(where.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string text;
    if (connect(fd, where.Get(), sizeof(sockaddr_storage)) == 0) {
        char block[64];
        for (ssize_t count; (count = read(fd, block, sizeof(block))) > 0;) {
            text.append(block, static_cast<size_t>(count));
        }
    }
    close(fd);
    return text;
}

// A device with an inetd, and a telnetd that says who it is.
class LocalInetd : public testing::Test {
 protected:
    static constexpr char kHello[] = "telnetd -i\n";

    void SetUp() override {
        // Its own service tells when it is ready to be told to look again.
        WriteFile("/etc/inetd.conf", "daytime stream tcp nowait root internal\n");
        inetd_ = std::make_unique<Program>(std::vector<std::string>{"inetd", "-i"}, "/tmp/inetd");
        ASSERT_TRUE(WaitFor([] { return !Greeting("127.0.0.1", 13).empty(); })) << inetd_->Output();
        // The system's own programs are read-only.
        ASSERT_EQ(0, mount("tmpfs", "/sbin", "tmpfs", 0, nullptr));
        WriteFile("/sbin/telnetd", "#!/bin/sh\necho \"${0##*/} $*\"\n");
        ASSERT_EQ(0, chmod("/sbin/telnetd", 0755));
    }

    s32 Start(u16 port, std::string proto) {
        std::string name = "telnetd";
        TVimbraServInfo info = {name.data(), port, proto.data(), nullptr};
        return VimbraServiceStart(&info);
    }
    s32 Stop() {
        std::string name = "telnetd";
        return VimbraServiceStop(name.data());
    }

    static bool Answers(const std::string& address, u16 port) {
        return WaitFor([&] { return Greeting(address, port) == kHello; });
    }
    static bool FallsSilent(const std::string& address, u16 port) {
        return WaitFor([&] { return Greeting(address, port).empty(); });
    }

    std::unique_ptr<Program> inetd_;
};

TEST_F(LocalInetd, AServiceAnswersWhileItIsOn) {
    EXPECT_EQ("", Greeting("127.0.0.1", 23));
    ASSERT_EQ(0, Start(23, "tcp"));
    EXPECT_TRUE(Answers("127.0.0.1", 23)) << inetd_->Output() << ReadFile("/etc/inetd.conf");
    ASSERT_EQ(0, Stop());
    EXPECT_TRUE(FallsSilent("127.0.0.1", 23)) << ReadFile("/etc/inetd.conf");
    EXPECT_TRUE(inetd_->Running());
    EXPECT_NE("", Greeting("127.0.0.1", 13));
}

TEST_F(LocalInetd, AServiceMovesToAnotherPortAndFamily) {
    ASSERT_EQ(0, Start(23, "tcp"));
    EXPECT_TRUE(Answers("127.0.0.1", 23)) << inetd_->Output();
    ASSERT_EQ(0, Start(2323, "tcp"));
    EXPECT_TRUE(Answers("127.0.0.1", 2323)) << inetd_->Output();
    EXPECT_TRUE(FallsSilent("127.0.0.1", 23));
    ASSERT_EQ(0, Start(23, "tcp6"));
    EXPECT_TRUE(Answers("::1", 23)) << inetd_->Output();
    EXPECT_TRUE(FallsSilent("127.0.0.1", 2323));
    ASSERT_EQ(0, Stop());
    EXPECT_TRUE(FallsSilent("::1", 23));
}

}  // namespace
}  // namespace vimbra::tests
