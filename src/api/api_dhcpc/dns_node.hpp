// The sections of the resolver configuration in memory.
#ifndef VIMBRA_API_DNS_NODE_HPP
#define VIMBRA_API_DNS_NODE_HPP

#include <vimbra/dns.h>

// Frees a list with its head and its names. 0, or -1 for none.
s32 FreeList(DnsNode* ptList);

#endif
