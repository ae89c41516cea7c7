/**
 * @file
 * Legacy DNS call: interface by number, IPv4 words. Everything that <vimbra/dns.h> says holds here
 * too.
 */
#ifndef VIMBRA_NET_DNS_H
#define VIMBRA_NET_DNS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraDNSSet() of a numbered interface, IPv4.
 *
 * @param byEthId  0, 1 or 2.
 * @param adwDns   the servers, network byte order.
 * @param dwNum    how many; more than 128 are cut to 128 with a warning, of which 64 are kept.
 * @retval 0       done.
 * @retval 1201    there is no such interface.
 * @retval -1      a negative count, a null array with a count, no memory, or the file cannot be
 *                 read or written.
 */
VIMBRA_API s32 NetDNSSetEx(u32 byEthId, u32* adwDns, s32 dwNum);

VIMBRA_END_DECLS

#endif
