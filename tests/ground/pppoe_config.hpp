// The configuration of a PPPoE link as it goes over the wire.
#ifndef VIMBRA_TESTS_GROUND_PPPOE_CONFIG_HPP
#define VIMBRA_TESTS_GROUND_PPPOE_CONFIG_HPP

#include <vimbra/types.h>

#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

struct PppoeConfig {
    std::string user = "me@isp";
    std::string password = "secret";
    u32 autoDial = 0;
    u32 defaultRoute = 0;
    u32 debug = 0;
    u32 retrySeconds = 0;
    u32 echoInterval = 20;
    u32 echoFailure = 3;
    u32 maxFail = 0;
    std::string device = "eth0";

    [[nodiscard]] bed::Bytes Body(u16 family) const {
        return bed::Pack()
            .U16(family)
            .Text(user, 255)
            .Text(password, 255)
            .Zeros(255)
            .U32(autoDial)
            .U32(defaultRoute)
            .U32(debug)
            .U32(retrySeconds)
            .U32(echoInterval)
            .U32(echoFailure)
            .U32(maxFail)
            .Text(device, 16);
    }
};

}  // namespace vimbra::tests

#endif
