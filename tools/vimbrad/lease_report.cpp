#include "lease_report.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>

#include "address_text.hpp"
#include "netlink.hpp"

namespace vimbrad {
namespace {

u32 NumberOf(std::string_view text) {
    return static_cast<u32>(std::strtoul(std::string(text).c_str(), nullptr, 10));
}

// For a server that tells no netmask.
u32 PrefixOfClass(const TVimbraAddr& address) {
    const u32 word = ntohl(address.tV4Addr.s_addr);
    return IN_CLASSA(word) ? 8 : IN_CLASSB(word) ? 16 : 24;
}

}  // namespace

void LeaseReport::Clear() {
    lease_ = {};
    lease_.tGateWay.wSinFamily = family_;
    iface_.copy(lease_.achDevName, sizeof(lease_.achDevName));
}

bool LeaseReport::Take(std::string_view line) {
    const size_t space = std::min(line.find(' '), line.size());
    const std::string_view key = line.substr(1, space - 1);
    const std::string_view value = line.substr(std::min(space + 1, line.size()));
    if (key == "event") {
        event_ = value;
        Clear();
    } else if (key == "ip") {
        lease_.tIpAddrs = AddressOf(family_, value);
    } else if (key == "mask") {
        lease_.dwIpPrefix = value.empty() ? PrefixOfClass(lease_.tIpAddrs) : NumberOf(value);
    } else if (key == "lease") {
        lease_.dwLeaseTime = NumberOf(value);
    } else if (key == "router" && IsZero(lease_.tGateWay)) {
        lease_.tGateWay = AddressOf(family_, value);
    } else if (key == "dns" && lease_.dwDnsNum < VIMBRA_DHCPC_DNS_MAX) {
        if (const TVimbraAddr server = AddressOf(family_, value); !IsZero(server)) {
            lease_.atDnsServer[lease_.dwDnsNum++] = server;
        }
    }
    return key == "end";
}

}  // namespace vimbrad
