// What the DHCP server's lease file says.
#ifndef VIMBRA_API_1X_API_DHCPS_LEASES_HPP
#define VIMBRA_API_1X_API_DHCPS_LEASES_HPP

#include <vimbra/net_dhcps.h>

#include <span>

#include "lib/log.hpp"

namespace vimbra {

inline constexpr char kLeaseFile[] = "/usr/etc/udhcpd.leases";

// Of a longer file no more is looked at.
inline constexpr size_t kLeaseFileMax = 1023;

// Takes the leases out of a file's content. False when that is too short for a lease file.
bool ParseLeases(CallSite site, std::span<const u8> content, TNetDhcpsNotify& notify);

}  // namespace vimbra

// Receives the leases; shared by all watchers.
void StoreDhcpsCallBack(NetDhcpsNotifyCallBack callback);

// Reads the lease file and calls the callback.
void deal_func_for_dhcps();

#endif
