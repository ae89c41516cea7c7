/**
 * @file
 * Legacy traces: IPv4 words, and one callback for all traces of the process. Everything that
 * <vimbra/traceroute.h> says holds here too.
 */
#ifndef VIMBRA_NET_TRACEROUTE_H
#define VIMBRA_NET_TRACEROUTE_H

#include <vimbra/traceroute.h>

VIMBRA_BEGIN_DECLS

/** What to trace. */
typedef struct TTraceroutePara {
    u32 dwDstIp; /**< destination, network byte order */
    u32 dwTtl;   /**< highest number of hops */
} TTraceroutePara;

/**
 * Called for each hop, on a listener thread. pchDomName is always null; dwIpaddr is the hop's
 * address in network byte order.
 */
typedef void (*TNetTracerouteCallBack)(s32 nResult, s32 nTtl, s32 nTripTime, u32 dwIpaddr,
                                       char* pchDomName, s32 nUserId, s32 nErrType, s32 nErrCode);

/**
 * VimbraTracerouteStart() to an IPv4 address.
 *
 * @param ptTraceroutePara  destination and hops; not kept.
 * @param nUserID           names the trace; 1 or more.
 * @param ptCallBackFunc    takes the place of the callback of ALL legacy traces, before anything
 *                          else is checked.
 * @retval 0                started.
 * @retval 1105             null parameters, or an id below 1.
 * @retval 1106             a null callback; the one before stays.
 * @retval -1               as VimbraTracerouteStart().
 */
VIMBRA_API s32 NetTracerouteStart(TTraceroutePara* ptTraceroutePara, s32 nUserID,
                                  TNetTracerouteCallBack ptCallBackFunc);

/**
 * VimbraTracerouteStop(). Silences ALL legacy traces until the next NetTracerouteStart(), whatever
 * the id and the result.
 *
 * @param nUserID  the trace.
 * @retval 0       stopped, or no such trace runs.
 * @retval 1105    an id below 1.
 * @retval 1403    as VimbraTracerouteStop().
 */
VIMBRA_API s32 NetTracerouteStop(s32 nUserID);

VIMBRA_END_DECLS

#endif
