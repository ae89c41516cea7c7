/**
 * @file
 * Joining Ethernet interfaces into one bonded interface, done by the network daemon with the
 * kernel's bonding driver. Each call is one request as <vimbra/vimbra.h> describes it.
 */
#ifndef VIMBRA_BOND_H
#define VIMBRA_BOND_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** How many interfaces a bond joins at most. */
#define VIMBRA_BOND_IFACE_MAX 4

/** What a bond is made of. The texts stay the caller's and are only read during the call. */
typedef struct TVimbraBondParam {
    char* achIface[VIMBRA_BOND_IFACE_MAX]; /**< names of the members */
    u32 dwIfaceNum;                        /**< how many of them are used, 0 to 4 */
    char* pchActiveIface;                  /**< name of the active member; required */
    char* pchBondPath; /**< the bonding driver's control file or directory; must exist */
} TVimbraBondParam;

/** 1 after a successful start, 0 after a stop; for applications to look at. */
VIMBRA_API extern u32 g_dwBondIsStarted;

/**
 * Makes the bond.
 *
 * @param dwBondMode   mode of the bonding driver: 0 balance-rr, 1 active-backup, 2 balance-xor,
 *                     3 broadcast, 4 802.3ad, 5 balance-tlb, 6 balance-alb.
 * @param ptBondParam  members, active member and control path.
 * @retval 0     done, or the daemon closed without an answer; g_dwBondIsStarted is 1.
 * @retval 1105  a mode above 6, a null record, a null path, more than 4 members, or a null member
 *               name; nothing was sent.
 * @retval -1    the path does not exist (access(2), the log tells why).
 * @retval 1109  the daemon refused, was not reached or did not answer in time, memory ran out,
 *               pchActiveIface is null, or the texts do not fit a request (3072 bytes in all).
 */
VIMBRA_API s32 VimbraBondStart(u32 dwBondMode, TVimbraBondParam* ptBondParam);

/**
 * Undoes the bond.
 *
 * @retval 0   done; or the daemon did not answer, did not answer in time or took no request (the
 *             log tells), which counts as done too. g_dwBondIsStarted is 0.
 * @retval -1  the daemon refused or was not there, the wait was interrupted, or memory ran out.
 */
VIMBRA_API s32 VimbraBondStop(void);

VIMBRA_END_DECLS

#endif
