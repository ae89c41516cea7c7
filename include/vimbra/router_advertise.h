/**
 * @file
 * Notification of address changes by IPv6 router advertisements (RFC 4861, RFC 4862).
 *
 * Up to four interfaces are watched at once. Callbacks run on threads of the library. All watches
 * share one socket, which belongs to the one that was started last: its callback is told of every
 * watched interface, the others' of none, so look at the name in the record. The socket,
 * /tmp/ipc_router_notify, is shared by all processes of the machine. Requests and callbacks are as
 * <vimbra/vimbra.h> describes them. VimbraInit() must have been called. Starts and stops of one
 * interface must not overlap.
 */
#ifndef VIMBRA_ROUTER_ADVERTISE_H
#define VIMBRA_ROUTER_ADVERTISE_H

#include <pthread.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** An interface's addresses after a change; 468 bytes. */
typedef struct TVimbraRouterAdCb {
    char achIfaceName[VIMBRA_IFACE_NAME_LEN]; /**< zero-filled; without terminator when full */
    TVimbraIfaceAllIp tNetIfaceAllIp;         /**< as the daemon sent it, dwIpNum included */
} TVimbraRouterAdCb;

/**
 * Called for each notification, on the listener thread of the newest watch.
 *
 * @param ptRouterAd  the notification; valid during the call only. Its count is the daemon's: bound
 *                    it by VIMBRA_IFACE_IP_MAX.
 */
typedef void (*TVimbraRouterAdvertiseCallBack)(TVimbraRouterAdCb* ptRouterAd);

/** State of one watch; owned by the library, to be looked at only. */
typedef struct RouterNotifyInfo {
    s32 nUserId;                                        /**< 3584 to 3587, told to the daemon */
    struct RouterNotifyInfo* ptNext;                    /**< next watch, or null */
    u16 wSinFamily;                                     /**< not used */
    char achIfaceName[VIMBRA_IFACE_NAME_LEN];           /**< the interface; zero when off */
    TVimbraRouterAdvertiseCallBack pfRouterAdvertiseCB; /**< called for each notification */
    pthread_t tThreadId;                                /**< the listening thread, 0 when none */
    u32 bIsStarted;                                     /**< 1 while the watch is on */
} TRouterNotifyInfo;

/** The four watches; null before VimbraInit(). */
extern VIMBRA_API TRouterNotifyInfo* g_ptApiRouterNotifyInfo;

/** Prepares the watches; VimbraInit() calls it. A second call does nothing. */
VIMBRA_API void RouterAdvertiseInit(void);

/**
 * Starts the watch of an interface.
 *
 * @param pchIfaceName  its name, at most 16 characters.
 * @param pfRACallback  called on a thread of the library; it may stop any watch.
 * @retval 0            started, or the daemon closed without an answer.
 * @retval -1           the interface is watched already, four are, no thread, the daemon was not
 *                      reached, refused or did not answer in time, no memory, or before
 *                      VimbraInit().
 * @retval 1105         a null name or one that is too long.
 * @retval 1106         a null callback.
 */
VIMBRA_API s32 VimbraRouterAdvertiseStart(char* pchIfaceName,
                                          TVimbraRouterAdvertiseCallBack pfRACallback);

/**
 * Stops the watch of an interface and waits for its thread, a running callback included, unless it
 * is called from a callback.
 *
 * @param pchIfaceName  its name, at most 16 characters.
 * @retval 0            stopped, or the daemon closed without an answer.
 * @retval -1           the interface is not watched; or the daemon was not reached, refused or did
 *                      not answer in time, or memory ran out: the watch stays started, though its
 *                      thread may have ended. A watch also ends by itself when the daemon sends
 *                      something malformed.
 * @retval 1105         a null name or one that is too long.
 */
VIMBRA_API s32 VimbraRouterAdvertiseStop(char* pchIfaceName);

VIMBRA_END_DECLS

#endif
