// The requests behind the calls of <vimbra/iface.h>. Names are checked by the caller.
#ifndef VIMBRA_API_IP_API_IPADDR_HPP
#define VIMBRA_API_IP_API_IPADDR_HPP

#include <vimbra/iface.h>

s32 ApicIpaddrAdd(const char* pchIfaceName, const TVimbraIfaceIp* ptNetIfaceIp);
s32 ApicIpaddrDel(const char* pchIfaceName, const TVimbraIfaceIp* ptNetIfaceIp);
s32 ApicIpaddrFlush(const char* pchIfaceName, u16 wSinFamily);
s32 ApicIpaddrSet(const char* pchIfaceName, u16 wSinFamily, const TVimbraIfaceAllIp* ptNetIfaceIp);
s32 ApicIpaddrGet(const char* pchIfaceName, u16 wSinFamily, TVimbraIfaceAllIp* ptNetIfaceIp);
s32 ApicMacSet(const char* pchIfaceName, const TVimbraIfaceMac* ptNetIfaceMac);
s32 ApicMacGet(const char* pchIfaceName, TVimbraIfaceMac* ptNetIfaceMac);
s32 ApicMtuSet(const char* pchIfaceName, u32 dwMtu);
s32 ApicMtuGet(const char* pchIfaceName, u32* pdwMtu);

// Can a host have this address? 0, or -1 with the reason logged.
s32 ApicCheckIp(const TVimbraIfaceIp* ptNetIfaceIp);

// Can a whole set hold an address of this scope? 0 or -1.
s32 CheckeScopeType(EVimbraScopeType eScopeType);

#endif
