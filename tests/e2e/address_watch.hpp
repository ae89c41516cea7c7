// Every address that goes or comes from now on.
#ifndef VIMBRA_TESTS_E2E_ADDRESS_WATCH_HPP
#define VIMBRA_TESTS_E2E_ADDRESS_WATCH_HPP

#include <gtest/gtest.h>

#include <string>
#include <vimbra/bed.hpp>

#include "e2e.hpp"

namespace vimbra::tests {

class AddressWatch {
 public:
    AddressWatch() : watch_({"ip", "monitor", "address"}, kLog) {
        EXPECT_TRUE(bed::WaitFor([] {
            Shell("ip address add 10.255.255.1/32 dev lo && ip address del 10.255.255.1/32 dev lo");
            return bed::ReadFile(kLog).find("10.255.255.1") != std::string::npos;
        }));
    }

    // Those that have gone from an interface.
    static std::string DeletedOn(const std::string& iface) {
        return Shell("grep '^Deleted.*" + iface + "' " + kLog + " || true");
    }

 private:
    static constexpr char kLog[] = "/tmp/addresses.log";

    Program watch_;
};

}  // namespace vimbra::tests

#endif
