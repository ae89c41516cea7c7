/**
 * @file
 * Detection of IP and MAC conflicts: another host on the link uses an address of this device.
 *
 * One watch per address family. One application thread starts and stops them; each family's
 * callback runs on a thread of the library, one conflict at a time. VimbraInit() must have been
 * called.
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
    struct IpConfilctInfo* ptNext;
    u16 wSinFamily;         /**< VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6 */
    vimbra_bool bIsStarted; /**< the watch is on */
    TVimbraConflictCallBack pfIpConflictCB;
    pthread_t tThreadId; /**< the listening thread, 0 when none */
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
 * @retval 0          started; ALSO WHEN THE DAEMON REFUSED or was not reached: then the watch is
 * not on and only the log tells.
 * @retval -1         started before (the callback stays), before VimbraInit(), no thread, or, after
 * a refusal, the listening thread had ended before its time.
 * @retval 1105       another family.
 * @retval 1106       a null callback.
 */
VIMBRA_API s32 VimbraIpConflictCheckStart(u16 wSinFamily, TVimbraConflictCallBack ptFunc);

/**
 * Stops a family's watch. A callback that runs at this moment on another thread runs to its end.
 * The daemon is told even if the watch was never started.
 *
 * @param wSinFamily  VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @retval 0          stopped.
 * @retval -1         no daemon or a refusal (the watch goes on), before VimbraInit(), or there was
 * no listening thread to end.
 * @retval 1105       another family.
 */
VIMBRA_API s32 VimbraIpConflictCheckStop(u16 wSinFamily);

VIMBRA_END_DECLS

#endif
