// Addresses as calls of the library take them.
#ifndef VIMBRA_TESTS_GROUND_ADDRESS_HPP
#define VIMBRA_TESTS_GROUND_ADDRESS_HPP

#include <arpa/inet.h>
#include <vimbra/addr.h>

#include <cstring>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// An address of the family that its text has.
inline TVimbraAddr Address(const std::string& text) {
    const bool isIpv6 = text.find(':') != std::string::npos;
    const bed::Bytes bytes =
        bed::Pack().Address(isIpv6 ? VIMBRA_FAMILY_IPV6 : VIMBRA_FAMILY_IPV4, text.c_str());
    TVimbraAddr address;
    static_assert(sizeof(address) == 20);
    memcpy(&address, bytes.data(), sizeof(address));
    return address;
}

inline std::string TextOf(const TVimbraAddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.wSinFamily, &address.tV6Addr, text, sizeof(text));
    return text;
}

// An IPv4 address as the legacy calls take it: a number in network byte order.
inline u32 Word(const char* dotted) {
    return inet_addr(dotted);
}

}  // namespace vimbra::tests

#endif
