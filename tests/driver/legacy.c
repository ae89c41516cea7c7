/* Requests of the legacy generation. */
#include <arpa/inet.h>
#include <string.h>
#include <unistd.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static int g_leases = 0;

static void drive_common(void) {
    char version[256];
    u32 state = 0;

    GIVES(0, NetInit());
    GIVES(0, NetQueryVersion(version, sizeof(version)));
    GIVES(-1, NetQueryVersion(NULL, 0));
    ASKS(0x702, 4, 0, NetLogSwitch(0));
    GIVES(-1, NetLogSwitch(6));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetInterfaceShutdown(9));
    GIVES(-1, NetInterfaceShutdown(0));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetInterfaceNoShutdown(9));
    GIVES(-1, NetInterfaceNoShutdown(0));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetGetEthState(9, &state));
    GIVES(VIMBRA_ERR_PARAM, NetGetEthState(0, NULL));
    GIVES(-1, NetGetEthState(0, &state));
    GIVES(0, NetCheckTheSameNet(inet_addr("192.0.2.1"), 24, inet_addr("192.0.2.9")));
    GIVES(VIMBRA_ERR_NOT_SAME_NET,
          NetCheckTheSameNet(inet_addr("192.0.2.1"), 24, inet_addr("192.0.3.9")));
}

static void drive_reports(void) {
    char eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";
    api_ipaddr_show_info report;
    api_ipaddr_show_info got;
    TNetEthParam one;
    TNetEthParamAll all;
    s32 number = -1;

    memset(&report, 0, sizeof(report));
    strcpy(report.ipaddr_show_info.mac, "02:00:00:00:00:05");
    report.ipaddr_show_info.ipaddr_param_all.ipnum = 1;
    strcpy(report.ipaddr_show_info.ipaddr_param_all.ipaddr_param[0].ipaddr, "192.0.2.1");
    report.ipaddr_show_info.ipaddr_param_all.ipaddr_param[0].ipmask = 24;
    daemon_answers(&report, sizeof(report));
    ASKS(283, 16, 0, apic_ipaddr_show_filter(eth0, &got));
    HOLDS(memcmp(&got, &report, sizeof(got)) == 0);
    GIVES(VIMBRA_ERR_PARAM, apic_ipaddr_show_filter(NULL, &got));
    ASKS(283, 16, 0, NetGetEthParam(0, &one));
    HOLDS(one.dwIpAdrs == inet_addr("192.0.2.1") && one.byMacAdrs[5] == 5);
    GIVES(VIMBRA_ERR_PARAM, NetGetEthParam(0, NULL));
    ASKS(283, 16, 0, NetGetEthParamAll(0, &all));
    GIVES(1, all.dwIpNum);
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetGetEthParamAll(9, &all));
    daemon_says(0);
    GIVES(0, NetGetEthNum(&number));
    GIVES(0, number);
    GIVES(-1, NetGetEthNum(NULL));
    GIVES(0, TNetdevParam.bIfUpState);
}

static void drive_addresses(void) {
    TNetEthParam one;
    const u32 answer[] = {0, 1400};
    u32 mtu = 0;

    memset(&one, 0, sizeof(one));
    one.dwIpAdrs = inet_addr("192.0.2.1");
    one.dwIpMask = htonl(0xffffff00);
    ASKS(257, 44, 0, NetAddEthParamIPAndMask(0, &one));
    GIVES(VIMBRA_ERR_PARAM, NetAddEthParamIPAndMask(0, NULL));
    ASKS(259, 44, 0, NetDelEthParamIPAndMask(0, &one));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDelEthParamIPAndMask(9, &one));
    ASKS(260, 18, 0, NetDelEthParam(0));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDelEthParam(9));
    GIVES(VIMBRA_ERR_PARAM, NetSetEthParam(0, 1, NULL));
    GIVES(0, NetSetEthParam(0, 1, &one));
    GIVES(-1, NetSetEthParam(0, 99, &one));
    ASKS(273, 20, 0, NetSetMtu(0, 1500));
    GIVES(VIMBRA_ERR_PARAM, NetSetMtu(0, 1));
    daemon_answers(answer, sizeof(answer));
    ASKS(274, 16, 0, NetGetMtu(0, &mtu));
    GIVES(1400, mtu);
    GIVES(-1, NetGetMtu(0, NULL));
    daemon_says(0);
}

