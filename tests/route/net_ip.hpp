// What the tests of the legacy interface calls share: the report and a caller's record.
#ifndef VIMBRA_TESTS_ROUTE_NET_IP_HPP
#define VIMBRA_TESTS_ROUTE_NET_IP_HPP

#include <vimbra/net_ip.h>

#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/prepared.hpp"

namespace vimbra::tests {

inline constexpr char kMacText[] = "00:11:22:aa:BB:ff";
inline const bed::Bytes kMac = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xff};
inline constexpr char kNoAddressText[] =
    "converts  the  character string src into a network address error";

struct Entry {
    std::string address;
    u32 prefix = 0;
    u32 flag = 0;
};

inline bed::Bytes Report(const std::vector<Entry>& entries, const std::string& mac = kMacText,
                         s32 code = 0) {
    bed::Pack pack;
    pack.S32(code).U32(1500).Text(mac, 20).U32(static_cast<u32>(entries.size()));
    for (const Entry& entry : entries) {
        pack.Text(entry.address, 48).U32(entry.prefix).U32(entry.flag);
    }
    return pack.FillTo(928);
}

inline bed::Bytes Param(const char* address, const char* mask, const bed::Bytes& mac = kMac) {
    return bed::Pack().In4(address).In4(mask).Add(mac).FillTo(16);
}

class NetIp : public AtDaemon {
 protected:
    NetIp() {
        memset(&one_, 0xa5, sizeof(one_));
        memset(&all_, 0xa5, sizeof(all_));
    }

    void Tell(const bed::Bytes& report) { daemon_.Default(bed::Answer::Body(report)); }

    TNetEthParam one_;
    TNetEthParamAll all_;
};

}  // namespace vimbra::tests

#endif
