// What the tests of the daemon's PPPoE share: its requests, what it tells, and the fixture.
#ifndef VIMBRA_TESTS_E2E_PPPOE_LINK_HPP
#define VIMBRA_TESTS_E2E_PPPOE_LINK_HPP

#include <gtest/gtest.h>

#include <filesystem>

#include "../ground/pppoe_config.hpp"
#include "e2e.hpp"
#include "messages.hpp"
#include "pppd.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 0x601;
inline constexpr u32 kStop = 0x602;
inline constexpr char kSocket[] = "ipc_pppoe";
inline constexpr char kSocket6[] = "ipc_pppoe6";

inline constexpr u32 kConnected = 1;
inline constexpr u32 kLost = 2;
inline constexpr u32 kNoLink = 3;
inline constexpr u32 kRefused = 4;
inline constexpr u32 kOver = 5;

inline s32 Start(u16 family, const PppoeConfig& config = {}) {
    return Ask(kStart, config.Body(family));
}

inline s32 Stop(u16 family) {
    return Ask(kStop, bed::Pack().U16(family));
}

inline bed::Bytes Addresses(u16 family, const char* our, const char* peer, const char* dns1,
                            const char* dns2) {
    return bed::Pack()
        .Address(family, our)
        .Address(family, peer)
        .Address(family, dns1)
        .Address(family, dns2);
}

inline size_t Descriptors(pid_t pid) {
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

inline constexpr char kUp[] = "ip_up 198.51.100.7 198.51.100.1 192.0.2.53 192.0.2.54\n";
inline const bed::Bytes kUpAddresses =
    Addresses(2, "198.51.100.7", "198.51.100.1", "192.0.2.53", "192.0.2.54");
inline constexpr char kUp6[] = "ipv6_up fe80::7 fe80::1\n";
inline const bed::Bytes kUp6Addresses = Addresses(10, "fe80::7", "fe80::1", "::", "::");

class VimbradPppoe : public testing::Test {
 protected:
    void SetUp() override {
        Shell("ip link add eth0 type veth peer name peer && ip link set peer up");
    }

    Pppd pppd_{"hold"};
    Daemon daemon_{{"--log-level=5"}};
};

}  // namespace vimbra::tests

#endif
