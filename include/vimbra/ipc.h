/**
 * @file
 * The local socket protocol between applications and the network daemon.
 *
 * Every request, reply and notification is an IpcMsgHead followed by a body of `size` bytes, over a
 * Unix stream socket in /tmp, unix(7). A connection carries one message each way at most. Peers are
 * on one machine, so integers are in host byte order. A listener of this library waits five seconds
 * from the accept for the message. <vimbra/vimbra.h> says what holds for every
 * call.
 */
#ifndef VIMBRA_IPC_H
#define VIMBRA_IPC_H

#include <sys/socket.h>
#include <sys/un.h>
#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** Largest request body in bytes that IpcApiSendAndRecv() and IpcCallbackSendAndRecv() send. */
#define VIMBRA_IPC_BODY_MAX 3072

/** Header of every message; 12 bytes. */
typedef struct IpcMsgHead {
    u32 type; /**< what the message is: service in bits 8 to 15, operation in bits 0 to 7 */
    u32 size; /**< length in bytes of the body behind the header */
    s32 flag; /**< 0, or the caller's value of IpcApiSendMsg(); not looked at by receivers */
} IpcMsgHead;

/**
 * Connects a socket to the named peer, connect(2). Waits at most 60 seconds for a place in the
 * peer's backlog, less if the socket has a shorter SO_SNDTIMEO, not at all if it does not block.
 * The calling thread cannot be cancelled meanwhile.
 *
 * @param nSockfd  a Unix stream socket; stays open whatever the result.
 * @param pchName  the peer's name below /tmp, at most 96 characters.
 * @param ptAddr   receives the peer's address; the caller's memory.
 * @param len      receives the address length: that of the path plus 2.
 * @retval 0       connected.
 * @retval -1      a null pointer, a name that is too long, nobody listens, or no place in time;
 *                 errno says which of the last two.
 */
VIMBRA_API s32 MakeAddrClient(s32 nSockfd, const char* pchName, struct sockaddr_un* ptAddr,
                              socklen_t* len);

/**
 * Makes a socket the server of a name: removes what stands at the path, binds, listens.
 *
 * A stale socket file does not hinder it. Where binding or listening fails the socket is closed and
 * the result is 0 all the same: the caller learns it from accept(2).
 *
 * @param nSockfd  a Unix stream socket.
 * @param pchName  the server's name below /tmp, at most 96 characters.
 * @param ptAddr   receives the address; the caller's memory.
 * @param len      receives the address length: that of the path plus 2.
 * @retval 0       listening, or bind(2) or listen(2) failed and the socket is closed.
 * @retval -1      a null pointer or a name that is too long; the socket stays open.
 */
VIMBRA_API s32 MakeAddrServer(s32 nSockfd, const char* pchName, struct sockaddr_un* ptAddr,
                              socklen_t* len);

/**
 * One request to the network daemon and, if wanted, its reply. Opens a connection of its own, so
 * any number of threads may call it at once. Waits at most 60 seconds in all, connecting included,
 * and its thread cannot be cancelled meanwhile. A REQUEST WITHOUT A REPLY NEVER WAITS: where the
 * peer has no room at once the connect has failed, or the message is dropped as one that took too
 * long. Raises no SIGPIPE.
 *
 * @param dwType    type of the request.
 * @param pSendBuf  body, or null with a length of 0.
 * @param nSendLen  its length in bytes, at most VIMBRA_IPC_BODY_MAX.
 * @param pRecvBuf  receives the reply's body, or null with a length of 0: no reply is awaited.
 *                  Untouched unless the whole reply is good.
 * @param nRecvLen  the exact length of the reply's body in bytes.
 * @retval 0        done; also when the daemon closed without an answer, or took no data within the
 *                  time: the reply is then untouched, so hand in a buffer with a value that says
 *                  so.
 * @retval -1       invalid lengths, no daemon, no place in its backlog in time, no memory, or a
 *                  failed select(2) or read(2). An interruption by a signal is one of these, and
 *                  then the daemon may have carried the request out.
 * @retval 1101     the request could not be written whole.
 * @retval 1102     no reply within the time.
 * @retval >0       a reply of the wrong size: the number of bytes that were read.
 */
VIMBRA_API s32 IpcApiSendAndRecv(u32 dwType, const void* pSendBuf, s32 nSendLen, void* pRecvBuf,
                                 s32 nRecvLen);

/**
 * IpcApiSendAndRecv() to another socket than the daemon's: posts a message to a notification
 * listener of this library.
 *
 * @param pchPathName  the listener's name below /tmp, at most 96 characters.
 * @param dwType       type of the message.
 * @param pSendBuf     body, or null with a length of 0.
 * @param nSendLen     its length in bytes, at most VIMBRA_IPC_BODY_MAX.
 * @param pRecvBuf     receives the reply's body, or null with a length of 0: no reply is awaited.
 * @param nRecvLen     the exact length of the reply's body in bytes.
 * @retval 0           done, as IpcApiSendAndRecv() has it.
 * @retval -1          as IpcApiSendAndRecv() has it; a null name; or nobody listens.
 * @retval 1101        the message could not be written whole.
 * @retval 1102        no reply within the time.
 * @retval >0          a reply of the wrong size: the number of bytes that were read.
 */
VIMBRA_API s32 IpcCallbackSendAndRecv(const char* pchPathName, u32 dwType, const void* pSendBuf,
                                      s32 nSendLen, void* pRecvBuf, s32 nRecvLen);

/**
 * Sends one message on a connected socket. No limit is put on the body. Waits at most 60 seconds,
 * and its thread cannot be cancelled meanwhile; the write itself waits too where the socket blocks
 * and has room for a part alone. Raises no SIGPIPE.
 *
 * @param nSockfd   the socket; stays open.
 * @param dwType    type of the message.
 * @param pSendBuf  body, or null with a length of 0.
 * @param nSendLen  its length in bytes.
 * @param nFlag     goes into the header's `flag`.
 * @retval 0        written whole.
 * @retval -1       invalid lengths, no memory, a failed select(2) (an interruption by a signal
 *                  included), or a short write.
 * @retval 1103     the socket took no data for 60 seconds.
 */
VIMBRA_API s32 IpcApiSendMsg(s32 nSockfd, u32 dwType, void* pSendBuf, s32 nSendLen, s32 nFlag);

/**
 * Without effect; kept for programs that link to it.
 *
 * @retval -1  always.
 */
VIMBRA_API s32 IpcApiRecvmsg(s32 nSockfd, u32 dwType, void* pRecvBuf, s32 nRecvLen, s32 nFlag);

VIMBRA_END_DECLS

#endif
