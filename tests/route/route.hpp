// What the tests of routes, gateways and rules share: records, their bytes, and the lines of a call.
#ifndef VIMBRA_TESTS_ROUTE_HPP
#define VIMBRA_TESTS_ROUTE_HPP

#include <gtest/gtest.h>
#include <vimbra/route.h>

#include <cstring>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

#include "../ground/address.hpp"
#include "../ground/prepared.hpp"
#include "said.hpp"

namespace vimbra::tests {

inline constexpr char kName16[] = "abcdefghijklmnop";
inline constexpr char kName17[] = "abcdefghijklmnopq";

inline TVimbraIpRouteParam Route() {
    TVimbraIpRouteParam route = {};
    strcpy(route.achIfaceName, "eth0");
    route.tDestIpNet = Address("10.1.0.0");
    route.tDestGateWay = Address("192.168.1.1");
    route.dwPrefix = 16;
    route.dwRoutePri = 100;
    return route;
}

inline TVimbraIpRouteParam Route6() {
    TVimbraIpRouteParam route = {};
    strcpy(route.achIfaceName, "eth1");
    route.tDestIpNet = Address("2001:db8::");
    route.tDestGateWay = Address("fe80::1");
    route.dwPrefix = 64;
    route.dwRoutePri = 7;
    return route;
}

inline bed::Bytes RouteBytes() {
    return bed::Pack()
        .Text("eth0", 16)
        .Address(2, "10.1.0.0")
        .Address(2, "192.168.1.1")
        .U32(16)
        .U32(100);
}

inline bed::Bytes RouteBytes6() {
    return bed::Pack()
        .Text("eth1", 16)
        .Address(10, "2001:db8::")
        .Address(10, "fe80::1")
        .U32(64)
        .U32(7);
}

inline TVimbraIpRuleParam Rule() {
    TVimbraIpRuleParam rule = {};
    rule.tFromIpNet = Address("172.16.0.0");
    rule.dwPrefix = 12;
    rule.dwPref = 500;
    rule.dwTableId = 100;
    rule.dwFwmark = 0xfeed0001;
    return rule;
}

inline bed::Bytes RuleBytes() {
    return bed::Pack().Address(2, "172.16.0.0").U32(12).U32(500).U32(100).U32(0xfeed0001);
}

// A name in a buffer of the width that the gateway get reads.
struct Name {
    explicit Name(const char* text) { strncpy(bytes, text, sizeof(bytes)); }
    char bytes[32] = {};
};

class RouteTest : public AtDaemon {
 protected:
    void ExpectNothingSent() { EXPECT_EQ(0u, daemon_.Connections()); }

    // Exactly these errors, in this order.
    struct Error {
        const char* function;
        std::string text;
    };
    void ExpectErrors(const std::vector<Error>& errors) {
        std::vector<bed::LogLine> found;
        for (const bed::LogLine& line : log_.Syslog()) {
            if (line.kind == bed::Kind::kError || line.kind == bed::Kind::kPerror) {
                found.push_back(line);
            }
        }
        ASSERT_EQ(errors.size(), found.size()) << log_.Describe();
        for (size_t i = 0; i < errors.size(); i++) {
            EXPECT_EQ(bed::Kind::kError, found[i].kind);
            EXPECT_EQ(errors[i].function, found[i].function);
            EXPECT_EQ(errors[i].text, found[i].text);
            EXPECT_TRUE(log_.Has(bed::Kind::kError, errors[i].function, errors[i].text));
        }
        log_.Clear();
    }
};

}  // namespace vimbra::tests

#endif
