/**
 * @file
 * System V message queues, msgop(2): the layer is switched off. The calls are kept for programs
 * that link to them; they open, send and receive nothing.
 */
#ifndef VIMBRA_MSG_QUEUE_H
#define VIMBRA_MSG_QUEUE_H

#include <sys/types.h>
#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * Opens no queue, msgget(2); logs that it failed.
 *
 * @retval -1  always.
 */
VIMBRA_API int CreateMsgQueue(s32 key, int nMsgFlag);

/**
 * Without effect.
 *
 * @retval 0  always.
 */
VIMBRA_API int DestroyMsgQueue(int nMsgId);

/**
 * Without effect: the buffer stays as it is.
 *
 * @retval 0  always.
 */
VIMBRA_API int RecvFromQueue(int nMsgId, long MsgType, void* msg, int nMsgSize, int nMsgFlag);

/**
 * Without effect.
 *
 * @retval 0  always.
 */
VIMBRA_API int SendtoQueue(int nMsgId, long MsgType, const void* msg, int nMsgSize, int nMsgFlag);

/**
 * Sends nothing, since no queue can be opened; the log tells, or that `msg` is null.
 *
 * @retval -1  always.
 */
VIMBRA_API int IpcSendMsgToQueue(s32 key, int type, long MsgType, void* msg, int nMsgSize,
                                 int nMsgFlag);

VIMBRA_END_DECLS

#endif
