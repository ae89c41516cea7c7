// What the tests of the DHCP server share: its pools, and the calls.
#ifndef VIMBRA_TESTS_LOCAL_DHCPS_HPP
#define VIMBRA_TESTS_LOCAL_DHCPS_HPP

#include <gtest/gtest.h>
#include <vimbra/dhcps.h>

#include <string>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "files.hpp"

namespace vimbra::tests {

inline constexpr u32 kGetIp = 277;
inline constexpr u32 kStart = 0x801;
inline constexpr u32 kStop = 0x802;
inline constexpr u32 kState = 0x804;
inline constexpr u32 kStopAll = 0x805;
inline constexpr char kLeases[] = "/usr/etc/udhcpd.leases";

inline TVimbraDhcpsInfo Pool() {
    TVimbraDhcpsInfo pool = {};
    pool.tIpPoolStart = Address("192.168.1.10");
    pool.tIpPoolEnd = Address("192.168.1.99");
    pool.dwIpPoolPrefix = 24;
    pool.tRoutes = Address("192.168.1.1");
    pool.tIfaceIp = Address("192.168.1.2");
    pool.dwIfacePrefix = 23;
    pool.tDnsServerInfo.dwDnsNum = 64;
    for (u32 i = 0; i < 64; i++) {
        pool.tDnsServerInfo.tDnsIp[i] = Address("10.0.0." + std::to_string(i + 1));
    }
    return pool;
}

inline TVimbraDhcpsInfo Pool6() {
    TVimbraDhcpsInfo pool = {};
    pool.tIpPoolStart = Address("2001:db8::10");
    pool.tIpPoolEnd = Address("2001:db8::99");
    pool.dwIpPoolPrefix = 64;
    pool.tRoutes = Address("2001:db8::1");
    pool.tIfaceIp = Address("2001:db8::2");
    pool.dwIfacePrefix = 64;
    return pool;
}

inline s32 Start(std::string name, u16 family, TVimbraDhcpsInfo pool) {
    return VimbraDhcpsStart(name.data(), family, &pool);
}

inline s32 Stop(std::string name, u16 family) {
    return VimbraDhcpsStop(name.data(), family);
}

class Dhcps : public testing::Test {
 protected:
    void SetUp() override { daemon_.On(kGetIp, bed::Answer::Body(bed::Bytes(456))); }

    bed::Capture log_;
    bed::ScriptedDaemon daemon_;
};

}  // namespace vimbra::tests

#endif
