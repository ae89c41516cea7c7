/**
 * @file
 * Entry point, version, log level, interface up and down, DSCP marking, and the same-subnet check.
 * Only VimbraLogSwitch() talks to the daemon; all may be called before VimbraInit(). What holds for
 * every call stands in <vimbra/vimbra.h>.
 */
#ifndef VIMBRA_COMMON_H
#define VIMBRA_COMMON_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** States that VimbraGetIfaceState() tells. */
enum {
    VIMBRA_IFACE_UP = 1,  /**< IFF_UP is set */
    VIMBRA_IFACE_DOWN = 2 /**< it is not */
};

/**
 * Prepares the services of this process; call it once, before any service that reports back.
 * Sends nothing. Writes the version to the system log whatever the log level. A second call does
 * nothing, in a child of fork(2) too. There is no counterpart: the state lives until the process
 * ends.
 *
 * @retval 0   ready, now or before; also when memory ran out for the records of a service, whose
 *             starts then fail as before VimbraInit() (the log tells).
 * @retval -1  the version text could not be built.
 */
VIMBRA_API s32 VimbraInit(void);

/**
 * The version text, such as "Vimbras Module Version: V2.0.3.00000001 (user@host) Build date time".
 *
 * @param pchVer    receives the text with its terminator; cleared whole first.
 * @param dwBufLen  size of pchVer in bytes; 256 is always enough.
 * @retval 0        done.
 * @retval -1       a null buffer, or one without room for text and terminator: it stays cleared.
 */
VIMBRA_API s32 VimbraQueryVersion(char* pchVer, u32 dwBufLen);

/**
 * Sets the log level of this process and of the network daemon.
 *
 * @param dwSwitch  VIMBRA_LEVEL_NONE (0) to VIMBRA_LEVEL_DEBUG (5).
 * @retval 0        done, or the daemon closed without an answer.
 * @retval -1       a level above 5 (nothing is changed); or the daemon refused or was not there,
 *                  the wait was interrupted, or memory ran out. This process's level is changed all
 *                  the same, as it is with the results that follow.
 * @retval 1101     the request could not be written whole.
 * @retval 1102     no reply within 60 seconds.
 * @retval >0       any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 VimbraLogSwitch(u32 dwSwitch);

/**
 * Takes an interface down: clears IFF_UP, SIOCSIFFLAGS.
 *
 * @param pchIfaceName  its name, of which the first 15 characters count.
 * @retval 0            done.
 * @retval -1           no such interface, or no permission.
 * @retval 1105         a null name.
 */
VIMBRA_API s32 VimbraIfaceShutdown(char* pchIfaceName);

/**
 * Brings an interface up: sets IFF_UP and IFF_RUNNING, SIOCSIFFLAGS.
 *
 * @param pchIfaceName  its name, of which the first 15 characters count.
 * @retval 0            done.
 * @retval -1           no such interface, or no permission.
 * @retval 1105         a null name.
 */
VIMBRA_API s32 VimbraIfaceNoShutdown(char* pchIfaceName);

/**
 * Is an interface up? Looks at IFF_UP, SIOCGIFFLAGS; says nothing of its link.
 *
 * @param pchIfaceName  its name, of which the first 15 characters count.
 * @param pdwFlag       receives VIMBRA_IFACE_UP (1) or VIMBRA_IFACE_DOWN (2).
 * @retval 0            done.
 * @retval -1           no such interface.
 * @retval 1105         a null argument.
 */
VIMBRA_API s32 VimbraGetIfaceState(char* pchIfaceName, u32* pdwFlag);

/**
 * Marks what a socket sends with a DSCP value (RFC 2474).
 *
 * The two families differ: for IPv4 the value is shifted into the upper six bits of IP_TOS; for
 * IPv6 it is set as IPV6_TCLASS as it is, so the caller shifts it where a DSCP is meant.
 *
 * @param wSinFamily  VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @param nSockfd     the socket.
 * @param byDscp      the value.
 * @retval 0          done.
 * @retval -1         setsockopt(2) failed.
 * @retval 1105       another family.
 */
VIMBRA_API s32 VimbraSetDscp(u16 wSinFamily, s32 nSockfd, u8 byDscp);

/**
 * Do address and gateway lie in one subnet?
 *
 * An IPv4 gateway of 0.0.0.0 stands for no gateway and always does; :: has no such meaning.
 *
 * @param tIpAddr   the address.
 * @param dwPrefix  its prefix length, 1 to 32 or 1 to 128.
 * @param tGateway  the gateway.
 * @retval 0        they do.
 * @retval 1111     they do not.
 * @retval 1105     the families differ, the prefix is 0, or the family is unknown.
 * @retval -1       the prefix is too long for the family.
 */
VIMBRA_API s32 VimbraCheckIsSameNet(TVimbraAddr tIpAddr, u32 dwPrefix, TVimbraAddr tGateway);

VIMBRA_END_DECLS

#endif
