/**
 * @file
 * The device's web server, switched on and off by the network daemon. Each call is one request as
 * <vimbra/vimbra.h> describes it; any number of threads may call at once.
 */
#ifndef VIMBRA_WEBS_H
#define VIMBRA_WEBS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * Starts the web server.
 *
 * @param port   TCP port it listens on. Not checked here: 0 and negative numbers go to the daemon
 *               too, which refuses what it cannot serve.
 * @retval 0     done, or the daemon closed without an answer.
 * @retval -1    the daemon refused (its number is in the log) or was not there, the wait was
 *               interrupted, or memory ran out.
 * @retval 1101  the request could not be written whole.
 * @retval 1102  no reply within 60 seconds.
 * @retval >0    any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 VimbraWebsEnable(s32 port);

/**
 * Stops the web server.
 *
 * @retval 0     done, or the daemon closed without an answer.
 * @retval -1    the daemon refused (its number is in the log) or was not there, the wait was
 *               interrupted, or memory ran out.
 * @retval 1101  the request could not be written whole.
 * @retval 1102  no reply within 60 seconds.
 * @retval >0    any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 VimbraWebsDisable(void);

VIMBRA_END_DECLS

#endif
