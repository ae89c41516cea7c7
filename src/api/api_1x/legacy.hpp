// What the legacy calls share: interfaces by number, addresses as IPv4 words.
#ifndef VIMBRA_API_1X_LEGACY_HPP
#define VIMBRA_API_1X_LEGACY_HPP

#include <vimbra/addr.h>
#include <vimbra/iface_check.h>

#include <cstdio>

#include "lib/log.hpp"

namespace vimbra {

// Runs a current call on a numbered interface; failed is the words for a number that does not
// exist.
template <typename Call>
s32 OnInterface(CallSite site, u32 number, const char* failed, Call call) {
    char name[VIMBRA_IFACE_NAME_LEN] = {};
    const s32 result = interface_name(number, name, sizeof(name));
    if (result != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "%s", failed);
        return result;
    }
    return call(name);
}

// The name of any number. Some calls take those too for which there can be no interface: the daemon
// is to refuse them.
struct EthName {
    explicit EthName(u32 number) {
        snprintf(text, sizeof(text), "eth%d", static_cast<s32>(number));
    }
    char text[VIMBRA_IFACE_NAME_LEN];
};

// The address is in network byte order.
inline TVimbraAddr Ipv4(u32 address) {
    TVimbraAddr result = {};
    result.wSinFamily = VIMBRA_FAMILY_IPV4;
    result.tV4Addr.s_addr = address;
    return result;
}

}  // namespace vimbra

#endif
