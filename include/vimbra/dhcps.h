/**
 * @file
 * The device's DHCP server, run by the network daemon per interface and family. Each call is one
 * request as <vimbra/vimbra.h> describes it, a start two, each of which may take 60 seconds.
 */
#ifndef VIMBRA_DHCPS_H
#define VIMBRA_DHCPS_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** How many DNS servers a pool hands out. */
#define VIMBRA_DHCPS_DNS_MAX 64

/** DNS servers that are handed out; 1284 bytes. */
typedef struct TVimbraDnsInfo {
    u32 dwDnsNum; /**< how many entries are valid, at most 64; not checked here */
    TVimbraAddr tDnsIp[VIMBRA_DHCPS_DNS_MAX]; /**< the servers */
} TVimbraDnsInfo;

/** An address pool. Sent to the daemon as it is; 1372 bytes. */
typedef struct TVimbraDhcpsInfo {
    TVimbraAddr tIpPoolStart;      /**< first address */
    TVimbraAddr tIpPoolEnd;        /**< last address */
    u32 dwIpPoolPrefix;            /**< prefix length of the pool's network, 1 to 32 or 1 to 128 */
    TVimbraAddr tRoutes;           /**< the router handed to clients; zero for none (IPv4) */
    TVimbraAddr tIfaceIp;          /**< the interface's own address */
    u32 dwIfacePrefix;             /**< its prefix length */
    TVimbraDnsInfo tDnsServerInfo; /**< the DNS servers handed to clients */
} TVimbraDhcpsInfo;

/** State of a server. */
typedef struct TVimbraDhcpsState {
    u32 dwDhcpsIsRun; /**< 1 if it runs, else 0, as the daemon tells */
} TVimbraDhcpsState;

/**
 * Starts the server on an interface. The daemon is asked for the interface's addresses first.
 *
 * @param pchIfaceName     the interface, at most 16 characters.
 * @param wSinFamily       VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @param ptDhcpsConfInfo  the pool.
 * @retval 0     done, or the daemon closed without an answer.
 * @retval 1105  nothing was started: a null or too long name, a null pool, another family, a pool
 *               none of whose four addresses has the family, pool start and end or pool start and
 *               router in different networks (VimbraCheckIsSameNet() with the second as gateway, so
 *               that 0.0.0.0 passes), or the interface's addresses cannot be read.
 * @retval 1109  the daemon refused, was not reached or did not answer in time, or memory ran out.
 */
VIMBRA_API s32 VimbraDhcpsStart(char* pchIfaceName, u16 wSinFamily,
                                TVimbraDhcpsInfo* ptDhcpsConfInfo);

/**
 * Stops the server on an interface.
 *
 * @param pchIfaceName  the interface, at most 16 characters.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @retval 0            done.
 * @retval 1105         a null or too long name, or another family; nothing was sent.
 * @retval -1           the daemon refused, was not reached or did not answer in time, or memory ran
 *                      out.
 */
VIMBRA_API s32 VimbraDhcpsStop(char* pchIfaceName, u16 wSinFamily);

/**
 * Does the server run on an interface?
 *
 * @param pchIfaceName     the interface, at most 16 characters.
 * @param wSinFamily       VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @param ptNetdhcpsState  receives the answer; untouched unless the call returns 0.
 * @retval 0               done; also when the daemon closed without an answer, then the state is 0.
 * @retval 1105            a null or too long name, a null record, or another family; nothing was
 *                         sent.
 * @retval -1              the daemon was not reached or did not answer in time, or memory ran out.
 */
VIMBRA_API s32 VimbraDhcpsGetState(char* pchIfaceName, u16 wSinFamily,
                                   TVimbraDhcpsState* ptNetdhcpsState);

VIMBRA_END_DECLS

#endif
