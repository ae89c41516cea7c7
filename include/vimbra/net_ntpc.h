/**
 * @file
 * Legacy NTP client: IPv4. Everything that <vimbra/ntpc.h> says holds here too.
 */
#ifndef VIMBRA_NET_NTPC_H
#define VIMBRA_NET_NTPC_H

#include <vimbra/ntpc.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraNtpcStart() for IPv4.
 *
 * @param dwServerIp          the server, network byte order.
 * @param dwSyncTimeInterval  interval, in the daemon's unit.
 * @param ptCallBack          called with every report.
 * @retval 0                  started.
 * @retval 1106               a null callback.
 * @retval -1                 as VimbraNtpcStart().
 */
VIMBRA_API s32 VimBraNtpcStart(u32 dwServerIp, u32 dwSyncTimeInterval,
                               VimBraNtpcSyncTimeCallBack ptCallBack);

/**
 * VimbraNtpcStop() for IPv4.
 *
 * @retval 0   done; or it was not started.
 * @retval -1  as VimbraNtpcStop().
 */
VIMBRA_API s32 VimBraNtpcStop(void);

/**
 * VimbraNtpcSerCheck() for IPv4.
 *
 * @param dwServerIp  the server, network byte order.
 * @retval 0          it answers; also when the daemon closed without an answer.
 * @retval -1         as VimbraNtpcSerCheck().
 */
VIMBRA_API s32 NetCheckNtpcServer(u32 dwServerIp);

VIMBRA_END_DECLS

#endif
