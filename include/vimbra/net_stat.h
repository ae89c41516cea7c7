/**
 * @file
 * Legacy names of the calls in <vimbra/stat.h>. Everything that it says holds here too.
 */
#ifndef VIMBRA_NET_STAT_H
#define VIMBRA_NET_STAT_H

#include <vimbra/stat.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraStatNotifyCallbackReg() under its older name.
 *
 * @param nInterval   the interval, above 0, in the daemon's unit.
 * @param pfNotifyCb  called for every report.
 * @retval 0          started, now or before.
 * @retval -1         as VimbraStatNotifyCallbackReg().
 */
VIMBRA_API s32 NetStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb);

/**
 * VimbraStatStop() under its older name.
 *
 * @retval 0   stopped, or not started.
 * @retval -1  as VimbraStatStop().
 */
VIMBRA_API s32 NetStatStop(void);

VIMBRA_END_DECLS

#endif
