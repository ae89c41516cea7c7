// The sections of the resolver configuration in memory.
#ifndef VIMBRA_API_DHCPC_DNS_NODE_HPP
#define VIMBRA_API_DHCPC_DNS_NODE_HPP

#include <vimbra/dns.h>

// Frees a list with its head and its names; null is taken.
void FreeList(DnsNode* ptList);

#endif
