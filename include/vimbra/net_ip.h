/**
 * @file
 * Legacy calls for interface addresses and MTU: interfaces by number, IPv4 words in network byte
 * order. New programs use <vimbra/iface.h>.
 *
 * Each call but NetGetEthNum() is one request as <vimbra/vimbra.h> describes it; any number of
 * threads may call at once and nothing is kept between calls. Records belong to the caller.
 *
 * What the results mean:
 *   0      done; or the daemon closed without an answer, then what is read is all zero;
 *   1105   a null record, nothing was sent;
 *   1201   there is no interface of this number (0, 1 and 2 are eth0, eth1 and eth2);
 *   -1     "no answer" and "a refusal" are what they are in <vimbra/iface.h>.
 */
#ifndef VIMBRA_NET_IP_H
#define VIMBRA_NET_IP_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** One address of an interface. */
typedef struct TNetEthParam {
    u32 dwIpAdrs;    /**< address, network byte order */
    u32 dwIpMask;    /**< netmask in network byte order, or a prefix length: each call says which */
    u8 byMacAdrs[6]; /**< MAC address in transmission order */
} TNetEthParam;

/** All addresses of an interface; 260 bytes. */
typedef struct TNetEthParamAll {
    u32 dwIpNum; /**< how many entries are valid, at most VIMBRA_IFACE_IP_MAX */
    TNetEthParam atNetEthParam[VIMBRA_IFACE_IP_MAX]; /**< entries past the count are zero */
} TNetEthParamAll;

/** An address entry of the interface report; 56 bytes. */
typedef struct ir_ipaddr_param {
    char ipaddr[48]; /**< the address as text */
    u32 ipmask;      /**< prefix length */
    u32 ipflag;      /**< bit 0: not shown to the legacy readers */
} ir_ipaddr_param;

/** The addresses of the interface report; 900 bytes. */
typedef struct ir_ipaddr_param_all {
    u32 ipnum; /**< how many entries are valid, at most VIMBRA_IFACE_IP_MAX */
    ir_ipaddr_param ipaddr_param[VIMBRA_IFACE_IP_MAX]; /**< the addresses */
} ir_ipaddr_param_all;

/** What the interface report tells; 924 bytes. */
typedef struct ir_ipaddr_show_info {
    u32 mtu;                              /**< MTU in bytes */
    char mac[20];                         /**< MAC address as text, bytes separated by ':' */
    ir_ipaddr_param_all ipaddr_param_all; /**< its addresses */
} ir_ipaddr_show_info;

/** The interface report as the daemon sends it; 928 bytes. */
typedef struct api_ipaddr_show_info {
    s32 errid;                            /**< 0, or the daemon's number for its refusal */
    ir_ipaddr_show_info ipaddr_show_info; /**< the interface */
} api_ipaddr_show_info;

/** An interface as applications describe it to each other. */
typedef struct NetdevParam {
    char achIfaceName[VIMBRA_IFACE_NAME_LEN]; /**< its name */
    vimbra_bool bIfUpState;                   /**< not 0: it is up */
    u8 byMac[6];                              /**< its MAC address in transmission order */
    TVimbraIfaceAllIp tNetIfaceAllIp;         /**< its addresses */
} NetdevParam;

/** A record for the applications' own use: the library neither reads nor writes it. */
VIMBRA_API extern NetdevParam TNetdevParam;

