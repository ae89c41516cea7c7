/**
 * @file
 * Legacy echo tests: IPv4 words, and one callback for all tests of the process. Everything that
 * <vimbra/ping.h> says holds here too.
 */
#ifndef VIMBRA_NET_PING_H
#define VIMBRA_NET_PING_H

#include <vimbra/ping.h>

VIMBRA_BEGIN_DECLS

/** Options; the same four fields as TVimbraPingOpt. */
typedef struct TVimbraPingOpt TPingOpt;

/**
 * Called for each probe, on the test's listener thread. Without an answer (nResult 1 to 3) all but
 * nSeq and nUserID are 0.
 */
typedef void (*TNetPingCallBack)(s32 nResult, s32 nTtl, s32 nTripTime, s32 nSeq, s32 nUserID,
                                 s32 nErrType, s32 nErrCode);

/**
 * VimbraPingStart() to an IPv4 address.
 *
 * @param dwDestIP        whom to probe, network byte order.
 * @param ptPingOpt       options; not kept.
 * @param nUserID         names the test; 1 or more.
 * @param ptCallBackFunc  takes the place of the callback of ALL legacy tests, before anything else
 *                        is checked.
 * @retval 0              started.
 * @retval 1105           null options, or an id below 1.
 * @retval 1106           a null callback; the one before stays.
 * @retval 1301           no thread could be made.
 * @retval -1             as VimbraPingStart().
 */
VIMBRA_API s32 NetPingStart(u32 dwDestIP, TPingOpt* ptPingOpt, s32 nUserID,
                            TNetPingCallBack ptCallBackFunc);

/**
 * VimbraPingStop(). Silences ALL legacy tests until the next NetPingStart(), whatever the id and
 * the result.
 *
 * @param nUserID  the test.
 * @retval 0       stopped.
 * @retval 1105    an id below 1.
 * @retval 1303    as VimbraPingStop().
 * @retval 1305    no such test runs, or it has ended by itself.
 */
VIMBRA_API s32 NetPingStop(s32 nUserID);

VIMBRA_END_DECLS

#endif
