/**
 * @file
 * Legacy PPPoE: IPv4 on numbered interfaces. Everything that <vimbra/pppoe.h> says holds here too.
 */
#ifndef VIMBRA_NET_PPPOE_H
#define VIMBRA_NET_PPPOE_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** Events of the callback. */
enum {
    NET_PPPOE_EVENT_4 = 9001,         /**< event 4 of <vimbra/pppoe.h> */
    NET_PPPOE_EVENT_3 = 9002,         /**< event 3 */
    NET_PPPOE_EVENT_CONNECTED = 9003, /**< event 1; with a TConnNotify */
    NET_PPPOE_EVENT_STOPPED = 9004,   /**< event 5, when the daemon tells it */
    NET_PPPOE_EVENT_2 = 9006          /**< event 2 */
};

/** Dial parameters; meanings and ranges as in TVimbraPppoeParam. */
typedef struct PppoeInitParam {
    char abyUserName[255];       /**< the first 254 characters count, as they do in the next two */
    char abyPassword[255];       /**< as achPassword */
    char abyServerName[255];     /**< as achServerName: not sent */
    vimbra_bool bAutoDialEnable; /**< dial again when the link is lost */
    vimbra_bool bDefaultRouteEnable; /**< make the link the default route */
    vimbra_bool bDebug;              /**< the PPP daemon's debug log */
    u32 dwAutoDialInterval;          /**< seconds between two dials */
    u16 wDialRetryTimes;             /**< dials before it is given up */
    u16 wLcpEchoSendInterval;        /**< seconds between two LCP echo requests */
    u16 wLcpEchoRetryTimes;          /**< unanswered ones before the link is lost */
    u32 dwEthID;                     /**< number of the Ethernet interface: 0, 1 or 2 */
} TPppoeInitParam;

/** Addresses of a link that is up, IPv4 words in network byte order; 16 bytes. */
typedef struct TConnNotify {
    u32 dwOurIpAddr;  /**< this end */
    u32 dwPeerIpAddr; /**< the other end */
    u32 dwDnsServer1; /**< first DNS server, or 0 */
    u32 dwDnsServer2; /**< second DNS server, or 0 */
} TConnNotify;

/** The version text. */
typedef struct PppoeVersion {
    char abyVersion[255]; /**< terminated */
} TVersion;

/**
 * Called with each event on the listening thread.
 *
 * @param dwMsgID   one of the events above.
 * @param pMsg      a TConnNotify with NET_PPPOE_EVENT_CONNECTED, else null; valid during the call
 *                  only.
 * @param dwMsgLen  its size: 16, else 0.
 */
typedef void (*TPppoeCallBack)(u32 dwMsgID, void* pMsg, u32 dwMsgLen);

/**
 * VimbraPppoeStart() for IPv4 on a numbered interface.
 *
 * @param ptPppoeInitParam  dial parameters; read during the call only.
 * @param ptNotifyCallBack  called with every event; null: none. Kept also when the call fails.
 * @retval 0   the daemon dials.
 * @retval -1  everything else, an interface number above 2 included; the log tells.
 */
VIMBRA_API s32 NetPppoeStart(TPppoeInitParam* ptPppoeInitParam, TPppoeCallBack ptNotifyCallBack);

/**
 * VimbraPppoeStop() for IPv4. The callback is forgotten first, also when the call fails: it is not
 * told of the stop.
 *
 * @retval 0     done; or it was not started.
 * @retval 1105  VimbraInit() was not called.
 * @retval -1    as VimbraPppoeStop().
 */
VIMBRA_API s32 NetPppoeStop(void);

/**
 * VimbraPppoeVer() by its older record.
 *
 * @param ptVersion  receives the text with its terminator.
 * @retval 0         done.
 * @retval 1105      a null record.
 */
VIMBRA_API s32 NetPppoeVer(TVersion* ptVersion);

VIMBRA_END_DECLS

#endif
