/**
 * @file
 * Addresses, MAC address and MTU of an interface, kept by the network daemon.
 *
 * Each call is one request as <vimbra/vimbra.h> describes it; any number of threads may call at
 * once and nothing is kept between calls. Records belong to the caller and are untouched unless the
 * call returns 0.
 *
 * What the results mean:
 *   0     done; or the daemon closed without an answer, then what is read is all zero;
 *   1105  an argument is refused, nothing was sent: a null interface name or one of more than 16
 *         characters, a null record, or what the call lists;
 *   -1    "no answer": the daemon was not reached, did not answer in time or sent something
 *         malformed, the wait was interrupted, or memory ran out; or "a refusal": its number is in
 *         the log, which tells all of these apart.
 */
#ifndef VIMBRA_IFACE_H
#define VIMBRA_IFACE_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/**
 * Reads an interface's addresses.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4, _IPV6 or _BOTH.
 * @param ptNetIfaceIp  receives the addresses; a count above 16 from the daemon is cut to 16.
 * @retval 0            done.
 * @retval 1105         a refused name, a null record, or another family.
 * @retval -1           no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceGetIp(char* pchIfaceName, u16 wSinFamily,
                                TVimbraIfaceAllIp* ptNetIfaceIp);

/**
 * Replaces an interface's addresses. An empty set removes them all.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    which addresses are replaced: VIMBRA_FAMILY_IPV4, _IPV6 or _BOTH.
 * @param ptNetIfaceIp  the new set: dwIpNum at most 16, scopes _DEF, _LINK or _GLOBAL. Entries past
 *                      dwIpNum are neither looked at nor sent.
 * @retval 0            done.
 * @retval 1105         a refused name, a null record, another family, a count or scope out of
 *                      range.
 * @retval -1           no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceSetIp(char* pchIfaceName, u16 wSinFamily,
                                TVimbraIfaceAllIp* ptNetIfaceIp);

/**
 * Adds one address.
 *
 * @param pchIfaceName  the interface.
 * @param ptNetIfaceIp  the address: family IPv4 or IPv6, scope _DEF or _GLOBAL.
 * @retval 0            done.
 * @retval 1105         a refused name, a null record, another family or scope.
 * @retval -1           no answer or a refusal; or an address that no host may have: IPv4 0.x,
 *                      127.x, multicast, 240.0.0.0 and above, the first or last of its classful
 *                      network; IPv6 ::, ::1, multicast.
 */
VIMBRA_API s32 VimbraIfaceAddIp(char* pchIfaceName, TVimbraIfaceIp* ptNetIfaceIp);

/**
 * Deletes one address.
 *
 * @param pchIfaceName  the interface.
 * @param ptNetIfaceIp  the address: family IPv4 or IPv6, scope _DEF or _GLOBAL.
 * @retval 0            done.
 * @retval 1105         a refused name, a null record, another family or scope.
 * @retval -1           no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceDelIp(char* pchIfaceName, TVimbraIfaceIp* ptNetIfaceIp);

/**
 * Deletes all addresses of a family.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4, _IPV6 or _BOTH.
 * @retval 0            done.
 * @retval 1105         a refused name or another family.
 * @retval -1           no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceFlushIp(char* pchIfaceName, u16 wSinFamily);

/**
 * Sets the MAC address. The value is not checked.
 *
 * @param pchIfaceName   the interface.
 * @param ptNetIfaceMac  the address.
 * @retval 0             done.
 * @retval 1105          a refused name or a null record.
 * @retval -1            no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceSetMac(char* pchIfaceName, TVimbraIfaceMac* ptNetIfaceMac);

/**
 * Reads the MAC address.
 *
 * @param pchIfaceName   the interface.
 * @param ptNetIfaceMac  receives the address.
 * @retval 0             done.
 * @retval 1105          a refused name or a null record.
 * @retval -1            no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceGetMac(char* pchIfaceName, TVimbraIfaceMac* ptNetIfaceMac);

/**
 * Sets the MTU. An interface has one: the family only decides which least value is asked for.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 (least MTU 500) or VIMBRA_FAMILY_IPV6 (1280, RFC 8200).
 * @param dwMtu         MTU in bytes; no greatest value here, the kernel has one.
 * @retval 0            done.
 * @retval 1105         a refused name, another family, or a smaller MTU.
 * @retval -1           no answer or a refusal.
 */
VIMBRA_API s32 VimbraIfaceSetMtu(char* pchIfaceName, u16 wSinFamily, u32 dwMtu);

/**
 * Reads the MTU.
 *
 * @param pchIfaceName  the interface.
 * @param pdwMtu        receives the MTU in bytes.
 * @retval 0            done.
 * @retval 1105         a refused name.
 * @retval -1           a null pdwMtu (not 1105), no answer, or a refusal.
 */
VIMBRA_API s32 VimbraIfaceGetMtu(char* pchIfaceName, u32* pdwMtu);

VIMBRA_END_DECLS

#endif
