// What the tests of an interface's calls share: records, and a caller's output.
#ifndef VIMBRA_TESTS_CORE_IFACE_HPP
#define VIMBRA_TESTS_CORE_IFACE_HPP

#include <algorithm>
#include <cstring>
#include <vector>

#include "../ground/address.hpp"

namespace vimbra::tests {

inline constexpr char kSixteen[] = "abcdefghijklmnop";
inline constexpr char kSeventeen[] = "abcdefghijklmnopq";

inline TVimbraIfaceIp IfaceIp(const char* text, u32 prefix,
                              EVimbraScopeType scope = VIMBRA_SCOPE_TYPE_GLOBAL) {
    TVimbraIfaceIp ip = {};
    ip.eScopeType = scope;
    ip.dwPrefix = prefix;
    ip.tIpAddr = Address(text);
    return ip;
}

inline TVimbraIfaceAllIp AllIp(const std::vector<TVimbraIfaceIp>& list) {
    TVimbraIfaceAllIp all = {};
    all.dwIpNum = static_cast<u32>(list.size());
    std::copy(list.begin(), list.end(), all.atNetIfaceIp);
    return all;
}

inline constexpr TVimbraIfaceMac kMac = {{0x02, 0x11, 0x22, 0x33, 0x44, 0x5f}};

// A caller's output, to see whether it was written.
template <typename Record>
Record Filled() {
    Record record;
    memset(static_cast<void*>(&record), 0xA5, sizeof(record));
    return record;
}

template <typename Record>
bool IsUntouched(const Record& record) {
    const Record filled = Filled<Record>();
    return memcmp(&record, &filled, sizeof(record)) == 0;
}

}  // namespace vimbra::tests

#endif
