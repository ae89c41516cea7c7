/**
 * @file
 * PPPoE dialling (RFC 2516). The network daemon runs the PPP daemon and reports the link's events,
 * which the library hands to the application.
 *
 * There is one link for each family: IPv4 (2), IPv6 (10), both together (11). A listening thread in
 * the application's process, on the socket /tmp/ipc_pppoe (IPv4) or /tmp/ipc_pppoe6 (the others),
 * calls the application. Requests and callbacks are as <vimbra/vimbra.h> describes them.
 *
 * Starting family 11 marks all three as started. Where exactly one of IPv4 and IPv6 runs, starting
 * family 11 starts the other one, and stopping family 11 stops that one.
 */
#ifndef VIMBRA_PPPOE_H
#define VIMBRA_PPPOE_H

#include <pthread.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** Size of the text fields of the dial parameters. */
#define VIMBRA_PPPOE_TEXT_LEN 255

/** Events of the callback. What 2, 3 and 4 say is the daemon's business. */
enum {
    VIMBRA_PPPOE_EVENT_CONNECTED = 1, /**< the link is up; with a TVimbraPppoeAddr */
    VIMBRA_PPPOE_EVENT_2 = 2,         /**< a notification of type 2; without data */
    VIMBRA_PPPOE_EVENT_3 = 3,         /**< a notification of type 3; without data */
    VIMBRA_PPPOE_EVENT_4 = 4,         /**< a notification of type 4; without data */
    VIMBRA_PPPOE_EVENT_STOPPED = 5    /**< stopped, by VimbraPppoeStop() or by the daemon */
};

/** Dial parameters. */
typedef struct VimbraPppoeParam {
    char achUserName[VIMBRA_PPPOE_TEXT_LEN];   /**< 1 to 254 characters */
    char achPassword[VIMBRA_PPPOE_TEXT_LEN];   /**< 1 to 254 characters */
    char achServerName[VIMBRA_PPPOE_TEXT_LEN]; /**< not used: it is not sent */
    char achDevName[VIMBRA_IFACE_NAME_LEN];    /**< the Ethernet interface, 1 to 15 characters */
    vimbra_bool bAutoDialEnable;               /**< dial again when the link is lost */
    vimbra_bool bDefaultRouteEnable;           /**< make the link the default route */
    vimbra_bool bDebug;       /**< the PPP daemon's debug log; once set it stays for the family */
    u32 dwAutoDialInterval;   /**< seconds between two dials */
    u16 wDialRetryTimes;      /**< dials before it is given up */
    u16 wLcpEchoSendInterval; /**< seconds between two LCP echo requests, 1 to 255; else 20 */
    u16 wLcpEchoRetryTimes;   /**< unanswered ones before the link is lost, 1 to 255; else 3 */
} TVimbraPppoeParam;

/** Dial configuration as it is sent to the daemon, made of a TVimbraPppoeParam; 809 bytes. */
typedef struct __attribute__((packed)) PppoeConfig {
    char username[VIMBRA_PPPOE_TEXT_LEN];   /**< achUserName */
    char password[VIMBRA_PPPOE_TEXT_LEN];   /**< achPassword */
    char servername[VIMBRA_PPPOE_TEXT_LEN]; /**< zero */
    u32 auto_dial_enable;                   /**< bAutoDialEnable */
    u32 default_route_enable;               /**< bDefaultRouteEnable */
    u32 debug;                              /**< 1 once bDebug was set, else 0 */
    u32 dial_retry_seconds;                 /**< dwAutoDialInterval */
    u32 lcp_echo_interval;                  /**< wLcpEchoSendInterval, or 20 */
    u32 lcp_echo_failure;                   /**< wLcpEchoRetryTimes, or 3 */
    u32 maxfail;                            /**< wDialRetryTimes */
    char devname[VIMBRA_IFACE_NAME_LEN];    /**< achDevName */
} PppoeConfig;

/** Addresses of a link that is up; 80 bytes. */
typedef struct VimbraPppoeAddr {
    TVimbraAddr tOurIpaddr;  /**< this end */
    TVimbraAddr tPeerIpAddr; /**< the other end */
    TVimbraAddr tDnsServer1; /**< first DNS server; zero for none */
    TVimbraAddr tDnsServer2; /**< second DNS server; zero for none */
} TVimbraPppoeAddr;

