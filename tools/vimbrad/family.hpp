// The address families as requests name them: 2 for IPv4, 10 for IPv6, 11 for both.
#ifndef VIMBRA_TOOLS_VIMBRAD_FAMILY_HPP
#define VIMBRA_TOOLS_VIMBRAD_FAMILY_HPP

#include <vimbra/types.h>

namespace vimbrad {

// Throws Refusal(EINVAL) for another family than 2 and 10.
void CheckOneFamily(u16 family);
// Throws Refusal(EINVAL) for another family than 2, 10 and 11.
void CheckFamily(u16 family);

// True when a request for `wanted` speaks of `family`. Throws Refusal(EINVAL) when `wanted` is no
// family.
bool Covers(u16 wanted, int family);

// "IPv4", "IPv6", "IPv4 and IPv6".
const char* FamilyTitle(u16 family);

// For programs: "ipv4", "ipv6", "both".
const char* FamilyKey(u16 family);

// One of a thing for each of the two families.
template <class Thing>
class PerFamily {
 public:
    template <class Make>
    explicit PerFamily(Make make)
        : ipv4_(make(VIMBRA_FAMILY_IPV4)), ipv6_(make(VIMBRA_FAMILY_IPV6)) {}

    // Throws Refusal(EINVAL) for another family.
    Thing& Of(u16 family) {
        CheckOneFamily(family);
        return family == VIMBRA_FAMILY_IPV4 ? ipv4_ : ipv6_;
    }

    template <class Visit>
    void ForEach(Visit visit) {
        visit(u16{VIMBRA_FAMILY_IPV4}, ipv4_);
        visit(u16{VIMBRA_FAMILY_IPV6}, ipv6_);
    }
    template <class Visit>
    void ForEach(Visit visit) const {
        visit(u16{VIMBRA_FAMILY_IPV4}, ipv4_);
        visit(u16{VIMBRA_FAMILY_IPV6}, ipv6_);
    }

 private:
    Thing ipv4_;
    Thing ipv6_;
};

}  // namespace vimbrad

#endif
