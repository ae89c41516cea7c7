#include "family.hpp"

#include <cerrno>

#include "refusal.hpp"

namespace vimbrad {

void CheckOneFamily(u16 family) {
    if (family != VIMBRA_FAMILY_IPV4 && family != VIMBRA_FAMILY_IPV6) {
        throw Refusal(EINVAL, "no such address family");
    }
}

void CheckFamily(u16 family) {
    if (family != VIMBRA_FAMILY_BOTH) {
        CheckOneFamily(family);
    }
}

bool Covers(u16 wanted, int family) {
    CheckFamily(wanted);
    if (wanted == VIMBRA_FAMILY_BOTH) {
        return family == VIMBRA_FAMILY_IPV4 || family == VIMBRA_FAMILY_IPV6;
    }
    return family == wanted;
}

const char* FamilyTitle(u16 family) {
    return family == VIMBRA_FAMILY_BOTH   ? "IPv4 and IPv6"
           : family == VIMBRA_FAMILY_IPV4 ? "IPv4"
                                          : "IPv6";
}

const char* FamilyKey(u16 family) {
    return family == VIMBRA_FAMILY_BOTH ? "both" : family == VIMBRA_FAMILY_IPV4 ? "ipv4" : "ipv6";
}

}  // namespace vimbrad
