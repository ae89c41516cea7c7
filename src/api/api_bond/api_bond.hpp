// The requests behind the calls of <vimbra/bond.h>. The record has been checked by the caller.
#ifndef VIMBRA_API_BOND_HPP
#define VIMBRA_API_BOND_HPP

#include <vimbra/bond.h>

s32 ApicBondStart(u32 dwBondMode, const TVimbraBondParam* ptBondParam);
s32 ApicBondStop();

#endif
