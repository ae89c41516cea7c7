// NTP servers to be asked.
#ifndef VIMBRA_TESTS_E2E_NTP_SERVER_HPP
#define VIMBRA_TESTS_E2E_NTP_SERVER_HPP

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <vimbra/types.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

// A real one on another host, at all of its addresses, with the clock that all hosts here share.
class NtpServer {
 public:
    explicit NtpServer(const Host& host)
        : program_({"nsenter", "-t", std::to_string(host.Pid()), "-n", "chronyd", "-d", "-x", "-u",
                    "root", "local stratum 1", "allow all", "cmdport 0", "bindcmdaddress /",
                    "pidfile /tmp/server.pid"},
                   "/tmp/server.log") {
        EXPECT_TRUE(bed::WaitFor([&host] {
            const std::string sockets = host.Shell("cat /proc/net/udp /proc/net/udp6");
            return sockets.find("00000000:007B") != std::string::npos &&
                   sockets.find("00000000000000000000000000000000:007B") != std::string::npos;
        })) << program_.Output();
    }

 private:
    Program program_;
};

// The daemon here, and a second host at the other end of eth0, with a server.
class BesideAnNtpServer : public testing::Test {
 protected:
    void SetUp() override {
        Connect("eth0", host_);
        Shell("ip address add 192.0.2.1/24 dev eth0 && ip address add fd00::1/64 dev eth0 nodad");
        host_.Shell(
            "ip address add 192.0.2.2/24 dev eth0 && ip address add fd00::2/64 dev eth0 nodad");
    }

    Host host_;
    NtpServer server_{host_};
    Daemon daemon_{{"--log-level=5"}};
};

// One on this host, at 127.0.0.1 and every other IPv4 address of ours, whose clock differs from
// ours by so many seconds.
class SkewedNtpServer {
 public:
    explicit SkewedNtpServer(double skew)
        : skew_(skew), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(123);
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("no NTP server");
        }
        thread_ = std::thread(&SkewedNtpServer::Run, this);
    }
    ~SkewedNtpServer() {
        over_ = true;
        shutdown(socket_, SHUT_RDWR);
        thread_.join();
        close(socket_);
    }
    SkewedNtpServer(const SkewedNtpServer&) = delete;
    SkewedNtpServer& operator=(const SkewedNtpServer&) = delete;

    // How many questions there were.
    int Asked() const { return asked_; }

 private:
    static constexpr size_t kSize = 48;

    // Seconds since 1900 and their fraction.
    void PutTime(u8* place) const {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const double fraction = static_cast<double>(now.tv_nsec) / 1e9 + skew_;
        const double whole = std::floor(fraction);
        const u32 words[] = {
            htonl(static_cast<u32>(now.tv_sec + static_cast<s64>(whole) + 2208988800)),
            htonl(static_cast<u32>((fraction - whole) * 4294967296.0))};
        memcpy(place, words, sizeof(words));
    }

    void Run() {
        while (!over_) {
            u8 packet[kSize];
            sockaddr_in client{};
            socklen_t length = sizeof(client);
            if (recvfrom(socket_, packet, kSize, 0, reinterpret_cast<sockaddr*>(&client),
                         &length) != static_cast<ssize_t>(kSize)) {
                continue;
            }
            ++asked_;
            // The client's version; a server's answer of stratum 1.
            packet[0] = static_cast<u8>((packet[0] & 0x38) | 4);
            packet[1] = 1;
            packet[3] = static_cast<u8>(-20);
            memset(packet + 4, 0, 20);
            memcpy(packet + 24, packet + 40, 8);
            for (const size_t at : {16, 32, 40}) {
                PutTime(packet + at);
            }
            sendto(socket_, packet, kSize, 0, reinterpret_cast<const sockaddr*>(&client), length);
        }
    }

    double skew_;
    int socket_;
    std::atomic<bool> over_ = false;
    std::atomic<int> asked_ = 0;
    std::thread thread_;
};

}  // namespace vimbra::tests

#endif
