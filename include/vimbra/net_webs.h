/**
 * @file
 * Legacy names of the calls in <vimbra/webs.h>. Everything that it says holds here too.
 */
#ifndef VIMBRA_NET_WEBS_H
#define VIMBRA_NET_WEBS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraWebsEnable() under its older name.
 *
 * @param port   TCP port it listens on; not checked here.
 * @retval 0     done, or the daemon closed without an answer.
 * @retval -1    as VimbraWebsEnable().
 * @retval 1101  the request could not be written whole.
 * @retval 1102  no reply within 60 seconds.
 * @retval >0    any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 NetWebsEnable(s32 port);

/**
 * VimbraWebsDisable() under its older name.
 *
 * @retval 0     done, or the daemon closed without an answer.
 * @retval -1    as VimbraWebsDisable().
 * @retval 1101  the request could not be written whole.
 * @retval 1102  no reply within 60 seconds.
 * @retval >0    any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 NetWebsDisable(void);

VIMBRA_END_DECLS

#endif
