// Two hosts and a router between them, for echo tests and traces.
#ifndef VIMBRA_TESTS_E2E_DIAG_HPP
#define VIMBRA_TESTS_E2E_DIAG_HPP

#include <gtest/gtest.h>

#include "e2e.hpp"
#include "messages.hpp"

namespace vimbra::tests {

inline constexpr u32 kPingStart = 3073;
inline constexpr u32 kPingStop = 3074;
inline constexpr u32 kTraceStart = 3329;
inline constexpr u32 kTraceStop = 3330;
inline constexpr char kPingSocket[] = "ipc_ping";
inline constexpr char kTraceSocket[] = "ipc_traceroute";

inline u16 FamilyOf(const std::string& address) {
    return address.find(':') == std::string::npos ? 2 : 10;
}

inline bed::Bytes Address(const std::string& text) {
    return bed::Pack().Address(FamilyOf(text), text.c_str());
}

struct Options {
    s32 size = 0;
    s32 timeout = 30000;  // longer than any machine is busy
    s32 ttl = 0;
    s32 count = 0;
};

inline s32 Ping(s32 id, const std::string& host, const Options& options) {
    return Ask(kPingStart, bed::Pack()
                               .Add(Address(host))
                               .S32(options.size)
                               .S32(options.timeout)
                               .S32(options.ttl)
                               .S32(options.count)
                               .S32(id));
}

inline s32 PingStop(s32 id) {
    return Ask(kPingStop, bed::Pack().S32(id));
}

inline s32 Trace(s32 id, const std::string& host, u32 hops = 0) {
    return Ask(kTraceStart, bed::Pack().Add(Address(host)).U32(hops).S32(id));
}

// This host 10.1.0.1 -- 10.1.0.254 router 10.2.0.254 -- 10.2.0.1 another host, and the same with
// fd01:: and fd02::.
class VimbradDiag : public testing::Test {
 protected:
    void SetUp() override {
        // Addresses are there at once.
        const std::string noDetection =
            "echo 0 > /proc/sys/net/ipv6/conf/default/accept_dad;"
            "echo 0 > /proc/sys/net/ipv6/conf/default/dad_transmits";
        Shell(noDetection);
        router_.Shell(noDetection);
        far_.Shell(noDetection);
        Connect("eth0", router_);
        Shell("ip link add left type veth peer name right && ip link set left netns " +
              std::to_string(router_.Pid()) + " name eth1 && ip link set right netns " +
              std::to_string(far_.Pid()) + " name eth0");
        router_.Shell("ip link set eth1 up");
        far_.Shell("ip link set eth0 up");
        router_.Shell(
            "echo 1 > /proc/sys/net/ipv4/ip_forward;"
            "echo 1 > /proc/sys/net/ipv6/conf/all/forwarding");
        Address("10.1.0.1/24", "10.1.0.254/24", "10.2.0.254/24", "10.2.0.1/24");
        Address("fd01::1/64", "fd01::fe/64", "fd02::fe/64", "fd02::1/64");
        Shell("ip route add 10.2.0.0/24 via 10.1.0.254 && ip route add fd02::/64 via fd01::fe");
        far_.Shell(
            "ip route add 10.1.0.0/24 via 10.2.0.254 && ip route add fd01::/64 via fd02::fe");
        // The first packet of a path waits for its neighbours, on a busy machine for too long.
        for (const char* host : {"10.2.0.1", "fd02::1"}) {
            Shell(std::string("for i in 1 2 3 4 5 6 7 8; do ping -c 1 -W 2 ") + host +
                  " >/dev/null && exit 0; done; exit 1");
        }
    }

    void Address(const std::string& ours, const std::string& near, const std::string& off,
                 const std::string& theirs) {
        const std::string nodad = ours.find(':') == std::string::npos ? "" : " nodad";
        Shell("ip address add " + ours + " dev eth0" + nodad);
        router_.Shell("ip address add " + near + " dev eth0" + nodad);
        router_.Shell("ip address add " + off + " dev eth1" + nodad);
        far_.Shell("ip address add " + theirs + " dev eth0" + nodad);
    }

    Host router_;
    Host far_;
};

}  // namespace vimbra::tests

#endif
