/**
 * @file
 * Traffic counters of the device's interfaces, reported at an interval.
 *
 * One application thread starts and stops the service; the callback runs on a thread of the
 * library, one report at a time.
 */
#ifndef VIMBRA_STAT_H
#define VIMBRA_STAT_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** Counters of one interface since the system counts. */
typedef struct TNetDevStat {
    u32 byEthId;      /**< the interface's number: 0, 1, 2 for eth0, eth1, eth2 */
    u64 dwBandSended; /**< bytes sent */
    u64 dwBandRecved; /**< bytes received */
} TNetDevStat;

/**
 * Called with the interfaces of one report.
 *
 * @param ptStat  dwNum records in ascending order of their numbers; valid during the call only.
 * @param dwNum   1 to 3.
 */
typedef void (*TDevStatNotifyCallBack)(TNetDevStat* ptStat, u32 dwNum);

/**
 * Starts the reports.
 *
 * @param nInterval   the interval, above 0, in the daemon's unit.
 * @param pfNotifyCb  called on a thread of the library for every report that has an interface to
 * tell of. While it runs, further reports wait. It may call VimbraStatStop().
 * @retval 0          started; or started before: interval and callback stay as they were.
 * @retval -1         an interval of 0 or less, a null callback, no daemon, or the daemon refused.
 */
VIMBRA_API s32 VimbraStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb);

/**
 * Stops the reports. A callback that runs at this moment on another thread runs to its end.
 *
 * @retval 0   stopped, or not started.
 * @retval -1  no daemon, the daemon refused, or the listening thread has ended before its time (the
 *             log told why): the service stays started.
 */
VIMBRA_API s32 VimbraStatStop(void);

VIMBRA_END_DECLS

#endif
