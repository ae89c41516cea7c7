// The registry and the requests behind the calls of <vimbra/ping.h>.
#ifndef VIMBRA_API_PING_HPP
#define VIMBRA_API_PING_HPP

#include <vimbra/ping.h>

// The busy record of a user, or the first free one; null if there is none. With the registry locked.
TPingInfo* FamilyMapBusyPingInfo(s32 nUserID);
TPingInfo* FamilyMapFreePingInfo(s32 nUserID);

void ClearPingInfo(TPingInfo* ptPingInfo);

s32 ApicPingStart(const TVimbraAddr& tDestIp, const TVimbraPingOpt& tPingOpt, s32 nUserID);
s32 ApicPingStop(s32 nUserID);

#endif
