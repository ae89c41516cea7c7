/**
 * @file
 * Legacy DHCP server: interfaces by number, IPv4 words in network byte order, and the leases as
 * they change. Everything that <vimbra/dhcps.h> says holds here too.
 */
#ifndef VIMBRA_NET_DHCPS_H
#define VIMBRA_NET_DHCPS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** How many leases a notification has room for. */
#define VIMBRA_DHCPS_LEASE_MAX 128

/** One lease. */
typedef struct TDhcpsMacIp {
    u32 dhcps_ip;    /**< address, network byte order */
    u8 dhcps_mac[6]; /**< MAC address of the client */
} TDhcpsMacIp;

/** All leases. */
typedef struct TNetDhcpsNotify {
    TDhcpsMacIp dhcps_mac_ip[VIMBRA_DHCPS_LEASE_MAX]; /**< entries past the count are zero */
    u32 dhcps_index;                                  /**< how many are valid, at most 28 */
} TNetDhcpsNotify;

/**
 * Told the leases whenever the server has written its lease file.
 *
 * @param dwEvent   always 0.
 * @param ptNotify  the leases; valid during the call only.
 * @return          not looked at.
 *
 * Called on a thread of the library, one for each NetDhcpsStart(), no lock being held.
 */
typedef int (*NetDhcpsNotifyCallBack)(u32 dwEvent, TNetDhcpsNotify* ptNotify);

/** The server on one interface. */
typedef struct TDhcpServerEthInfo {
    u32 dwNetMask;     /**< PREFIX LENGTH of the pool's network, 1 to 32, despite its name */
    u32 dwSubNetMask;  /**< prefix length of the interface's address */
    u32 dwIpPoolStart; /**< first address */
    u32 dwIpPoolEnd;   /**< last address */
    u32 dwRoutes;      /**< the router handed to clients, or 0 */
    u32 dwEthIp;       /**< the interface's own address */
    u32 dwEthId;       /**< the interface: N is "ethN" */
} TDhcpServerEthInfo;

/** DNS that is handed out. */
typedef struct TDhcpServerDnsInfo {
    u8 IsAssignDns;     /**< not 0: hand dwDnsIp out */
    u32 dwDnsIp;        /**< the DNS server */
    s8 achDnsName[128]; /**< not used */
} TDhcpServerDnsInfo;

/** The whole configuration. */
typedef struct TDhcpServerConfInfo {
    TDhcpServerEthInfo achTDhcpServerEthInfo[16]; /**< only the first one is used */
    u32 dwDhcpServerEthCount;                     /**< not used */
    TDhcpServerDnsInfo tTDhcpServerDnsInfo;       /**< DNS that is handed out */
} TDhcpServerConfInfo;

/** State of a server. */
typedef struct TNetDhcpsState {
    u32 dwDhcpsIsRun; /**< 1 if it runs, else 0, as the daemon tells */
} TNetDhcpsState;

/**
 * Starts the server on the first interface of the configuration, and a watch of its leases.
 *
 * The watch is a thread of this process that reads /usr/etc/udhcpd.leases whenever that is
 * modified, inotify(7), and tells the callback; it writes what it sees to standard output. Every
 * call starts one more, so that a second call doubles every callback, and none is ended by a stop:
 * a watch ends when the file is removed or replaced, or is not there at the start. It is started
 * before the daemon is asked, and stays when the daemon refuses; where it cannot be made the call
 * goes on without one, and the log tells.
 *
 * @param ptDhcpServerConfInfo  the configuration.
 * @param pfCallBack            told the leases, in place of the one before; null keeps that one.
 * @retval 0                    done.
 * @retval 1105                 as VimbraDhcpsStart().
 * @retval 1109                 as VimbraDhcpsStart().
 * @retval -1                   a null configuration.
 */
VIMBRA_API s32 NetDhcpsStart(TDhcpServerConfInfo* ptDhcpServerConfInfo,
                             NetDhcpsNotifyCallBack pfCallBack);

/**
 * VimbraDhcpsStop() of "eth" and the number, IPv4. Does not end the watches of leases.
 *
 * @param dwEthId  any number; it is formatted as a signed one.
 * @retval 0       done.
 * @retval -1      as VimbraDhcpsStop().
 */
VIMBRA_API s32 NetDhcpsStopOneEth(u32 dwEthId);

/**
 * VimbraDhcpsGetState() of a numbered interface, IPv4.
 *
 * @param dwEthId          0, 1 or 2.
 * @param ptNetdhcpsState  receives the answer; untouched unless the call returns 0.
 * @retval 0               done.
 * @retval 1105            a null record.
 * @retval 1201            there is no interface of this number.
 * @retval -1              as VimbraDhcpsGetState().
 */
VIMBRA_API s32 NetDhcpsGetState(u32 dwEthId, TNetDhcpsState* ptNetdhcpsState);

/**
 * Stops the server on every interface. Does not end the watches of leases.
 *
 * @retval 0   done, or the daemon closed without an answer.
 * @retval -1  the daemon refused, was not reached or did not answer in time, or memory ran out.
 */
VIMBRA_API s32 NetDhcpsStop(void);

VIMBRA_END_DECLS

#endif
