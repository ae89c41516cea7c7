// The requests behind the calls of <vimbra/route.h>. Arguments are checked by the caller.
#ifndef VIMBRA_API_ROUTE_HPP
#define VIMBRA_API_ROUTE_HPP

#include <vimbra/route.h>

// What can be asked of the daemon at all: 0, or 1105 with the reason logged.
s32 CheckRouteParam(const TVimbraIpRouteParam* ptNetIpRouteParam);
s32 CheckIpRuleParam(const TVimbraIpRuleParam* ptRule);

// Failures are passed on.
s32 ApicOneRouteAdd(const TVimbraIpRouteParam* ptNetIpRouteParam);
s32 ApicOneRouteAddToTable(const TVimbraIpRouteParam* ptNetIpRouteParam, u32 dwTableId);
s32 ApicOneRouteDel(const TVimbraIpRouteParam* ptNetIpRouteParam);
s32 ApicOneRouteDelFromTable(const TVimbraIpRouteParam* ptNetIpRouteParam, u32 dwTableId);
s32 ApicOneRouteMeticModify(const TVimbraIpRouteParam* ptNetIpRouteParam);
s32 ApicAllRouteGet(u16 wSinFamily, TVimbraAllIpRouteInfo* ptNetAllIpRouteInfo);
s32 ApicRouteTableAdd(u32 dwTable);
s32 ApicRouteTableDel(u32 dwTable);
s32 ApicIpRuleAdd(const TVimbraIpRuleParam* ptRule);
s32 ApicIpRuleDel(const TVimbraIpRuleParam* ptRule);

// Every failure is -1. A null name leaves the name field zero.
s32 ApicGateWaySet(const char* pchIfaceName, const TVimbraAddr& tGateWay);
s32 ApicGateWaySetToTable(const char* pchIfaceName, const TVimbraAddr& tGateWay, u32 dwTableId);
s32 ApicGateWayGet(const char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay);
s32 ApicGateWayGetFromTable(const char* pchIfaceName, u16 wSinFamily, TVimbraAddr* ptGateWay,
                            u32 dwTableId);
s32 ApicGateWayDel(const char* pchIfaceName, u16 wSinFamily);
s32 ApicGateWayDelFromTable(const char* pchIfaceName, u16 wSinFamily, u32 dwTableId);
s32 ApicPrioritySet(const TVimbraNetworkPrioInfo* ptConfig);
s32 ApicPriorityGet(TVimbraNetworkPrioInfo* ptInfo);

#endif
