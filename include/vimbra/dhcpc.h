/**
 * @file
 * DHCP client: the network daemon runs udhcpc (IPv4) or udhcpc6 (IPv6) on an interface and reports
 * leases and failures, which the library hands to the application.
 *
 * A client is known by its interface name and address family, and any number may run. Each has a
 * listening thread in the application's process, on the socket /tmp/ipc_dhcpc_<interface> (IPv4) or
 * /tmp/ipc_dhcpcv6_<interface> (IPv6), which calls the application.
 *
 * Clients are kept in a list, in the order in which they were started. Stopping a client forgets
 * also those that stand before the one right before it, and all others if it was the first: they
 * are "not found" from then on, though their callbacks go on until one of the same name and family
 * is started again. Programs with several clients stop the last started first and keep an account
 * of their own.
 *
 * Interface names are at most 16 characters. Requests are as <vimbra/vimbra.h> describes them;
 * clients are started and stopped one after the other, so a start may wait for the 60 seconds of
 * another one. VimbraInit() must have been called.
 */
#ifndef VIMBRA_DHCPC_H
#define VIMBRA_DHCPC_H

#include <pthread.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** How many DNS servers a lease holds. */
#define VIMBRA_DHCPC_DNS_MAX 64

/** Events of the callback. */
enum {
    VIMBRA_DHCPC_EVENT_LEASE = 30001, /**< a lease was obtained or renewed */
    VIMBRA_DHCPC_EVENT_FAIL = 30002   /**< no lease; told once until the next lease */
};

/** A lease, as the daemon reports it; 1348 bytes. */
typedef struct VimbraDhcpcAddrInfo {
    char achDevName[VIMBRA_IFACE_NAME_LEN]; /**< interface; no terminator when all 16 are used */
    TVimbraAddr tIpAddrs;                   /**< leased address */
    TVimbraAddr tGateWay;                   /**< gateway */
    u32 dwIpPrefix;                         /**< the address's prefix, as the daemon sends it */
    u32 dwLeaseTime;                        /**< lease time, as the daemon sends it */
    u32 dwDnsNum; /**< valid entries of atDnsServer, as the daemon sends it: bound it by 64 */
    TVimbraAddr atDnsServer[VIMBRA_DHCPC_DNS_MAX]; /**< DNS servers */
} TVimbraDhcpcAddrInfo;

/** State of a client. */
typedef struct TVimbraDhcpcState {
    u32 dwDhcpcIsRun; /**< 1 while its listening thread serves, else 0 */
} TVimbraDhcpcState;

/**
 * Called with each report.
 *
 * It runs on the client's listening thread WITH THE LOCK OF THE SERVICE HELD: it must not call
 * VimbraDhcpcStart(), VimbraDhcpcStop() or VimbraDhcpcGetIfstate(), nor wait for a thread that
 * does, which would wait for ever. VimbraDhcpcRenew() and VimbraDhcpcGetLeaseInfo() are allowed.
 * While it runs, all other clients' reports and calls wait.
 *
 * @param dwMsgID  VIMBRA_DHCPC_EVENT_LEASE or VIMBRA_DHCPC_EVENT_FAIL.
 * @param ptInfo   what came with the report; the library's, valid during the call only.
 * @return not looked at.
 */
typedef int (*VimbraDhcpcNotifyCallBack)(u32 dwMsgID, struct VimbraDhcpcAddrInfo* ptInfo);

/** One client, as the library keeps it. Applications only read it. */
typedef struct DhcpClientInfo {
    struct DhcpClientInfo* ptNext; /**< next in the list */
    u16 wSinfamily;                /**< VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6 */
    vimbra_bool bDhcpcStarted;     /**< 1 while the listening thread serves and nobody stopped it */
    pthread_t DhcpcThreadID;       /**< the listening thread; 0 when it has ended */
    VimbraDhcpcNotifyCallBack pfNetDhcpcNotifyCallBack; /**< called with its reports */
    s32 nPid;                                           /**< not used: 0 */
    TVimbraDhcpcAddrInfo tDhcpcAddr; /**< last report; its achDevName is the client's name */
} TDhcpcInfo;

/**
 * Head of the list of clients; null when it is empty. VimbraInit() puts two empty records at its
 * front. Applications only read it, and only while no thread starts or stops a client.
 */
VIMBRA_API extern TDhcpcInfo* g_ptApiDhcpCInfo;

/** Prepares the service; VimbraInit() calls it. */
VIMBRA_API void DhcpcInit(void);

/**
 * Starts a DHCP client, or asks one that was started before to renew its lease.
 *
 * @param pchIfaceName     the interface.
 * @param wSinFamily       VIMBRA_FAMILY_IPV4; every other value is taken for IPv6 here and handed
 *                         to the daemon as it is.
 * @param ptDhcpcCallBack  called with every report. A client that was started before keeps the one
 *                         that it has.
 * @retval 0     started, or the daemon closed without an answer; or there is such a client, which
 *               was told to renew whether or not that was possible. A client whose listening thread
 *               has ended on an error is one too: stop it first.
 * @retval 1105  a null name or one of more than 16 characters.
 * @retval 1106  a null callback.
 * @retval 1109  the daemon was not reached, refused or did not answer in time, or memory ran out
 *               for the request. Nothing is left but a thread that ends within 10 seconds.
 * @retval -1    no memory or no thread.
 */
