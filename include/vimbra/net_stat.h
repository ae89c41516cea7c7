/**
 * @file
 * Legacy names of the calls in <vimbra/stat.h>.
 */
#ifndef VIMBRA_NET_STAT_H
#define VIMBRA_NET_STAT_H

#include <vimbra/stat.h>

VIMBRA_BEGIN_DECLS

/** VimbraStatNotifyCallbackReg() under its older name; same results. */
VIMBRA_API s32 NetStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb);

/** VimbraStatStop() under its older name; same results. */
VIMBRA_API s32 NetStatStop(void);

VIMBRA_END_DECLS

#endif
