/**
 * @file
 * DNS servers of the system: the library itself rewrites /etc/resolv.conf, resolv.conf(5); the
 * network daemon has no part in it.
 *
 * The file is kept as sections, one per interface and family, each opened by a marker line: "####"
 * and the interface name, and "v6" after it for IPv6. Setting the servers of one interface leaves
 * the other sections in place. Lines outside of sections and all that are not servers (comments,
 * search, options) do not survive a rewrite. The file is written in place: its mode, owner and
 * inode stay, a symbolic link is followed. It must exist before the first call.
 *
 * A file of more than 256 KiB, or one that is no regular file, counts as one that cannot be read.
 * No lock is taken: of two processes that set servers at the same time one may lose its section.
 */
#ifndef VIMBRA_DNS_H
#define VIMBRA_DNS_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** How many servers a section, and an answer, holds. */
#define VIMBRA_DNS_MAX 64

/** All servers of the system. */
typedef struct VimbraDnsAddrInfo {
    u32 dwDnsNum;                            /**< how many entries are valid, at most 64 */
    TVimbraAddr atDnsServer[VIMBRA_DNS_MAX]; /**< in the file's order */
} TVimbraDnsAddrInfo;

/** One section of the file. A list begins with an empty section, which stands for nothing. */
typedef struct DnsNode {
    char* pchIfaceName;                        /**< the marker line; null in the list's head */
    TVimbraAddr atDnsServerIP[VIMBRA_DNS_MAX]; /**< the servers */
    s32 nDnsNum;                               /**< how many are valid, 0 to 64 */
    struct DnsNode* next;                      /**< next section in the file's order */
} TNetDnsParam;

/**
 * Replaces the DNS servers of one interface and family.
 *
 * @param pchIfaceName  the interface, at most 16 characters.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @param atDnsIP       the servers; all carry wSinFamily.
 * @param dwNum         how many; of more than 64 the first 64 are kept. With 0 the array is not
 *                      read and the section of wSinFamily is left empty.
 * @retval 0            done.
 * @retval 1105         a null name, one of more than 16 characters or with a control character.
 * @retval -1           a null array with a count, a server of another family, another family than
 *                      the two, no memory, or the file cannot be read or written. The log tells; in
 *                      the first three cases the file was not touched.
 */
VIMBRA_API s32 VimbraDNSSet(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* atDnsIP, u32 dwNum);

/**
 * Reads the DNS servers of all interfaces and families, IPv4 and IPv6 together.
 *
 * @param atDnsIP  receives the first 64 servers in the file's order; entries past the count are
 *                 left as they were. A server line whose address cannot be read counts as a server
 *                 0.0.0.0 or ::.
 * @retval 0       done.
 * @retval -1      a null record, no memory, or the file cannot be read.
 */
VIMBRA_API s32 VimbraDNSGet(TVimbraDnsAddrInfo* atDnsIP);

/**
 * Reads the file as a list of sections.
 *
 * @return the list's empty head, or null when the file cannot be read or memory is out. The list is
 *         the caller's: each node and each pchIfaceName is given back with free(3).
 */
VIMBRA_API TNetDnsParam* ReadFromReslovconf(void);

/**
 * Puts one section into a list: in the place of the one with the same marker line, else first. The
 * family of the first server decides whether it is an IPv6 section; without servers it is an IPv4
 * one.
 *
 * @param ptDnsList     the list, with its head; a section that is replaced is freed.
 * @param pchIfaceName  the interface.
 * @param atDnsIP       the servers.
 * @param dwNum         how many; of more than 64 the first 64 are kept.
 * @retval 0            done.
 * @retval -1           a null list or name, a null array with a count, or no memory.
 */
VIMBRA_API s32 SetDnsToList(TNetDnsParam* ptDnsList, char* pchIfaceName, TVimbraAddr* atDnsIP,
                            u32 dwNum);

/**
 * Writes a list of sections to the file, which is made if it is not there.
 *
 * @param ptDnsList  the list, with its head; stays the caller's.
 * @retval 0         done.
 * @retval -1        a null list, no memory, or the file cannot be written.
 */
VIMBRA_API s32 WriteToReslovconf(TNetDnsParam* ptDnsList);

/**
 * Reads the file, puts one section into it and writes it: VimbraDNSSet() without its checks.
 *
 * @param pchIfaceName  the interface.
 * @param atDnsIP       the servers.
 * @param dwNum         how many.
 * @retval 0            done.
 * @retval -1           a step failed; the log tells which.
 */
VIMBRA_API s32 WriteToDnsConf(char* pchIfaceName, TVimbraAddr* atDnsIP, u32 dwNum);

VIMBRA_END_DECLS

#endif
