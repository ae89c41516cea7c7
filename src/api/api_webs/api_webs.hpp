// The requests behind the calls of <vimbra/webs.h>.
#ifndef VIMBRA_API_WEBS_HPP
#define VIMBRA_API_WEBS_HPP

#include <vimbra/webs.h>

s32 ApicWebEnable(s32 port);
s32 ApicWebDisable();

#endif
