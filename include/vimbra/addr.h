/**
 * @file
 * The address records that every service shares. They travel to and from the daemon as they are:
 * integers in host byte order, addresses in network byte order, padding zero.
 */
#ifndef VIMBRA_ADDR_H
#define VIMBRA_ADDR_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** How many addresses one interface record holds. */
#define VIMBRA_IFACE_IP_MAX 16

/** An address of one family; 20 bytes. */
typedef struct VimbraAddr {
    u16 wSinFamily; /**< VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6 */
    __extension__ union {
        struct in_addr tV4Addr;  /**< IPv4, network byte order; the other 12 bytes are zero */
        struct in6_addr tV6Addr; /**< IPv6, network byte order */
    };
} TVimbraAddr;

/** Scope of an interface address; 4 bytes. */
typedef enum EVimbraScopeType VIMBRA_ENUM32 {
    VIMBRA_SCOPE_TYPE_DEF = 0,   /**< the kernel's choice */
    VIMBRA_SCOPE_TYPE_HOST = 1,  /**< RT_SCOPE_HOST */
    VIMBRA_SCOPE_TYPE_LINK = 2,  /**< RT_SCOPE_LINK */
    VIMBRA_SCOPE_TYPE_SITE = 3,  /**< RT_SCOPE_SITE */
    VIMBRA_SCOPE_TYPE_GLOBAL = 4 /**< RT_SCOPE_UNIVERSE */
} EVimbraScopeType;

/** One address of an interface; 28 bytes. */
typedef struct TVimbraIfaceIp {
    EVimbraScopeType eScopeType; /**< how far the address is valid */
    TVimbraAddr tIpAddr;         /**< the address */
    u32 dwPrefix;                /**< prefix length in bits: 0 to 32, or 0 to 128 */
} TVimbraIfaceIp;

/** All addresses of an interface; 452 bytes. */
typedef struct TVimbraIfaceAllIp {
    u32 dwIpNum; /**< how many entries are valid, at most VIMBRA_IFACE_IP_MAX */
    TVimbraIfaceIp atNetIfaceIp[VIMBRA_IFACE_IP_MAX]; /**< entries past dwIpNum are zero */
} TVimbraIfaceAllIp;

/** A MAC address in transmission order; 6 bytes. */
typedef struct TVimbraIfaceMac {
    u8 abyMacAddr[6]; /**< the first byte is sent first */
} TVimbraIfaceMac;

VIMBRA_END_DECLS

#endif
