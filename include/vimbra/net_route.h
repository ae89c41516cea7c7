/**
 * @file
 * Legacy calls for routes and default gateways: interfaces by number, IPv4 words in network byte
 * order. New programs use <vimbra/route.h>, whose calls these are: what it says of requests,
 * unanswered ones included, and of the results holds here too.
 */
#ifndef VIMBRA_NET_ROUTE_H
#define VIMBRA_NET_ROUTE_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** How many routes a legacy listing holds. */
#define NET_ROUTE_MAX 10

/** One route. */
typedef struct TNetIpRouteParam {
    u32 byEthId;     /**< interface number: 0, 1 or 2 */
    u32 dwDesIpNet;  /**< destination network, network byte order */
    u32 dwDesIpMask; /**< its PREFIX LENGTH, 0 to 32, despite the name */
    u32 dwGwIpAdrs;  /**< next hop, network byte order; 0 for none */
    u32 dwRoutePri;  /**< metric, 0 to 255 */
} TNetIpRouteParam;

/** A listing of routes. */
typedef struct TNetAllIpRouteInfo {
    u32 dwIpRouteNum; /**< how many entries are valid, at most NET_ROUTE_MAX */
    TNetIpRouteParam tNetIpRouteParam[NET_ROUTE_MAX]; /**< the routes */
} TNetAllIpRouteInfo;

/**
 * Sets the default gateway of an interface: VimbraSetDefGateway().
 *
 * @param byEthId    0, 1 or 2.
 * @param dwGateway  the gateway, network byte order.
 * @retval 0      done.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer or a refusal.
 */
VIMBRA_API s32 NetSetDefGateway(u32 byEthId, u32 dwGateway);

/**
 * Reads the default gateway of an interface: VimbraGetDefGateway().
 *
 * @param byEthId     0, 1 or 2.
 * @param pdwGateway  receives the gateway, network byte order; untouched unless the call returns 0.
 * @retval 0      done.
 * @retval 1105   a null pointer.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer or a refusal.
 */
VIMBRA_API s32 NetGetDefGateway(u32 byEthId, u32* pdwGateway);

/**
 * Deletes the default gateway of an interface: VimbraDelDefGateway().
 *
 * @param byEthId  0, 1 or 2.
 * @retval 0      done.
 * @retval 1201   there is no such interface.
 * @retval -1     no answer or a refusal.
 */
VIMBRA_API s32 NetDelDefGateway(u32 byEthId);

/**
 * Adds a route: VimbraAddOneIpRoute().
 *
 * @param byEthId             0, 1 or 2; the record's own number is not looked at.
 * @param ptNetIpRouteParam   the route.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval 1201   there is no such interface.
 * @retval other  as VimbraAddOneIpRoute().
 */
VIMBRA_API s32 NetAddOneIpRoute(u32 byEthId, TNetIpRouteParam* ptNetIpRouteParam);

/**
 * Deletes a route: VimbraDelOneIpRoute().
 *
 * @param byEthId             0, 1 or 2; the record's own number is not looked at.
 * @param ptNetIpRouteParam   the route.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval 1201   there is no such interface.
 * @retval other  as VimbraDelOneIpRoute().
 */
VIMBRA_API s32 NetDelOneIpRoute(u32 byEthId, TNetIpRouteParam* ptNetIpRouteParam);

/**
 * Changes the metric of a route: VimbraModifyIpRouteMetric().
 *
 * @param ptNetIpRouteParam   the route, on the interface that its byEthId names, with the new
 *                            metric.
 * @retval 0      done.
 * @retval 1105   a null or refused route.
 * @retval 1201   there is no such interface.
 * @retval other  as VimbraModifyIpRouteMetric().
 */
VIMBRA_API s32 NetModifyIpRouteMetric(TNetIpRouteParam* ptNetIpRouteParam);

/**
 * Lists the IPv4 routes: VimbraGetAllIpRoute(). At most 10 are ever told.
 *
 * @param ptNetAllIpRouteInfo  receives count and entries; byEthId of each entry is left as it was,
 *                             and everything is unless the call returns 0.
 * @retval 0      done.
 * @retval 1105   a null record.
 * @retval other  as VimbraGetAllIpRoute().
 */
VIMBRA_API s32 NetGetAllIpRoute(TNetAllIpRouteInfo* ptNetAllIpRouteInfo);

VIMBRA_END_DECLS

#endif