VIMBRA_API s32 VimbraDhcpcStart(const char* pchIfaceName, u16 wSinFamily,
                                VimbraDhcpcNotifyCallBack ptDhcpcCallBack);

/**
 * Stops a DHCP client and forgets it. Its thread ends within 10 seconds; a report that was sent
 * before the stop may still be handed on meanwhile.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @retval 0            done, or the daemon closed without an answer.
 * @retval 1105         a refused name or another family.
 * @retval -1           no such client; or the daemon was not reached, refused or did not answer in
 *                      time, or memory ran out, then the client goes on.
 */
VIMBRA_API s32 VimbraDhcpcStop(const char* pchIfaceName, u16 wSinFamily);

/**
 * Makes a client renew its lease: SIGUSR1 to its udhcpc or udhcpc6 process.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    the family.
 * @retval 0            signalled; the new lease comes as a report.
 * @retval 1108         there is no such process.
 * @retval -1           a refused name, no such client, one that does not serve, or kill(2) failed.
 */
VIMBRA_API s32 VimbraDhcpcRenew(const char* pchIfaceName, u16 wSinFamily);

/**
 * Reads a client's last report.
 *
 * @param pchIfaceName         the interface.
 * @param wSinFamily           the family.
 * @param ptNetDhcpcLeaseInfo  receives it; zero but for the name before the first report.
 * @retval 0                   done.
 * @retval -1                  a refused name, a null record, no such client, or one that does not
 *                             serve.
 */
VIMBRA_API s32 VimbraDhcpcGetLeaseInfo(const char* pchIfaceName, u16 wSinFamily,
                                       TVimbraDhcpcAddrInfo* ptNetDhcpcLeaseInfo);

/**
 * Does a client run?
 *
 * @param pchIfaceName       the interface.
 * @param wSinFamily         the family.
 * @param ptNetdhcpcIfState  receives 1, or 0 also when there is no such client.
 * @retval 0                 done.
 * @retval 1105              a refused name or a null record.
 */
VIMBRA_API s32 VimbraDhcpcGetIfstate(const char* pchIfaceName, u16 wSinFamily,
                                     TVimbraDhcpcState* ptNetdhcpcIfState);

/**
 * VimbraDhcpcRenew() is this call.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    the family.
 * @retval 0            signalled; the new lease comes as a report.
 * @retval 1108         there is no such process.
 * @retval -1           a refused name, no such client, one that does not serve, or kill(2) failed.
 */
VIMBRA_API s32 LinuxNetDhcpcRenew(const char* pchIfaceName, u16 wSinFamily);

/**
 * VimbraDhcpcGetIfstate() is this call.
 *
 * @param pchIfaceName       the interface.
 * @param wSinFamily         the family.
 * @param ptNetdhcpcIfState  receives 1, or 0 also when there is no such client.
 * @retval 0                 done.
 * @retval 1105              a refused name or a null record.
 */
VIMBRA_API s32 LinuxNetDhcpcGetState(const char* pchIfaceName, u16 wSinFamily,
                                     TVimbraDhcpcState* ptNetdhcpcIfState);

/**
 * Asks the daemon to renew a lease, on systems where the DHCP client cannot be signalled. Needs no
 * client started here.
 *
 * @param pchIfaceName  the interface.
 * @param wSinFamily    the family, handed on as it is.
 * @retval 0            done, or the daemon closed without an answer.
 * @retval -1           a refused name (nothing is sent); the daemon was not reached, refused or did
 *                      not answer in time, or memory ran out.
 */
VIMBRA_API s32 AndoridDhcpcRenew(const char* pchIfaceName, u16 wSinFamily);

/**
 * Is it one of the two families? Logs which.
 *
 * @param wSinFamily  the family.
 * @retval 0          it is VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @retval -1         it is not.
 */
VIMBRA_API s32 CheckFamily(u16 wSinFamily);

/**
 * The start request alone, without client or thread.
 *
 * @param ptDhcpcInfo  its wSinfamily and tDhcpcAddr.achDevName are sent.
 * @retval 0           done, or the daemon closed without an answer.
 * @retval -1          a null record; the daemon was not reached, refused or did not answer in time,
 *                     or memory ran out.
 */
VIMBRA_API s32 ApicDhcpcStart(const TDhcpcInfo* ptDhcpcInfo);

/**
 * The stop request alone.
 *
 * @param pchIfaceName  the interface; the first 16 characters are sent.
 * @param wSinFamily    the family.
 * @retval 0            done, or the daemon closed without an answer.
 * @retval -1           a null name; the daemon was not reached, refused or did not answer in time,
 *                      or memory ran out.
 */
VIMBRA_API s32 ApicDhcpcStop(const char* pchIfaceName, u16 wSinFamily);

/**
 * Finds a client. Takes no lock.
 *
 * @param wSinFamily    the family.
 * @param pchIfaceName  the interface, compared over 16 characters.
 * @return the client or null. It may be gone as soon as somebody stops it.
 */
VIMBRA_API TDhcpcInfo* FamilyMapDhcpcInfoExt(u16 wSinFamily, const char* pchIfaceName);

/**
 * Looks at the first two clients of the list alone. Takes no lock.
 *
 * @param wSinFamily  the family.
 * @return the first or else the second client, if it has the family; null otherwise.
 */
VIMBRA_API TDhcpcInfo* FamilyMapDhcpcInfo(u16 wSinFamily);

VIMBRA_END_DECLS

#endif
