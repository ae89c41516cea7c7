/**
 * @file
 * Legacy bonding: interfaces by number. Everything that <vimbra/bond.h> says holds here too.
 */
#ifndef VIMBRA_NET_BOND_H
#define VIMBRA_NET_BOND_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** What a bond is made of; interface number N is "ethN". */
typedef struct BondParam {
    u32 adwBondId[3];  /**< numbers of the members */
    u32 dwBondIdNum;   /**< how many of them are used, 0 to 3 */
    u32 dwActiveId;    /**< number of the active member */
    char* pchBondPath; /**< as in TVimbraBondParam; the first 127 characters count */
} BondParam;

/**
 * VimbraBondStart() by interface numbers.
 *
 * @param dwBondMode   bonding mode, 0 to 6.
 * @param ptBondParam  members, active member and control path.
 * @retval 0           done, as VimbraBondStart() has it.
 * @retval 1105        as VimbraBondStart(), and for more than 3 members.
 * @retval -1          the path does not exist, or no memory for the texts.
 * @retval 1109        as VimbraBondStart().
 */
VIMBRA_API s32 NetBondStart(u32 dwBondMode, BondParam* ptBondParam);

/**
 * VimbraBondStop() under its older name.
 *
 * @retval 0   done, as VimbraBondStop() has it.
 * @retval -1  the daemon refused or was not there, the wait was interrupted, or memory ran out.
 */
VIMBRA_API s32 NetBondStop(void);

VIMBRA_END_DECLS

#endif