/** For VimbraPppoeStatesDump(), which fills nothing. */
typedef struct VimbraPppoeStates {
    vimbra_bool bPppoeRunning;                 /**< not filled */
    TVimbraAddr tOurIpaddr;                    /**< not filled */
    TVimbraAddr tPeerIpAddr;                   /**< not filled */
    char achServerName[VIMBRA_PPPOE_TEXT_LEN]; /**< not filled */
    u32 dwLinkKeepTimes;                       /**< not filled */
    u32 dwLinkDownTimes;                       /**< not filled */
    u32 dwPktsSend;                            /**< not filled */
    u32 dwPktsRecv;                            /**< not filled */
    u32 dwBytesSend;                           /**< not filled */
    u32 dwBytesRecv;                           /**< not filled */
} TVimbraPppoeStates;

/** The version text. */
typedef struct TVimbraVersion {
    char achVersion[256]; /**< terminated */
} TVimbraVersion;

/**
 * Called with each event: on the listening thread, the one of a stop by VimbraPppoeStop() on the
 * thread that stops. It may start and stop links. While it runs, further events of its link wait.
 *
 * @param dwMsgID   VIMBRA_PPPOE_EVENT_CONNECTED to VIMBRA_PPPOE_EVENT_STOPPED.
 * @param pMsg      a TVimbraPppoeAddr with VIMBRA_PPPOE_EVENT_CONNECTED, else null; the library's,
 *                  valid during the call only.
 * @param dwMsgLen  its size: 80, else 0.
 */
typedef void (*TVimbraPppoeCallBack)(u32 dwMsgID, void* pMsg, u32 dwMsgLen);

/** One link, as the library keeps it. Applications only read it. */
typedef struct PppoeInfo {
    struct PppoeInfo* ptNext; /**< next family's */
    u16 wSinFamily;           /**< 2, 10 or 11 */
    s32 bPppoeStarted;        /**< 1 from start to stop */
    TVimbraPppoeCallBack
        pfPppoeNotifyCallBack; /**< called with its events; null when there is none */
    pthread_t tPppoeThreadId;  /**< the listening thread, 0 when there is none */
    PppoeConfig tConfig;       /**< what was sent last */
} TPppoeInfo;

/** The links, always three from VimbraInit() on, in the order 2, 10, 11. */
VIMBRA_API extern TPppoeInfo* g_ptApiPppoeInfo;

/** Prepares the service; VimbraInit() calls it. */
VIMBRA_API void PppoeInit(void);

/**
 * Dials.
 *
 * @param ptPppoeParam      dial parameters; read during the call only.
 * @param wSinFamily        VIMBRA_FAMILY_IPV4, _IPV6 or _BOTH.
 * @param ptNotifyCallBack  called with every event.
 * @retval 0     the daemon dials, and VIMBRA_PPPOE_EVENT_CONNECTED follows when the link is up; or
 *               the daemon closed without an answer.
 * @retval 1105  a null argument, family 0, or a user name, password or device name that is empty or
 *               too long; nothing was sent.
 * @retval 1109  the daemon was not reached, refused or did not answer in time, or memory ran out
 *               for the request; nothing is left.
 * @retval -1    another family, a link that is started or just being started, no thread or no
 *               memory for one, or
 *               VimbraInit() was not called.
 */
VIMBRA_API s32 VimbraPppoeStart(TVimbraPppoeParam* ptPppoeParam, u16 wSinFamily,
                                TVimbraPppoeCallBack ptNotifyCallBack);

/**
 * Hangs up. The callback gets VIMBRA_PPPOE_EVENT_STOPPED during the call and nothing after it; one
 * that runs at this moment runs to its end first, and the call waits for it. A stop from a callback
 * does not wait.
 *
 * @param pchIfaceName  not looked at.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4, _IPV6 or _BOTH.
 * @retval 0            done, or the daemon closed without an answer; or it was not started, then
 *                      nothing is sent.
 * @retval 1105         another family, or VimbraInit() was not called.
 * @retval -1           the daemon was not reached, refused or did not answer in time, or memory ran
 *                      out: the link stays started.
 */
VIMBRA_API s32 VimbraPppoeStop(const char* pchIfaceName, u16 wSinFamily);

/**
 * The versions of the PPP daemon and of its PPPoE part, as two lines.
 *
 * @param ptVersion  receives the text with its terminator; cleared whole first.
 * @retval 0         done.
 * @retval 1105      a null record.
 */
VIMBRA_API s32 VimbraPppoeVer(TVimbraVersion* ptVersion);

/**
 * Without effect; kept for programs that link to it.
 *
 * @param ptPppoeStates  left as it is; may be null.
 */
VIMBRA_API void VimbraPppoeStatesDump(TVimbraPppoeStates* ptPppoeStates);

VIMBRA_END_DECLS

#endif
