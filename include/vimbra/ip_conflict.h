/**
 * @file
 * Detection of IP and MAC conflicts: another host on the link uses an address of this device.
 *
 * One watch per address family. One application thread starts and stops them; each family's
 * callback runs on a thread of the library, one conflict at a time, on the socket
 * /tmp/ipc_ip_conflict (IPv4) or /tmp/ipc_ipv6_conflict (IPv6). VimbraInit() must have been called.
 *
 * Requests and callbacks are as <vimbra/vimbra.h> describes them, but for one thing: a daemon that
 * closes without an answer, or takes no data, counts as one that refused. Calls that cross are
 * safe: starts of one family that wait for the daemon together share the watch, and the callback of
 * the one that is accepted first stays; a stop ends the watch for all of them.
 */
#ifndef VIMBRA_IP_CONFLICT_H
#define VIMBRA_IP_CONFLICT_H

#include <pthread.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** Kinds of conflict; 4 bytes. */
typedef enum IP_CONFLICT_TYPE VIMBRA_ENUM32 {
    VIMBRA_IP_CONFLICT = 1, /**< another host uses one of our IP addresses */
    VIMBRA_MAC_CONFLICT = 2 /**< another host uses our MAC address */
} EVimbraConflictType;

/**
 * Called for each conflict. What the pointers lead to is valid during the call only.
 *
 * @param eType       the kind.
 * @param ptIfaceMac  MAC address of the other host.
 * @param ptIpAddr    the address in conflict.
 */
typedef void (*TVimbraConflictCallBack)(EVimbraConflictType eType, TVimbraIfaceMac* ptIfaceMac,
                                        TVimbraAddr* ptIpAddr);

/** State of one family's watch; owned by the library, to be looked at only. */
typedef struct IpConfilctInfo {
    struct IpConfilctInfo* ptNext;          /**< next family's, or null */
    u16 wSinFamily;                         /**< VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6 */
    vimbra_bool bIsStarted;                 /**< the watch is on */
    TVimbraConflictCallBack pfIpConflictCB; /**< called for each conflict; null when off */
    pthread_t tThreadId;                    /**< the listening thread, 0 when none */
} TIpConflictInfo;

/** The watches, IPv4 then IPv6; null before VimbraInit(). */
extern VIMBRA_API TIpConflictInfo* g_ptIpConflictInfo;

/** Prepares the watches; VimbraInit() calls it. A second call does nothing. */
VIMBRA_API void IpConflictCheckInit(void);

/**
 * Starts a family's watch.
 *
 * @param wSinFamily  VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @param ptFunc      called on a thread of the library for every conflict; it may stop the watch.
 * @retval 0          started; ALSO WHEN THE DAEMON REFUSED, was not reached or did not answer, or
 *                    memory ran out for the request: then the watch is not on and only the log
 *                    tells. Also when a stop came before the reply: then the watch is off again.
 * @retval -1         started before (the callback stays), before VimbraInit(), no thread or no
 *                    memory for one, or, after a refusal, the listening thread had ended before its
 *                    time.
 * @retval 1105       another family.
 * @retval 1106       a null callback.
 */
VIMBRA_API s32 VimbraIpConflictCheckStart(u16 wSinFamily, TVimbraConflictCallBack ptFunc);

/**
 * Stops a family's watch. A callback that runs at this moment on another thread, or is just
 * beginning there, runs to its end; the call does not wait for it. The daemon is told even if the
 * watch was never started. It may be called from the callback, also before the start has returned.
 *
 * @param wSinFamily  VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @retval 0          stopped.
 * @retval -1         the daemon was not reached, did not answer or refused, or memory ran out (the
 *                    watch goes on); before VimbraInit(); or there was no listening thread to end:
 *                    A WATCH WHOSE THREAD ENDED BEFORE ITS TIME STAYS STARTED.
 * @retval 1105       another family.
 */
VIMBRA_API s32 VimbraIpConflictCheckStop(u16 wSinFamily);

VIMBRA_END_DECLS

#endif
