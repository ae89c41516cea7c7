/**
 * @file
 * Legacy bonding: interfaces by number.
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
 * @retval 1105        also for more than 3 members.
 * @retval -1          also when memory runs out. Other results as VimbraBondStart().
 */
VIMBRA_API s32 NetBondStart(u32 dwBondMode, BondParam* ptBondParam);

/** VimbraBondStop() under its older name; same results. */
VIMBRA_API s32 NetBondStop(void);

VIMBRA_END_DECLS

#endif
