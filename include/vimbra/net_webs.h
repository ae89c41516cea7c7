/**
 * @file
 * Legacy names of the calls in <vimbra/webs.h>.
 */
#ifndef VIMBRA_NET_WEBS_H
#define VIMBRA_NET_WEBS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** VimbraWebsEnable() under its older name; same results. @param port TCP port, not checked. */
VIMBRA_API s32 NetWebsEnable(s32 port);

/** VimbraWebsDisable() under its older name; same results. */
VIMBRA_API s32 NetWebsDisable(void);

VIMBRA_END_DECLS

#endif
