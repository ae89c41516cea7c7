/**
 * @file
 * Traces of the route to an IPv4 destination, up to ten at once, each under a user id that the
 * caller chooses. The network daemon sends the probes and reports each hop. Requests and callbacks
 * are as <vimbra/vimbra.h> describes them.
 *
 * ALL TRACES OF THE MACHINE SHARE ONE SOCKET, /tmp/ipc_traceroute, WHICH BELONGS TO THE NEWEST: its
 * callback gets the hops of all traces, those of other processes too, the others' get none. User
 * ids are shared by all processes, since the daemon knows no other name of a trace: programs agree
 * on ranges. The beginnings of starts are kept apart in all processes by a System V semaphore,
 * semop(2), with key 7784: a start may wait for another process's.
 */
#ifndef VIMBRA_TRACEROUTE_H
#define VIMBRA_TRACEROUTE_H

#include <pthread.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** How many traces run at once. */
#define VIMBRA_TRACEROUTE_MAX 10

/** Options of a trace; 4 bytes. Handed to the daemon unchecked. */
typedef struct TVimbraTracerouteOpt {
    u32 dwTtl; /**< highest number of hops */
} TVimbraTracerouteOpt;

/** One hop; 48 bytes, as the daemon sends it. */
typedef struct TVimbraTracerouteCBInfo {
    TVimbraAddr tIpaddr; /**< address of the hop */
    u32 dwTtl;           /**< number of the hop: the probe's time to live */
    s32 nUserId;         /**< the trace */
    s32 nTripTime;       /**< round-trip time in the daemon's unit */
    u32 achDomName;      /**< room of a 32-bit pointer, as sent; it points to nothing */
    s32 nErrType;        /**< the daemon's class of error */
    s32 nErrCode;        /**< the daemon's error */
    s32 nIsOver;         /**< not 0: the last hop of the trace */
} TVimbraTracerouteCBInfo;

/**
 * Called for each hop, on the listener thread of the newest trace: all traces share one socket, so
 * look at the record's nUserId.
 *
 * @param nResult  101 to 106, the daemon's event.
 * @param ptInfo   the library's, valid only during the call.
 * @return         ignored.
 */
typedef int (*TVimbraTracerouteCallBack)(s32 nResult, TVimbraTracerouteCBInfo* ptInfo);

/** One place for a trace. The chain has VIMBRA_TRACEROUTE_MAX, for the life of the process. */
typedef struct TracerouteInfo {
    struct TracerouteInfo* ptNext; /**< next place, or null */
    u16 wSinFamily;                /**< not used: 2 in the first place at first, else 0 */
    s32 nUserId;                   /**< whose trace; -1 after one has ended */
    u32 bIsStarted;                /**< 1 while a trace has this place */
    pthread_t tThreadId;           /**< its listener; -1 after it has ended */
    TVimbraTracerouteCallBack ptCallBackFunc; /**< its callback */
} TracerouteInfo, TTraceRtInfo;

/** The first place; null before VimbraInit(). To be read by debuggers, not by programs. */
VIMBRA_API extern TTraceRtInfo* g_ptApiTracerouteInfo;

/**
 * Prepares the places and the semaphore (semget(2), key 7784) that serialises starts between
 * processes; VimbraInit() calls it once. Sends nothing.
 */
VIMBRA_API void TracerouteInit(void);

/**
 * Starts a trace.
 *
 * @param tDestIp         destination, IPv4.
 * @param ptTraceRtOpt    options; the caller's, not kept.
 * @param nUserID         names the trace until it ends; 1 or more.
 * @param ptCallBackFunc  called for each hop.
 * @retval 0              started, or the daemon closed without an answer.
 * @retval 1106           null options or callback.
 * @retval 1105           another family, or an id below 1.
 * @retval -1             the id is in use, AND THE TRACE THAT USES IT HAS BEEN ENDED, without a
 *                        word to the daemon; or ten traces run already, VimbraInit() was not
 *                        called, no thread could be made, the daemon was not reached, refused or
 *                        did not answer in time, or memory ran out.
 */
VIMBRA_API s32 VimbraTracerouteStart(TVimbraAddr tDestIp, TVimbraTracerouteOpt* ptTraceRtOpt,
                                     s32 nUserID, TVimbraTracerouteCallBack ptCallBackFunc);

/**
 * Stops a trace. A callback that runs at this moment on another thread, or is just beginning there,
 * still ends; the call does not wait for it.
 *
 * @param nUserID  the trace.
 * @retval 0       stopped, or the daemon closed without an answer; or no such trace runs.
 * @retval 1105    an id below 1.
 * @retval 1403    the daemon was not reached, refused or did not answer in time, or memory ran out;
 *                 the trace goes on.
 */
VIMBRA_API s32 VimbraTracerouteStop(s32 nUserID);

/**
 * Would empty a message queue of a trace's records; message queues are switched off in this
 * library.
 *
 * @param nUserId  the trace.
 * @retval -1      always.
 */
VIMBRA_API s32 ClearTraceRtMsgQueue(s32 nUserId);

VIMBRA_END_DECLS

#endif
