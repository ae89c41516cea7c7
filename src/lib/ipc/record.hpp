// What the published records of the services have in common. They name the same thing differently;
// a service whose name for it is not the usual one says so:
//
//     template <>
//     inline constexpr auto vimbra::kStartedField<TNtpcInfo> = &TNtpcInfo::bNtpcStarted;
#ifndef VIMBRA_LIB_IPC_RECORD_HPP
#define VIMBRA_LIB_IPC_RECORD_HPP

#include <vimbra/types.h>

namespace vimbra {

template <typename Info>
inline constexpr auto kFamilyField = &Info::wSinFamily;

template <typename Info>
inline constexpr auto kStartedField = &Info::bIsStarted;

template <typename Info>
u16 FamilyOf(const Info& info) {
    return info.*kFamilyField<Info>;
}

template <typename Info>
bool IsIpv4(const Info& info) {
    return FamilyOf(info) == VIMBRA_FAMILY_IPV4;
}

// Applications, and listeners, look at it without the service's lock.
template <typename Info>
bool IsStarted(const Info& info) {
    return __atomic_load_n(&(info.*kStartedField<Info>), __ATOMIC_ACQUIRE) != 0;
}

template <typename Info>
void SetStarted(Info& info, bool isStarted) {
    __atomic_store_n(&(info.*kStartedField<Info>), isStarted ? 1 : 0, __ATOMIC_RELEASE);
}

}  // namespace vimbra

#endif
