// Addresses as calls of the library take them.
#ifndef VIMBRA_TESTS_GROUND_ADDRESS_HPP
#define VIMBRA_TESTS_GROUND_ADDRESS_HPP

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <vimbra/addr.h>

#include <string>

namespace vimbra::tests {

// An address of the family that its text has.
inline TVimbraAddr Address(const std::string& text) {
    TVimbraAddr address = {};
    if (inet_pton(AF_INET, text.c_str(), &address.tV4Addr) == 1) {
        address.wSinFamily = VIMBRA_FAMILY_IPV4;
    } else {
        EXPECT_EQ(1, inet_pton(AF_INET6, text.c_str(), &address.tV6Addr)) << text;
        address.wSinFamily = VIMBRA_FAMILY_IPV6;
    }
    return address;
}

// An IPv4 address as the legacy calls take it: a number in network byte order.
inline u32 Word(const char* dotted) {
    return inet_addr(dotted);
}

}  // namespace vimbra::tests

#endif
