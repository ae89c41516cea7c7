/* Routes, gateways, tables, rules, priorities. */
#include <arpa/inet.h>
#include <string.h>
#include <vimbra/route.h>

#include "driver.h"

static char g_eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";

static TVimbraAddr address(const char* text) {
    TVimbraAddr ip;

    memset(&ip, 0, sizeof(ip));
    ip.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, text, &ip.tV4Addr);
    return ip;
}

static void drive_single_routes(void) {
    TVimbraIpRouteParam route;
    struct {
        s32 result;
        TVimbraAllIpRouteInfo all;
    } answer;
    TVimbraAllIpRouteInfo all;

    memset(&route, 0, sizeof(route));
    strcpy(route.achIfaceName, g_eth0);
    route.tDestIpNet = address("198.51.100.0");
    route.tDestGateWay = address("192.0.2.254");
    route.dwPrefix = 24;
    route.dwRoutePri = 5;
    ASKS(267, 80, 0, VimbraAddOneIpRoute(&route));
    GIVES(VIMBRA_ERR_PARAM, VimbraAddOneIpRoute(NULL));
    REFUSED(7, VimbraAddOneIpRoute(&route));
    ASKS(267, 84, 0, VimbraAddOneIpRouteToTable(&route, 100));
    GIVES(VIMBRA_ERR_PARAM, VimbraAddOneIpRouteToTable(NULL, 100));
    ASKS(269, 80, 0, VimbraDelOneIpRoute(&route));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelOneIpRoute(NULL));
    ASKS(269, 84, 0, VimbraDelOneIpRouteFromTable(&route, 100));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelOneIpRouteFromTable(NULL, 100));
    ASKS(276, 64, 0, VimbraModifyIpRouteMetric(&route));
    GIVES(VIMBRA_ERR_PARAM, VimbraModifyIpRouteMetric(NULL));
    memset(&answer, 0, sizeof(answer));
    answer.all.dwIpRouteNum = 1;
    answer.all.tNetIpRouteParam[0] = route;
    daemon_answers(&answer, sizeof(answer));
    ASKS(275, 2, 0, VimbraGetAllIpRoute(VIMBRA_FAMILY_IPV4, &all));
    GIVES(1, all.dwIpRouteNum);
    HOLDS(memcmp(&all.tNetIpRouteParam[0], &route, sizeof(route)) == 0);
    GIVES(VIMBRA_ERR_PARAM, VimbraGetAllIpRoute(1, &all));
    daemon_says(0);
}

static void drive_gateways(void) {
    char seventeen[] = "a-name-of-seventeen";
    const TVimbraAddr gateway = address("192.0.2.254");
    TVimbraAddr got;
    struct {
        s32 result;
        TVimbraAddr gateway;
    } answer = {0, gateway};

    ASKS(271, 36, 0, VimbraSetDefGateway(g_eth0, gateway));
    GIVES(VIMBRA_ERR_PARAM, VimbraSetDefGateway(seventeen, gateway));
    REFUSED(-1, VimbraSetDefGateway(g_eth0, gateway));
    ASKS(271, 40, 0, VimbraSetDefGatewayToTable(g_eth0, gateway, 100));
    GIVES(VIMBRA_ERR_PARAM, VimbraSetDefGatewayToTable(seventeen, gateway, 100));
    ASKS(278, 18, 0, VimbraDelDefGateway(g_eth0, VIMBRA_FAMILY_IPV4));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelDefGateway(g_eth0, 1));
    ASKS(278, 22, 0, VimbraDelDefGatewayFromTable(g_eth0, VIMBRA_FAMILY_IPV4, 100));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelDefGatewayFromTable(g_eth0, 1, 100));
    daemon_answers(&answer, sizeof(answer));
    ASKS(272, 18, 0, VimbraGetDefGateway(g_eth0, VIMBRA_FAMILY_IPV4, &got));
    HOLDS(memcmp(&got, &gateway, sizeof(got)) == 0);
    GIVES(VIMBRA_ERR_PARAM, VimbraGetDefGateway(g_eth0, VIMBRA_FAMILY_IPV4, NULL));
    ASKS(272, 22, 0, VimbraGetDefGatewayFromTable(g_eth0, VIMBRA_FAMILY_IPV4, &got, 100));
    GIVES(VIMBRA_ERR_PARAM, VimbraGetDefGatewayFromTable(g_eth0, 1, &got, 100));
    daemon_says(0);
}

static void drive_rules(void) {
    TVimbraIpRuleParam rule;

    memset(&rule, 0, sizeof(rule));
    rule.tFromIpNet = address("192.0.2.0");
    rule.dwPrefix = 24;
    rule.dwPref = 100;
    rule.dwTableId = 100;
    ASKS(288, 4, 0, VimbraAddRouteTable(100));
    GIVES(VIMBRA_ERR_PARAM, VimbraAddRouteTable(256));
    ASKS(289, 4, 0, VimbraDelRouteTable(100));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelRouteTable(256));
    ASKS(291, 36, 0, VimbraAddIpRule(&rule));
    GIVES(VIMBRA_ERR_PARAM, VimbraAddIpRule(NULL));
    ASKS(292, 36, 0, VimbraDelIpRule(&rule));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelIpRule(NULL));
    GIVES(0, VimbraGetAllIpRule());
}

static void drive_priorities(void) {
    TVimbraNetworkPrioInfo list;
    TVimbraNetworkPrioInfo got;

    memset(&list, 0, sizeof(list));
    list.dwNetNum = 1;
    strcpy(list.tNetPrioParam[0].achIfaceName, g_eth0);
    list.tNetPrioParam[0].ePrio = VIMBRA_NETWORK_PRIORITY_1;
    ASKS(284, sizeof(list), 0, VimbraSetNetworkPriority(&list));
    GIVES(VIMBRA_ERR_PARAM, VimbraSetNetworkPriority(NULL));
    daemon_answers(&list, sizeof(list));
    ASKS(285, 0, 0, VimbraGetNetworkPriority(&got));
    HOLDS(memcmp(&got, &list, sizeof(got)) == 0);
    GIVES(VIMBRA_ERR_PARAM, VimbraGetNetworkPriority(NULL));
    daemon_says(0);
}

void drive_routes(void) {
    drive_single_routes();
    drive_gateways();
    drive_rules();
    drive_priorities();
}
