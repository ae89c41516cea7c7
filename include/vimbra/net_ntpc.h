/**
 * @file
 * Legacy NTP client: IPv4. Everything that <vimbra/ntpc.h> says holds here too.
 */
#ifndef VIMBRA_NET_NTPC_H
#define VIMBRA_NET_NTPC_H

#include <vimbra/ntpc.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraNtpcStart() for IPv4; same results.
 *
 * @param dwServerIp          the server, network byte order.
 * @param dwSyncTimeInterval  interval, in the daemon's unit.
 * @param ptCallBack          called with every report.
 */
VIMBRA_API s32 VimBraNtpcStart(u32 dwServerIp, u32 dwSyncTimeInterval,
                               VimBraNtpcSyncTimeCallBack ptCallBack);

/** VimbraNtpcStop() for IPv4; same results. */
VIMBRA_API s32 VimBraNtpcStop(void);

/** VimbraNtpcSerCheck() for IPv4; same results. @param dwServerIp the server, network byte order.
 */
VIMBRA_API s32 NetCheckNtpcServer(u32 dwServerIp);

VIMBRA_END_DECLS

#endif
