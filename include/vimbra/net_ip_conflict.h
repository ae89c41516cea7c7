/**
 * @file
 * Legacy detection of IPv4 and MAC conflicts. Everything that <vimbra/ip_conflict.h> says holds
 * here too, and VimbraIpConflictCheckStop(2) stops it.
 *
 * The library keeps one callback of each of the two kinds, plain and extended, which a stop leaves
 * where they are. Who is told of an IPv4 conflict: the extended callback if there is one, and
 * nobody else; without one the callback of the start that was accepted, which is that of
 * VimbraIpConflictCheckStart(), or else the plain callback, if there is one.
 */
#ifndef VIMBRA_NET_IP_CONFLICT_H
#define VIMBRA_NET_IP_CONFLICT_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** A conflict as the extended callback is told it. */
typedef struct TNetConflictInfo {
    u32 byEthId;      /**< number of the interface: N of ethN, else of wlanN, else 65535 */
    u32 dwIpaddr;     /**< the IPv4 address in network byte order; 0 for a MAC conflict */
    u8 abyMacAddr[6]; /**< MAC address of the other host */
} TNetConflictInfo;

/**
 * Called for each conflict on a thread of the library.
 *
 * @param dwType     1: IP conflict, 2: MAC conflict.
 * @param pbyMac     MAC address of the other host, 6 bytes; valid during the call only.
 * @param dwIpaddr   the IPv4 address in network byte order.
 */
typedef void (*TIpConflictCallBack)(u32 dwType, u8* pbyMac, u32 dwIpaddr);

/**
 * Called for each conflict on a thread of the library, in place of every other IPv4 callback.
 *
 * @param dwType  ALWAYS 1, also for a MAC conflict, which shows by its dwIpaddr of 0.
 * @param ptInfo  the conflict; valid during the call only.
 */
typedef void (*TIpConflictCallBackEx)(u32 dwType, TNetConflictInfo* ptInfo);

/**
 * Was there a conflict? Not told this way.
 *
 * @retval 0  always.
 */
VIMBRA_API vimbra_bool NetIpOnceConflicted(void);

/**
 * Starts the IPv4 watch with a legacy callback. The callback is stored first: a second registration
 * fails with -1 but its callback counts from then on.
 *
 * @param ptFunc  the plain callback. Null forgets the plain callback: without an extended one
 *                nobody is told then, unless VimbraIpConflictCheckStart() has started the watch.
 * @retval 0      as VimbraIpConflictCheckStart() has it: also when the daemon refused.
 * @retval -1     the watch is on already, before VimbraInit(), or no thread.
 */
VIMBRA_API s32 NetIpConflictCallBackReg(TIpConflictCallBack ptFunc);

/**
 * NetIpConflictCallBackReg() of an extended callback, which goes before all others.
 *
 * @param ptFunc  the extended callback. Null forgets the extended callback and so BRINGS BACK THE
 *                OTHER ONE: the plain callback, or that of VimbraIpConflictCheckStart().
 * @retval 0      as VimbraIpConflictCheckStart() has it: also when the daemon refused.
 * @retval -1     the watch is on already, before VimbraInit(), or no thread.
 */
VIMBRA_API s32 NetIpConflictCallBackRegEx(TIpConflictCallBackEx ptFunc);

VIMBRA_END_DECLS

#endif
