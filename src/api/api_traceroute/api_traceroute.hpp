// The registry and the requests behind the calls of <vimbra/traceroute.h>.
#ifndef VIMBRA_API_TRACEROUTE_HPP
#define VIMBRA_API_TRACEROUTE_HPP

#include <vimbra/traceroute.h>

void ClearTraceRtInfo(TTraceRtInfo* ptTraceRtInfo);

s32 ApicTracertStart(const TVimbraAddr& tDestIp, const TVimbraTracerouteOpt& tTraceRtOpt,
                     s32 nUserID);
s32 ApicTracertStop(s32 nUserID);
s32 ApicTracertAllStop(s32 nUserID);

#endif
