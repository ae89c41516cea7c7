/**
 * @file
 * Joining Ethernet interfaces into one bonded interface, done by the network daemon with the
 * kernel's bonding driver. Each call is one exchange with the daemon, so it may take up to 60
 * seconds.
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
 * @retval 0     done; g_dwBondIsStarted is 1.
 * @retval 1105  a mode above 6, a null record, a null path, more than 4 members, or a null member
 *               name; nothing was sent.
 * @retval -1    the path does not exist (access(2), the log tells why).
 * @retval 1109  the daemon refused or was not reached, memory ran out, or pchActiveIface is null.
 */
VIMBRA_API s32 VimbraBondStart(u32 dwBondMode, TVimbraBondParam* ptBondParam);

/**
 * Undoes the bond.
 *
 * @retval 0   done; or the daemon did not answer or took no request (the log tells), which counts
 *             as done too. g_dwBondIsStarted is 0.
 * @retval -1  the daemon refused or was not there.
 */
VIMBRA_API s32 VimbraBondStop(void);

VIMBRA_END_DECLS

#endif