/**
 * Asks the daemon for its report on an interface.
 *
 * @param devname  the interface's name IN A BUFFER OF AT LEAST 16 BYTES, zero-filled: all 16 are
 *                 sent as they are.
 * @param out      receives the report; NOTHING IN IT IS CHECKED, the count may be too high and the
 *                 texts unterminated. Written also when the daemon refuses.
 * @retval 0      done.
 * @retval -1     the daemon was not reached, the wait was interrupted, memory ran out, or the
 *                daemon refused.
 * @retval 1101   the request could not be written whole.
 * @retval 1102   no reply within 60 seconds.
 * @retval 1105   a null argument.
 * @retval >0     any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 apic_ipaddr_show_filter(const char* devname, api_ipaddr_show_info* out);

/**
 * Reads the first IPv4 address of an interface, its mask and its MAC address.
 *
 * A report with an address that is no IPv4 text, or with a MAC text that cannot be read, gives 0
 * all the same; what was not reached by then is zero.
 *
 * @param byEthId        0, 1 or 2.
 * @param ptNetEthParam  zeroed first; receives address and dotted mask in network byte order, both
 *                       0 where there is no address, and the MAC address.
 * @retval 0      done, or as told above.
 * @retval 1105   a null record.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer, a refusal, no memory, or a prefix length above 32 in the report.
 * @retval 1101   the request could not be written whole.
 * @retval 1102   no reply within 60 seconds.
 * @retval >0     any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 NetGetEthParam(u32 byEthId, TNetEthParam* ptNetEthParam);

/**
 * Reads all IPv4 addresses of an interface, with the interface's MAC address in each entry.
 *
 * A report with an address that is no IPv4 text, or with a MAC text that cannot be read, ends the
 * call with 0; the entries so far are filled in, dwIpNum is still 0.
 *
 * @param byEthId           0, 1 or 2.
 * @param ptNetEthParamAll  zeroed first; receives at most 16 addresses with dotted masks, network
 *                          byte order.
 * @retval 0      done, or as told above.
 * @retval 1105   a null record.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer, a refusal, no memory, or a prefix length above 32 in the report.
 * @retval 1101   the request could not be written whole.
 * @retval 1102   no reply within 60 seconds.
 * @retval >0     any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 NetGetEthParamAll(u32 byEthId, TNetEthParamAll* ptNetEthParamAll);

/**
 * Replaces all IPv4 addresses of an interface by one: VimbraIfaceSetIp().
 *
 * @param byEthId        0, 1 or 2.
 * @param byIpOrMask     1 or 4, which do the same.
 * @param ptNetEthParam  the address, with a DOTTED MASK in network byte order; 0 is prefix 0. A bit
 *                       count is refused. The MAC address is not looked at.
 * @retval 0      done.
 * @retval 1105   a null record.
 * @retval 1201   there is no such interface.
 * @retval -1     another byIpOrMask, a word that is no mask; no answer or a refusal.
 */
VIMBRA_API s32 NetSetEthParam(u32 byEthId, u32 byIpOrMask, TNetEthParam* ptNetEthParam);

/**
 * Adds an address: VimbraIfaceAddIp().
 *
 * @param byEthId        0, 1 or 2.
 * @param ptNetEthParam  the address; dwIpMask is a PREFIX LENGTH, handed on unchecked.
 * @retval 0      done.
 * @retval 1105   a null record.
 * @retval 1201   there is no such interface.
 * @retval -1     an address that no host may have; no answer or a refusal.
 */
VIMBRA_API s32 NetAddEthParamIPAndMask(u32 byEthId, TNetEthParam* ptNetEthParam);

/**
 * Deletes an address: VimbraIfaceDelIp().
 *
 * @param byEthId        0, 1 or 2.
 * @param ptNetEthParam  the address; dwIpMask is a PREFIX LENGTH, handed on unchecked.
 * @retval 0      done.
 * @retval 1105   a null record.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer or a refusal.
 */
VIMBRA_API s32 NetDelEthParamIPAndMask(u32 byEthId, TNetEthParam* ptNetEthParam);

/**
 * Deletes all IPv4 addresses of an interface: VimbraIfaceFlushIp().
 *
 * @param byEthId  0, 1 or 2.
 * @retval 0      done.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer or a refusal.
 */
VIMBRA_API s32 NetDelEthParam(u32 byEthId);

/**
 * Sets the MTU: VimbraIfaceSetMtu() for IPv4. Logs a warning to use that one.
 *
 * @param byEthId  0, 1 or 2.
 * @param dwMtu    MTU in bytes, 500 or more.
 * @retval 0      done.
 * @retval 1105   a smaller MTU.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer or a refusal.
 */
VIMBRA_API s32 NetSetMtu(u32 byEthId, u32 dwMtu);

/**
 * Reads the MTU: VimbraIfaceGetMtu(). Logs a warning to use that one.
 *
 * @param byEthId  0, 1 or 2.
 * @param pdwMtu   receives the MTU in bytes.
 * @retval 0      done.
 * @retval 1201   there is no such interface.
 * @retval -1     a null pdwMtu (not 1105), no answer, or a refusal.
 */
VIMBRA_API s32 NetGetMtu(u32 byEthId, u32* pdwMtu);

/**
 * Counts the interfaces with "eth" anywhere in their name, from /proc/net/dev.
 *
 * Names are taken where the kernel indents them, that is up to five characters: eth0 counts, and
 * so does veth3. The daemon is not asked.
 *
 * @param pnEthNum  receives the count.
 * @retval 0      done.
 * @retval -1     a null pointer, or /proc/net/dev cannot be read.
 */
VIMBRA_API s32 NetGetEthNum(s32* pnEthNum);

VIMBRA_END_DECLS

#endif