static void drive_routes_and_gateways(void) {
    TNetIpRouteParam route;
    TNetAllIpRouteInfo all;
    struct {
        s32 result;
        TVimbraAddr gateway;
    } gatewayAnswer;
    struct {
        s32 result;
        TVimbraAllIpRouteInfo all;
    } routesAnswer;
    u32 gateway = 0;

    memset(&route, 0, sizeof(route));
    route.dwDesIpNet = inet_addr("198.51.100.0");
    route.dwDesIpMask = 24;
    route.dwGwIpAdrs = inet_addr("192.0.2.254");
    ASKS(267, 80, 0, NetAddOneIpRoute(0, &route));
    GIVES(VIMBRA_ERR_PARAM, NetAddOneIpRoute(0, NULL));
    ASKS(269, 80, 0, NetDelOneIpRoute(0, &route));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDelOneIpRoute(9, &route));
    ASKS(276, 64, 0, NetModifyIpRouteMetric(&route));
    GIVES(VIMBRA_ERR_PARAM, NetModifyIpRouteMetric(NULL));
    memset(&routesAnswer, 0, sizeof(routesAnswer));
    daemon_answers(&routesAnswer, sizeof(routesAnswer));
    ASKS(275, 2, 0, NetGetAllIpRoute(&all));
    GIVES(0, all.dwIpRouteNum);
    GIVES(VIMBRA_ERR_PARAM, NetGetAllIpRoute(NULL));
    memset(&gatewayAnswer, 0, sizeof(gatewayAnswer));
    gatewayAnswer.gateway.wSinFamily = VIMBRA_FAMILY_IPV4;
    gatewayAnswer.gateway.tV4Addr.s_addr = inet_addr("192.0.2.254");
    daemon_answers(&gatewayAnswer, sizeof(gatewayAnswer));
    ASKS(272, 18, 0, NetGetDefGateway(0, &gateway));
    HOLDS(gateway == inet_addr("192.0.2.254"));
    GIVES(VIMBRA_ERR_PARAM, NetGetDefGateway(0, NULL));
    daemon_says(0);
    ASKS(271, 36, 0, NetSetDefGateway(0, gateway));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetSetDefGateway(9, gateway));
    ASKS(278, 18, 0, NetDelDefGateway(0));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDelDefGateway(9));
}

static int on_leases(u32 event, TNetDhcpsNotify* leases) {
    (void)event;
    (void)leases;
    g_leases++;
    return 0;
}

static void drive_servers(void) {
    static TDhcpServerConfInfo pool;
    TNetDhcpsState state;
    const u32 runs = 1;
    BondParam bond;
    struct {
        s32 result;
        TVimbraIfaceAllIp all;
    } addresses;

    pool.dwDhcpServerEthCount = 1;
    pool.achTDhcpServerEthInfo[0].dwNetMask = 24;
    pool.achTDhcpServerEthInfo[0].dwSubNetMask = 24;
    pool.achTDhcpServerEthInfo[0].dwIpPoolStart = inet_addr("192.0.2.10");
    pool.achTDhcpServerEthInfo[0].dwIpPoolEnd = inet_addr("192.0.2.20");
    pool.achTDhcpServerEthInfo[0].dwRoutes = inet_addr("192.0.2.1");
    pool.achTDhcpServerEthInfo[0].dwEthIp = inet_addr("192.0.2.1");
    memset(&addresses, 0, sizeof(addresses));
    daemon_answers_to(277, &addresses, sizeof(addresses));
    GIVES(0, NetDhcpsStart(&pool, on_leases));
    GIVES(0x801, daemon_type());
    GIVES(-1, NetDhcpsStart(NULL, on_leases));
    daemon_answers(&runs, sizeof(runs));
    ASKS(0x804, 18, 0, NetDhcpsGetState(0, &state));
    GIVES(1, state.dwDhcpsIsRun);
    GIVES(VIMBRA_ERR_PARAM, NetDhcpsGetState(0, NULL));
    daemon_says(0);
    ASKS(0x802, 18, 0, NetDhcpsStopOneEth(0));
    REFUSED(-1, NetDhcpsStopOneEth(0));
    ASKS(0x805, 0, 0, NetDhcpsStop());
    daemon_answers_to(0, NULL, 0);
    memset(&bond, 0, sizeof(bond));
    bond.dwBondIdNum = 1;
    bond.pchBondPath = (char*)"/tmp";
    GIVES(0, NetBondStart(1, &bond));
    GIVES(VIMBRA_ERR_PARAM, NetBondStart(1, NULL));
    ASKS(3842, 0, 0, NetBondStop());
    ASKS(769, 4, 0, NetWebsEnable(80));
    ASKS(770, 0, 0, NetWebsDisable());
    REFUSED(-1, NetWebsDisable());
}

void drive_legacy(void) {
    drive_common();
    drive_reports();
    drive_addresses();
    drive_routes_and_gateways();
    drive_servers();
}
