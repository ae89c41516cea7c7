// DHCP on another host: real servers, one that says no when a test says so, and a real client.
#ifndef VIMBRA_TESTS_E2E_DHCP_SERVER_HPP
#define VIMBRA_TESTS_E2E_DHCP_SERVER_HPP

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vimbra/types.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

// busybox udhcpd with these lines in its configuration, serving when this returns.
inline std::unique_ptr<Program> RunUdhcpd(const Host& host, const std::string& settings) {
    bed::WriteFile("/tmp/server.conf", settings +
                                           "interface eth0\nlease_file /tmp/server.leases\n"
                                           "pidfile /tmp/server.pid\n");
    bed::WriteFile("/tmp/server.leases", "");
    auto server = std::make_unique<Program>(
        std::vector<std::string>{"nsenter", "-t", std::to_string(host.Pid()), "-n", "busybox",
                                 "udhcpd", "-f", "/tmp/server.conf"},
        "/tmp/server.log");
    EXPECT_TRUE(server->WaitOutput("started"));
    return server;
}

// busybox udhcpc, which asks so often, a second apart, until it has a lease: what it is handed out, a
// "name=value" a line, or what it complains of.
inline std::string RunUdhcpc(const Host& host, int tries = 30) {
    bed::WriteFile("/tmp/client", "#!/bin/sh\nenv | grep -E \"^(ip|mask|router|dns|lease)=\"\n");
    Shell("chmod 755 /tmp/client");
    return host.Shell("busybox udhcpc -f -q -n -t " + std::to_string(tries) +
                      " -T 1 -i eth0 -s /tmp/client 2>&1 || true");
}

// The hardware address of its eth0, as "ip" and leases write it.
inline std::string MacOf(const Host& host) {
    return host.Shell("ip -o link show eth0 | sed \"s/.*ether //; s/ .*//\"").substr(0, 17);
}

// dnsmasq for IPv6, with 2001:db8::100 for two minutes, and these DNS servers.
inline std::unique_ptr<Program> RunDnsmasq6(const Host& host, const std::string& dnsServers) {
    auto server = std::make_unique<Program>(
        std::vector<std::string>{"nsenter", "-t", std::to_string(host.Pid()), "-n", "dnsmasq",
                                 "--no-daemon", "--conf-file=/dev/null", "--port=0", "--user=root",
                                 "--group=root",
                                 "--pid-file=", "--dhcp-leasefile=/tmp/server6.leases",
                                 "--log-dhcp", "--dhcp-range=2001:db8::100,2001:db8::100,64,120",
                                 "--dhcp-option=option6:dns-server," + dnsServers},
        "/tmp/server6.log");
    EXPECT_TRUE(server->WaitOutput("DHCPv6, IP range"));
    return server;
}

// Serves 192.0.2.100/25 on eth0 of another host, which is 192.0.2.1, as RFC 2131 has it.
class DhcpServer {
 public:
    explicit DhcpServer(const Host& host) : socket_(OpenOn(host)) {
        thread_ = std::thread([this] { Serve(); });
    }
    ~DhcpServer() {
        over_ = true;
        thread_.join();
        close(socket_);
    }
    DhcpServer(const DhcpServer&) = delete;
    DhcpServer& operator=(const DhcpServer&) = delete;

    // From now on requests are refused.
    void Refuse() { refuses_ = true; }
    int Refused() const { return refused_; }

 private:
    enum : u8 { kDiscover = 1, kOffer = 2, kRequest = 3, kAck = 5, kNak = 6 };

    static constexpr size_t kYourAddress = 16;
    static constexpr size_t kOptions = 240;
    using Message = std::array<u8, 576>;

    // A socket belongs to the namespace in which it was opened, whoever uses it.
    static int OpenOn(const Host& host) {
        int opened = -1;
        std::thread([&] {
            const std::string path = "/proc/" + std::to_string(host.Pid()) + "/ns/net";
            const int there = open(path.c_str(), O_RDONLY | O_CLOEXEC);
            EXPECT_EQ(0, setns(there, CLONE_NEWNET));
            close(there);
            opened = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const int yes = 1;
            setsockopt(opened, SOL_SOCKET, SO_BROADCAST, &yes, sizeof(yes));
            EXPECT_EQ(0, setsockopt(opened, SOL_SOCKET, SO_BINDTODEVICE, "eth0", 4));
            const sockaddr_in any = Address(INADDR_ANY, 67);
            EXPECT_EQ(0, bind(opened, reinterpret_cast<const sockaddr*>(&any), sizeof(any)));
        }).join();
        return opened;
    }

    static sockaddr_in Address(in_addr_t address, u16 port) {
        sockaddr_in made{};
        made.sin_family = AF_INET;
        made.sin_addr.s_addr = htonl(address);
        made.sin_port = htons(port);
        return made;
    }

    void Serve() {
        while (!over_) {
            pollfd ready{socket_, POLLIN, 0};
            Message message{};
            if (poll(&ready, 1, 20) == 1 &&
                recv(socket_, message.data(), message.size(), 0) > ssize_t{kOptions}) {
                AnswerTo(message);
            }
        }
    }

    static u8 TypeOf(const Message& message) {
        constexpr u8 kType = 53, kEnd = 255;
        for (size_t at = kOptions; at + 2 < message.size() && message[at] != kEnd;
             at += 2 + message[at + 1]) {
            if (message[at] == kType) {
                return message[at + 2];
            }
        }
        return 0;
    }

    void AnswerTo(Message message) {
        const u8 asked = TypeOf(message);
        if (asked != kDiscover && asked != kRequest) {
            return;
        }
        const bool no = asked == kRequest && refuses_;
        message[0] = 2;
        std::fill(message.begin() + kOptions, message.end(), u8{0});
        const u8 type = asked == kDiscover ? kOffer : no ? kNak : kAck;
        const u8 always[] = {53, 1, type, 54, 4, 192, 0, 2, 1};
        const u8 ifYes[] = {51, 4, 0,   0, 14, 16, 1, 4, 255, 255, 255, 128,
                            3,  4, 192, 0, 2,  1,  6, 4, 192, 0,   2,   53};
        auto* end = std::copy(std::begin(always), std::end(always), message.begin() + kOptions);
        if (!no) {
            constexpr u8 kOurs[] = {192, 0, 2, 100};
            std::copy(std::begin(kOurs), std::end(kOurs), message.begin() + kYourAddress);
            end = std::copy(std::begin(ifYes), std::end(ifYes), end);
        }
        *end = 255;
        const sockaddr_in all = Address(INADDR_BROADCAST, 68);
        sendto(socket_, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&all),
               sizeof(all));
        refused_ += no ? 1 : 0;
    }

    int socket_;
    std::atomic<bool> refuses_ = false;
    std::atomic<int> refused_ = 0;
    std::atomic<bool> over_ = false;
    std::thread thread_;
};

}  // namespace vimbra::tests

#endif
