/**
 * @file
 * Echo tests (ping, RFC 792 and RFC 4443), up to ten at once, each under a user id that the caller
 * chooses. The network daemon sends the probes and reports each result. Requests and callbacks are
 * as <vimbra/vimbra.h> describes them.
 *
 * ALL TESTS OF THE MACHINE SHARE ONE SOCKET, /tmp/ipc_ping, WHICH BELONGS TO THE NEWEST: its
 * listener gets the records of all tests and drops those that are not for it. So of several tests
 * only the one that was started last calls back; the others are silent, also after it has ended,
 * and keep their places until they are stopped. User ids are shared by all processes, since the
 * daemon knows no other name of a test: programs agree on ranges.
 */
#ifndef VIMBRA_PING_H
#define VIMBRA_PING_H

#include <pthread.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** How many tests run at once. */
#define VIMBRA_PING_MAX 10

/** Options of a test; 16 bytes. Handed to the daemon unchecked. */
typedef struct TVimbraPingOpt {
    s32 nPktSize; /**< payload of a probe in bytes */
    s32 nTimeOut; /**< how long to wait for each answer, in the daemon's unit */
    s32 nTtl;     /**< time to live of the probes */
    s32 nCount;   /**< number of probes */
} TVimbraPingOpt;

/** What a callback learns of one probe. */
typedef struct TVimbraPingCBInfo {
    s32 nTtl;      /**< time to live of the answer; 0 without one */
    s32 nTripTime; /**< round-trip time in the daemon's unit; 0 without an answer */
    s32 nSeq;      /**< number of the probe */
    s32 nUserID;   /**< the test */
    s32 nErrType;  /**< always 0 */
    s32 nErrCode;  /**< always 0 */
} TVimbraPingCBInfo;

/**
 * Called for each probe, on the test's listener thread, while its test is the newest.
 *
 * It may stop its own test and start others.
 *
 * @param nResult  0 an answer came; 1, 2, 3 none did, the daemon's number for why.
 * @param ptInfo   the library's, valid only during the call.
 * @return         ignored.
 */
typedef int (*TVimbraPingCallBack)(s32 nResult, TVimbraPingCBInfo* ptInfo);

/** One place for a test. The chain has VIMBRA_PING_MAX of them, for the life of the process. */
typedef struct PingInfo {
    struct PingInfo* ptNext;            /**< next place, or null */
    u16 wSinFamily;                     /**< not used: 2 in the first place at first, else 0 */
    s32 nUserId;                        /**< whose test; -1 after one has ended */
    u32 bIsStarted;                     /**< 1 while a test has this place */
    pthread_t tThreadId;                /**< its listener; -1 after it has ended */
    TVimbraPingCallBack ptCallBackFunc; /**< its callback */
} PingInfo, TPingInfo;

/** The first place; null before VimbraInit(). To be read by debuggers, not by programs. */
VIMBRA_API extern TPingInfo* g_ptApiPingInfo;

/** Prepares the places; VimbraInit() calls it once. Sends nothing. */
VIMBRA_API void PingInit(void);

/**
 * Starts a test.
 *
 * @param tDestIp         whom to probe, IPv4 or IPv6.
 * @param ptPingOpt       options; the caller's, not kept.
 * @param nUserID         names the test until it ends; 1 or more.
 * @param ptCallBackFunc  called for each probe.
 * @retval 0              started, or the daemon closed without an answer.
 * @retval 1105           a null pointer, another family, or an id below 1.
 * @retval -1             the id is in use, ten tests run already, VimbraInit() was not called, the
 *                        daemon was not reached, refused or did not answer in time, or memory ran
 *                        out.
 * @retval 1301           no thread could be made, or no memory for one.
 */
VIMBRA_API s32 VimbraPingStart(TVimbraAddr tDestIp, TVimbraPingOpt* ptPingOpt, s32 nUserID,
                               TVimbraPingCallBack ptCallBackFunc);

/**
 * Stops a test. A callback that runs at this moment on another thread, or is just beginning there,
 * still ends; the call does not wait for it.
 *
 * @param nUserID  the test.
 * @retval 0       stopped, or the daemon closed without an answer.
 * @retval 1105    an id below 1.
 * @retval 1303    the daemon was not reached, refused or did not answer in time, or memory ran out;
 *                 the test keeps its place until its thread has ended.
 * @retval 1305    no such test runs, or it has ended by itself.
 */
VIMBRA_API s32 VimbraPingStop(s32 nUserID);

VIMBRA_END_DECLS

#endif
