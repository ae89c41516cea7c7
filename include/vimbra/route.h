/**
 * @file
 * Routes, routing tables, policy rules, default gateways and the network priority, kept by the
 * network daemon in the kernel (rtnetlink(7), ip-route(8), ip-rule(8)).
 *
 * Each call is one request as <vimbra/vimbra.h> describes it; any number of threads may call at
 * once and nothing is kept between calls. Records belong to the caller; those that a call fills are
 * untouched unless it returns 0. No argument is kept after the call.
 *
 * Two ways of telling a failure stand side by side:
 *
 *   routes, listing, tables and rules pass it on:
 *     0      done;
 *     1105   an argument is refused, nothing was sent;
 *     1101   the request could not be written whole;
 *     1102   no reply within 60 seconds;
 *     -1     the daemon was not reached, the wait was interrupted, or memory ran out;
 *     other  the daemon's own number for its refusal (vimbrad's are those of errno(3)), or the byte
 *            count of a malformed answer;
 *
 *   gateways and network priority do not:
 *     0      done;
 *     1105   an argument is refused, nothing was sent;
 *     -1     anything else; the log tells what.
 *
 * A daemon that closes the connection without an answer counts as success, and what the call reads
 * is then all zero.
 */
#ifndef VIMBRA_ROUTE_H
#define VIMBRA_ROUTE_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** How many routes a listing holds. */
#define VIMBRA_ROUTE_MAX 10

/** How many interfaces a network priority list holds. */
#define VIMBRA_NETWORK_PRIORITY_MAX 10

/** One route; 64 bytes. */
typedef struct TVimbraIpRouteParam {
    char achIfaceName[VIMBRA_IFACE_NAME_LEN]; /**< output interface; terminated if shorter */
    TVimbraAddr tDestIpNet;                   /**< destination network */
    TVimbraAddr tDestGateWay; /**< next hop, of the same family; all zero for none */
    u32 dwPrefix;             /**< prefix length of the destination: 0 to 32, or 0 to 128 */
    u32 dwRoutePri;           /**< metric, 0 to 255 */
} TVimbraIpRouteParam;

/** A listing of routes; 644 bytes. */
typedef struct TVimbraAllIpRouteInfo {
    u32 dwIpRouteNum; /**< how many entries are valid, at most VIMBRA_ROUTE_MAX: cut to it here */
    TVimbraIpRouteParam tNetIpRouteParam[VIMBRA_ROUTE_MAX]; /**< the routes */
} TVimbraAllIpRouteInfo;

/** One policy rule: packets from a source, or with a mark, look a table up; 36 bytes. */
typedef struct TVimbraIpRuleParam {
    TVimbraAddr tFromIpNet; /**< source network, IPv4 only; 0.0.0.0 with prefix 0 is any source */
    u32 dwPrefix;           /**< prefix length of the source; not checked here */
    u32 dwPref;             /**< priority, 0 to 32765: the lower one is asked first */
    u32 dwTableId;          /**< the table, 0 to 255 */
    u32 dwFwmark;           /**< firewall mark to match, 0 for none; not checked here */
} TVimbraIpRuleParam;

/** Priority of an interface among those that lead out; 4 bytes. The daemon decides who wins. */
typedef enum EVimbraNetworkPrio VIMBRA_ENUM32 {
    VIMBRA_NETWORK_PRIORITY_DEF = 0, /**< none was given */
    VIMBRA_NETWORK_PRIORITY_1 = 1,   /**< level 1 */
    VIMBRA_NETWORK_PRIORITY_2 = 2,   /**< level 2 */
    VIMBRA_NETWORK_PRIORITY_3 = 3,   /**< level 3 */
    VIMBRA_NETWORK_PRIORITY_4 = 4,   /**< level 4 */
    VIMBRA_NETWORK_PRIORITY_5 = 5    /**< level 5 */
} EVimbraNetworkPrio;

