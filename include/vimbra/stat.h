/**
 * @file
 * Traffic counters of the device's interfaces, reported at an interval.
 *
 * One application thread starts and stops the service; the callback runs on a thread of the
 * library, one report at a time, on the socket /tmp/ipc_stat. Requests and callbacks are as
 * <vimbra/vimbra.h> describes them. Calls that cross are safe: starts that wait for the daemon
 * together share the service, and the callback of the one that is accepted first stays.
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
 *                    tell of. While it runs, further reports wait. It may call VimbraStatStop().
 * @retval 0          started, or the daemon closed without an answer; or started before: interval
 *                    and callback stay as they were. ALSO WITHOUT A THREAD, or without memory for
 *                    one: then no report comes, and the stop fails.
 * @retval -1         an interval of 0 or less, a null callback, the daemon was not reached, refused
 *                    or did not answer in time, or memory ran out for the request.
 */
VIMBRA_API s32 VimbraStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb);

/**
 * Stops the reports. A callback that runs at this moment on another thread, or is just beginning
 * there, runs to its end; the call does not wait for it.
 *
 * BEFORE THE START HAS RETURNED THERE IS NOTHING TO STOP: a stop from the first callbacks, while
 * VimbraStatNotifyCallbackReg() still waits for the daemon's reply, returns 0, sends nothing, and
 * the reports go on. Stop again when the start has returned.
 *
 * @retval 0   stopped, or the daemon closed without an answer; or not started.
 * @retval -1  the daemon was not reached, refused or did not answer in time, memory ran out, or the
 *             listening thread has ended before its time (the log told why): the service stays
 *             started. Also when another stop was quicker.
 */
VIMBRA_API s32 VimbraStatStop(void);

VIMBRA_END_DECLS

#endif
