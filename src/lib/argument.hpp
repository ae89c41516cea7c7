// Checks of arguments that many calls make.
#ifndef VIMBRA_LIB_ARGUMENT_HPP
#define VIMBRA_LIB_ARGUMENT_HPP

#include <vimbra/types.h>

#include <cstring>

#include "lib/log.hpp"

namespace vimbra {

// Every call that takes an interface name wants one of at most 16 characters.
inline bool IsIfaceName(const char* name) {
    return name != nullptr && strnlen(name, VIMBRA_IFACE_NAME_LEN + 1) <= VIMBRA_IFACE_NAME_LEN;
}

// The same, with the words that most calls have for it.
inline bool CheckName(CallSite site, const char* name) {
    if (IsIfaceName(name)) {
        return true;
    }
    VLOG_ERROR_AT(site, "pchIfaceName is invalid!");
    return false;
}

// The number under which an application knows one of its runs.
inline bool CheckUserId(CallSite site, s32 userId) {
    if (userId > 0) {
        return true;
    }
    VLOG_ERROR_AT(site, "the nUserID must be more than 0!");
    return false;
}

// One of the two; some calls take VIMBRA_FAMILY_BOTH besides.
inline bool IsOneFamily(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 || family == VIMBRA_FAMILY_IPV6;
}

}  // namespace vimbra

#endif
