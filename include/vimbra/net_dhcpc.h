/**
 * @file
 * Legacy DHCP client: IPv4 on numbered interfaces. Everything that <vimbra/dhcpc.h> says holds here
 * too. Addresses are IPv4 words in network byte order.
 */
#ifndef VIMBRA_NET_DHCPC_H
#define VIMBRA_NET_DHCPC_H

#include <vimbra/dhcpc.h>

VIMBRA_BEGIN_DECLS

/** A report. */
typedef struct TNetDhcpcNotify {
    u32 byEthId;   /**< always 0, whatever the interface */
    u32 dwIpAddrs; /**< leased address */
    u32 dwMask;    /**< the PREFIX as the daemon sends it, not a dotted mask */
    u32 dwGateWay; /**< gateway */
    u32 dwDnsNum;  /**< valid entries of dwDnsServer, at most 64 */
    u32 dwDnsServer[VIMBRA_DHCPC_DNS_MAX]; /**< DNS servers */
} TNetDhcpcNotify;

/**
 * A lease by its older shape, which no call fills: NetDhcpcGetLeaseInfo() writes the current record
 * over it.
 */
typedef struct TNetDhcpcLeaseInfo {
    u32 byEthId;                           /**< not filled */
    u32 dwIpAddrs;                         /**< not filled */
    u32 dwMask;                            /**< not filled */
    u32 dwGateWay;                         /**< not filled */
    u32 dwLeaseInfo;                       /**< not filled */
    u32 dwDnsNum;                          /**< not filled */
    u32 dwDnsServer[VIMBRA_DHCPC_DNS_MAX]; /**< not filled */
} TNetDhcpcLeaseInfo;

/** Memory for NetDhcpcGetLeaseInfo(): as large as what it writes. Read tLease. */
typedef union TNetDhcpcLeaseBuffer {
    TNetDhcpcLeaseInfo tLegacy;  /**< whose address is handed in */
    TVimbraDhcpcAddrInfo tLease; /**< what is found there afterwards */
} TNetDhcpcLeaseBuffer;

/** State of a client. */
typedef struct TNetDhcpcState {
    u32 dwDhcpcIsRun; /**< 1 while its listening thread serves, else 0 */
} TNetDhcpcState;

/**
 * Called with each report, as VimbraDhcpcNotifyCallBack is: with the lock of the service held.
 *
 * @param dwMsgID   VIMBRA_DHCPC_EVENT_LEASE or VIMBRA_DHCPC_EVENT_FAIL.
 * @param ptNotify  the report; valid during the call only.
 * @return not looked at.
 */
typedef int (*NetDhcpcNotifyCallBack)(u32 dwMsgID, TNetDhcpcNotify* ptNotify);

/**
 * VimbraDhcpcStart() for IPv4 on "eth<number>".
 *
 * @param byEthId          any number; it is formatted as a signed one.
 * @param ptDhcpcCallBack  called with the reports of ALL clients that were started here: the
 *                         library keeps one, and each start replaces it, also a start that fails.
 *                         Null: no reports.
 * @param bSetDefautGate   not looked at.
 * @retval 0               as VimbraDhcpcStart().
 * @retval 1109            the daemon was not reached, refused or did not answer in time, or memory
 *                         ran out for the request.
 * @retval -1              no memory or no thread.
 */
VIMBRA_API s32 NetDhcpcStart(u32 byEthId, NetDhcpcNotifyCallBack ptDhcpcCallBack,
                             vimbra_bool bSetDefautGate);

/**
 * VimbraDhcpcStop() for IPv4 on "eth<number>".
 *
 * @param byEthId  any number; it is formatted as a signed one.
 * @retval 0       done.
 * @retval -1      as VimbraDhcpcStop().
 */
VIMBRA_API s32 NetDhcpcStop(u32 byEthId);

/**
 * VimbraDhcpcRenew() for IPv4 on a numbered interface.
 *
 * @param byEthId  0, 1 or 2.
 * @retval 0       signalled; the new lease comes as a report.
 * @retval 1108    there is no DHCP client process.
 * @retval 1201    there is no interface of this number.
 * @retval -1      as VimbraDhcpcRenew().
 */
VIMBRA_API s32 NetDhcpcRenew(u32 byEthId);

/**
 * VimbraDhcpcGetLeaseInfo() for IPv4 on a numbered interface.
 *
 * @param byEthId              0, 1 or 2.
 * @param ptNetDhcpcLeaseInfo  memory of AT LEAST 1348 BYTES, MORE THAN THE RECORD OF ITS TYPE HAS:
 *                             A WHOLE TVimbraDhcpcAddrInfo IS WRITTEN THERE, IN THAT LAYOUT.
 *                             Declare a TNetDhcpcLeaseBuffer, hand in &buffer.tLegacy and read
 *                             buffer.tLease.
 * @retval 0                   done.
 * @retval 1201                there is no interface of this number.
 * @retval -1                  as VimbraDhcpcGetLeaseInfo().
 */
VIMBRA_API s32 NetDhcpcGetLeaseInfo(u32 byEthId, TNetDhcpcLeaseInfo* ptNetDhcpcLeaseInfo);

/**
 * VimbraDhcpcGetIfstate() for IPv4 on a numbered interface.
 *
 * @param byEthId            0, 1 or 2.
 * @param ptNetdhcpcIfState  receives the state.
 * @retval 0                 done.
 * @retval 1105              a null record.
 * @retval 1201              there is no interface of this number.
 */
VIMBRA_API s32 NetDhcpcGetIfstate(u32 byEthId, TNetDhcpcState* ptNetdhcpcIfState);

VIMBRA_END_DECLS

#endif
