// What the tests of the conflict watch share: its records, what its callbacks take, and the fixture.
#ifndef VIMBRA_TESTS_NOTIFY_IP_CONFLICT_HPP
#define VIMBRA_TESTS_NOTIFY_IP_CONFLICT_HPP

#include <gtest/gtest.h>
#include <vimbra/common.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/net_ip_conflict.h>

#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/recorder.hpp"

namespace vimbra::tests {

inline constexpr u32 kStart = 281;
inline constexpr u32 kStop = 282;
inline constexpr char kSockets[][20] = {"ipc_ip_conflict", "ipc_ipv6_conflict"};
inline constexpr u16 kFamilies[] = {2, 10};
inline constexpr char kFunctions[][24] = {"IpConflictCBThread", "IpConflictCBThreadV6"};

struct Seen {
    u32 type = 0;
    bed::Bytes mac;
    bed::Bytes address;
};

inline Recorder<Seen> g_seen;

inline void TakeConflict(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    g_seen.Add({type, bed::AsBytes(*mac), bed::AsBytes(*address)});
}

inline void NoConflict(EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) {
    ADD_FAILURE() << "the wrong callback";
}

struct Plain {
    u32 type;
    bed::Bytes mac;
    u32 address;
};
inline Recorder<Plain> g_plain;

inline void TakePlain(u32 type, u8* mac, u32 address) {
    g_plain.Add({type, bed::Bytes(std::vector<u8>(mac, mac + 6)), address});
}

struct Extended {
    u32 type;
    TNetConflictInfo info;
};
inline Recorder<Extended> g_extended;

inline void TakeExtended(u32 type, TNetConflictInfo* info) {
    g_extended.Add({type, *info});
}

inline const bed::Bytes kMac = {2, 0, 0, 0xaa, 0xbb, 0xcc};

inline bed::Bytes Conflict(const char* name = "eth0", u16 family = 2,
                           const char* address = "192.0.2.7") {
    return bed::Pack().Text(name, 16).Address(family, address).Add(kMac);
}

class Conflicts : public testing::TestWithParam<int> {
 protected:
    Conflicts() { EXPECT_EQ(0, VimbraInit()); }

    u16 Family() const { return kFamilies[GetParam()]; }
    const char* Socket() const { return kSockets[GetParam()]; }
    const char* Function() const { return kFunctions[GetParam()]; }
    std::string Number() const { return std::to_string(Family()); }
    TIpConflictInfo* Info() const {
        return GetParam() == 0 ? g_ptIpConflictInfo : g_ptIpConflictInfo->ptNext;
    }

    // Whatever came before: the family can be used.
    void ExpectStartsAndStops() const {
        g_seen.Clear();
        EXPECT_EQ(0, VimbraIpConflictCheckStart(Family(), TakeConflict));
        EXPECT_EQ(1u, Info()->bIsStarted);
        EXPECT_TRUE(bed::Notify(Socket(), 1, Conflict()));
        EXPECT_EQ(1u, g_seen.Count());
        EXPECT_EQ(0, VimbraIpConflictCheckStop(Family()));
        EXPECT_TRUE(bed::WaitForNoListener(Socket()));
    }
};

}  // namespace vimbra::tests

#endif
