// The requests behind the calls of <vimbra/dhcps.h>. Names are checked by the caller.
#ifndef VIMBRA_API_DHCPS_HPP
#define VIMBRA_API_DHCPS_HPP

#include <vimbra/dhcps.h>

s32 ApicDhcpsStart(const char* pchIfaceName, u16 wSinFamily,
                   const TVimbraDhcpsInfo* ptDhcpsConfInfo);
s32 ApicDhcpsStop(const char* pchIfaceName, u16 wSinFamily);
s32 ApicDhcpsGetState(const char* pchIfaceName, u16 wSinFamily, TVimbraDhcpsState* ptState);
s32 ApicDhcpsStopAll();

// Can this pool be served on this interface? 0, 1105 or -1, the reason logged.
s32 CheckDhcpsParam(char* pchIfaceName, u16 wSinFamily, const TVimbraDhcpsInfo* ptDhcpsConfInfo);

#endif