/** The priority of one interface; 20 bytes. */
typedef struct TVimbraNetworkPriority {
    char achIfaceName[VIMBRA_IFACE_NAME_LEN]; /**< the interface; terminated if shorter */
    EVimbraNetworkPrio ePrio;                 /**< its priority */
} TVimbraNetworkPriority;

/** The priorities of all interfaces; 204 bytes. */
typedef struct TVimbraNetworkPrioInfo {
    u32 dwNetNum; /**< how many entries are valid, at most VIMBRA_NETWORK_PRIORITY_MAX */
    TVimbraNetworkPriority tNetPrioParam[VIMBRA_NETWORK_PRIORITY_MAX]; /**< the interfaces */
} TVimbraNetworkPrioInfo;

/**
 * Adds a route to the main table (RTM_NEWROUTE).
 *
 * Refused are: destination and gateway of different families, a family other than IPv4 and IPv6, a
 * metric above 255, a prefix length above 32 (IPv4) or 128 (IPv6). The interface name is not
 * looked at.
 *
 * @param ptNetIpRouteParam  the route.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraAddOneIpRoute(TVimbraIpRouteParam* ptNetIpRouteParam);

/**
 * Adds a route to a numbered table.
 *
 * @param ptNetIpRouteParam  the route, checked as VimbraAddOneIpRoute() does.
 * @param nTableId           the table; not checked here.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraAddOneIpRouteToTable(TVimbraIpRouteParam* ptNetIpRouteParam, u32 nTableId);

/**
 * Deletes a route from the main table (RTM_DELROUTE).
 *
 * @param ptNetIpRouteParam  the route, checked as VimbraAddOneIpRoute() does.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraDelOneIpRoute(TVimbraIpRouteParam* ptNetIpRouteParam);

/**
 * Deletes a route from a numbered table.
 *
 * @param ptNetIpRouteParam  the route, checked as VimbraAddOneIpRoute() does.
 * @param nTableId           the table; not checked here.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraDelOneIpRouteFromTable(TVimbraIpRouteParam* ptNetIpRouteParam, u32 nTableId);

/**
 * Changes the metric of a route in the main table.
 *
 * @param ptNetIpRouteParam  the route, checked as VimbraAddOneIpRoute() does. Its other fields say
 *                           which route is meant, dwRoutePri is the new metric.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraModifyIpRouteMetric(TVimbraIpRouteParam* ptNetIpRouteParam);

/**
 * Lists the routes of the main table. At most 10 are ever told; the daemon chooses which.
 *
 * @param wSinFamily          VIMBRA_FAMILY_IPV4, _IPV6 or _BOTH.
 * @param ptNetAllIpRouteInfo receives the listing; entries past its count are as the daemon sent
 *                            them, that is zero.
 * @retval 0      done.
 * @retval 1105   a null record or another family.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraGetAllIpRoute(u16 wSinFamily, TVimbraAllIpRouteInfo* ptNetAllIpRouteInfo);

/**
 * Sets the default gateway of an interface in the main table.
 *
 * @param pchIfaceName  the interface, at most 16 characters; null leaves the choice to the daemon.
 * @param tGateWay      the gateway: family IPv4 or IPv6.
 * @retval 0     done.
 * @retval 1105  a longer name or another family.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraSetDefGateway(char* pchIfaceName, TVimbraAddr tGateWay);

/**
 * Sets the default gateway of an interface in a numbered table.
 *
 * @param pchIfaceName  the interface, at most 16 characters; null leaves the choice to the daemon.
 * @param tGateWay      the gateway: family IPv4 or IPv6.
 * @param dwTableId     the table, 1 to 254.
 * @retval 0     done.
 * @retval 1105  a longer name, another family or another table.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraSetDefGatewayToTable(char* pchIfaceName, TVimbraAddr tGateWay, u32 dwTableId);

/**
 * Reads the default gateway of an interface from the main table.
 *
 * @param pchIfaceName  the interface, at most 16 characters, IN A BUFFER OF AT LEAST 16 BYTES: all
 *                      16 are read and sent, whatever the name's length, so what follows the
 *                      terminator should be zero. Null leaves the choice to the daemon.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or _IPV6.
 * @param ptGateWay     receives the gateway.
 * @retval 0     done.
 * @retval 1105  a longer name, a null record or another family.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraGetDefGateway(char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay);

/**
 * Reads the default gateway of an interface from a numbered table.
 *
 * @param pchIfaceName  the interface, IN A BUFFER OF AT LEAST 16 BYTES, as VimbraGetDefGateway()
 *                      takes it; or null.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or _IPV6.
 * @param ptGateWay     receives the gateway.
 * @param dwTableId     the table, 1 to 254.
 * @retval 0     done.
 * @retval 1105  a longer name, a null record, another family or another table.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraGetDefGatewayFromTable(char* pchIfaceName, u16 wSinFamily,
                                            TVimbraAddr* ptGateWay, u32 dwTableId);

/**
 * Deletes the default gateway of an interface from the main table.
 *
 * @param pchIfaceName  the interface, at most 16 characters; null leaves the choice to the daemon.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or _IPV6.
 * @retval 0     done.
 * @retval 1105  a longer name or another family.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraDelDefGateway(char* pchIfaceName, u16 wSinFamily);

/**
 * Deletes the default gateway of an interface from a numbered table.
 *
 * @param pchIfaceName  the interface, at most 16 characters; null leaves the choice to the daemon.
 * @param wSinFamily    VIMBRA_FAMILY_IPV4 or _IPV6.
 * @param dwTableId     the table, 1 to 254.
 * @retval 0     done.
 * @retval 1105  a longer name, another family or another table.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraDelDefGatewayFromTable(char* pchIfaceName, u16 wSinFamily, u32 dwTableId);

/**
 * Creates a routing table.
 *
 * @param dwTable  its number, 1 to 252: 253 to 255 are the kernel's own (default, main, local).
 * @retval 0      done.
 * @retval 1105   another number.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraAddRouteTable(u32 dwTable);

/**
 * Removes a routing table.
 *
 * @param dwTable  its number, 1 to 252.
 * @retval 0      done.
 * @retval 1105   another number.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraDelRouteTable(u32 dwTable);

/**
 * Adds a policy rule (RTM_NEWRULE).
 *
 * @param ptRule  the rule.
 * @retval 0      done.
 * @retval 1105   a null rule, a table above 255, another family than IPv4, a priority of 32766 or
 *                more.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraAddIpRule(TVimbraIpRuleParam* ptRule);

/**
 * Deletes a policy rule (RTM_DELRULE).
 *
 * @param ptRule  the rule, checked as VimbraAddIpRule() does.
 * @retval 0      done.
 * @retval 1105   a null or refused rule.
 * @retval other  not carried out: the daemon's number or the transport's result, as told above.
 */
VIMBRA_API s32 VimbraDelIpRule(TVimbraIpRuleParam* ptRule);

/**
 * Rules are not listed: does nothing.
 *
 * @retval 0  always.
 */
VIMBRA_API s32 VimbraGetAllIpRule(void);

/**
 * Sets the network priority list.
 *
 * @param ptConfig  the list; neither count nor values are checked here, all 204 bytes are sent.
 * @retval 0     done.
 * @retval 1105  a null list.
 * @retval -1    no answer or a refusal.
 */
VIMBRA_API s32 VimbraSetNetworkPriority(TVimbraNetworkPrioInfo* ptConfig);

/**
 * Reads the network priority list.
 *
 * @param ptInfo  receives the list exactly as the daemon sent it: DO NOT TRUST dwNetNum BEYOND 10.
 * @retval 0     done; the daemon has no way to refuse.
 * @retval 1105  a null record.
 * @retval -1    no answer.
 */
VIMBRA_API s32 VimbraGetNetworkPriority(TVimbraNetworkPrioInfo* ptInfo);

VIMBRA_END_DECLS

#endif
