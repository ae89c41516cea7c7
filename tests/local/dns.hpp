// What the tests of the resolver configuration share: lists of servers, and the calls.
#ifndef VIMBRA_TESTS_LOCAL_DNS_HPP
#define VIMBRA_TESTS_LOCAL_DNS_HPP

#include <gtest/gtest.h>
#include <vimbra/dns.h>

#include <memory>
#include <string>
#include <vector>

#include "../ground/address.hpp"

namespace vimbra::tests {

inline constexpr char kConf[] = "/etc/resolv.conf";

inline std::vector<TVimbraAddr> Addresses(const std::vector<std::string>& texts) {
    std::vector<TVimbraAddr> addresses;
    for (const std::string& text : texts) {
        addresses.push_back(Address(text));
    }
    return addresses;
}

inline std::vector<TVimbraAddr> ManyAddresses(size_t count) {
    std::vector<TVimbraAddr> addresses;
    for (size_t i = 0; i < count; i++) {
        addresses.push_back(
            Address("10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256)));
    }
    return addresses;
}

inline std::string ServerLines(size_t from, size_t to) {
    std::string lines;
    for (size_t i = from; i < to; i++) {
        lines +=
            "nameserver 10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256) + "\n";
    }
    return lines;
}

inline s32 Set(std::string name, u16 family, const std::vector<std::string>& servers) {
    std::vector<TVimbraAddr> addresses = Addresses(servers);
    // Exactly as long as said: what reads past it is seen.
    return VimbraDNSSet(name.data(), family, addresses.data(), static_cast<u32>(addresses.size()));
}

inline std::vector<std::string> Get() {
    auto info = std::make_unique<TVimbraDnsAddrInfo>();
    EXPECT_EQ(0, VimbraDNSGet(info.get()));
    std::vector<std::string> servers;
    for (u32 i = 0; i < info->dwDnsNum && i < VIMBRA_DNS_MAX; i++) {
        servers.push_back(TextOf(info->atDnsServer[i]));
    }
    return servers;
}

inline void FreeSections(TNetDnsParam* section) {
    while (section != nullptr) {
        TNetDnsParam* next = section->next;
        free(section->pchIfaceName);
        free(section);
        section = next;
    }
}

using Texts = std::vector<std::string>;

}  // namespace vimbra::tests

#endif
