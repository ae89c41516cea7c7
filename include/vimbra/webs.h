/**
 * @file
 * The device's web server, switched on and off by the network daemon. Each call is one exchange
 * with the daemon, so it may take up to 60 seconds; any number of threads may call at once.
 */
#ifndef VIMBRA_WEBS_H
#define VIMBRA_WEBS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * Starts the web server.
 *
 * @param port    TCP port it listens on. Not checked here: 0 and negative numbers go to the daemon
 *                too, which refuses what it cannot serve.
 * @retval 0      done.
 * @retval -1     the daemon refused (its number is in the log), or was not reached.
 * @retval other  the result of IpcApiSendAndRecv(): the exchange failed.
 */
VIMBRA_API s32 VimbraWebsEnable(s32 port);

/**
 * Stops the web server.
 *
 * @retval 0      done.
 * @retval -1     the daemon refused (its number is in the log), or was not reached.
 * @retval other  the result of IpcApiSendAndRecv(): the exchange failed.
 */
VIMBRA_API s32 VimbraWebsDisable(void);

VIMBRA_END_DECLS

#endif
