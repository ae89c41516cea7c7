// The way of a conflict to the legacy callbacks.
#ifndef VIMBRA_API_1X_NET_IP_CONFLICT_HPP
#define VIMBRA_API_1X_NET_IP_CONFLICT_HPP

#include <vimbra/ip_conflict.h>

// To the plain callback, if there is one.
void PrivateIpConflictCallBack(EVimbraConflictType eType, TVimbraIfaceMac* ptIfaceMac,
                               TVimbraAddr* ptIpAddr, const char* pchIfaceName);

// To the extended callback: 0, or -1 when there is none. The name may be null.
int PrivateIpConflictCallBackEx(EVimbraConflictType eType, TVimbraIfaceMac* ptIfaceMac,
                                TVimbraAddr* ptIpAddr, const char* pchIfaceName);

#endif
