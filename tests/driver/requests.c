/* Requests of the current generation to the daemon, all but routes. */
#include <arpa/inet.h>
#include <netinet/ip.h>
#include <string.h>
#include <unistd.h>
#include <vimbra/net_ip.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static char g_eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";
static char g_lo[VIMBRA_IFACE_NAME_LEN] = "lo";
static char g_none[VIMBRA_IFACE_NAME_LEN] = "none0";
static char g_long[] = "a-name-of-seventeen";

static TVimbraIfaceIp address(const char* text) {
    TVimbraIfaceIp ip;

    memset(&ip, 0, sizeof(ip));
    ip.eScopeType = VIMBRA_SCOPE_TYPE_GLOBAL;
    ip.tIpAddr.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, text, &ip.tIpAddr.tV4Addr);
    ip.dwPrefix = 24;
    return ip;
}

static void drive_common(void) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    TVimbraAddr host = address("192.0.2.1").tIpAddr;
    TVimbraAddr gateway = address("192.0.2.254").tIpAddr;
    int tos = 0;
    socklen_t length = sizeof(tos);
    u32 state = 0;

    ASKS(0x702, 4, 0, VimbraLogSwitch(VIMBRA_LEVEL_NONE));
    GIVES(-1, VimbraLogSwitch(6));
    REFUSED(-1, VimbraLogSwitch(VIMBRA_LEVEL_NONE));
    GIVES(0, VimbraGetIfaceState(g_lo, &state));
    GIVES(VIMBRA_IFACE_UP, state);
    GIVES(VIMBRA_ERR_PARAM, VimbraGetIfaceState(g_lo, NULL));
    GIVES(0, VimbraIfaceShutdown(g_lo));
    GIVES(0, VimbraGetIfaceState(g_lo, &state));
    GIVES(VIMBRA_IFACE_DOWN, state);
    GIVES(0, VimbraIfaceNoShutdown(g_lo));
    GIVES(-1, VimbraIfaceNoShutdown(g_none));
    GIVES(0, VimbraSetDscp(VIMBRA_FAMILY_IPV4, fd, 46));
    GIVES(0, getsockopt(fd, IPPROTO_IP, IP_TOS, &tos, &length));
    GIVES(46 << 2, tos);
    GIVES(-1, VimbraSetDscp(VIMBRA_FAMILY_IPV4, -1, 46));
    GIVES(VIMBRA_ERR_PARAM, VimbraSetDscp(1, fd, 46));
    close(fd);
    GIVES(0, VimbraCheckIsSameNet(host, 24, gateway));
    GIVES(VIMBRA_ERR_NOT_SAME_NET, VimbraCheckIsSameNet(host, 26, gateway));
    GIVES(VIMBRA_ERR_PARAM, VimbraCheckIsSameNet(host, 0, gateway));
}

static void drive_addresses(void) {
    TVimbraIfaceIp ip = address("192.0.2.1");
    TVimbraIfaceIp loopback = address("127.0.0.1");
    TVimbraIfaceAllIp all;
    struct {
        s32 result;
        TVimbraIfaceAllIp all;
    } answer;

    memset(&all, 0, sizeof(all));
    all.dwIpNum = 1;
    all.atNetIfaceIp[0] = ip;
    ASKS(261, 470, 0, VimbraIfaceSetIp(g_eth0, VIMBRA_FAMILY_IPV4, &all));
    HOLDS(memcmp(daemon_body() + 2, "eth0", 5) == 0);
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceSetIp(g_long, VIMBRA_FAMILY_IPV4, &all));
    REFUSED(-1, VimbraIfaceSetIp(g_eth0, VIMBRA_FAMILY_IPV4, &all));
    ASKS(257, 44, 0, VimbraIfaceAddIp(g_eth0, &ip));
    GIVES(-1, VimbraIfaceAddIp(g_eth0, &loopback));
    ASKS(259, 44, 0, VimbraIfaceDelIp(g_eth0, &ip));
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceDelIp(g_eth0, NULL));
    ASKS(260, 18, 0, VimbraIfaceFlushIp(g_eth0, VIMBRA_FAMILY_IPV4));
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceFlushIp(g_eth0, 1));
    memset(&answer, 0, sizeof(answer));
    answer.all = all;
    daemon_answers(&answer, sizeof(answer));
    memset(&all, 0, sizeof(all));
    ASKS(277, 18, 0, VimbraIfaceGetIp(g_eth0, VIMBRA_FAMILY_IPV4, &all));
    HOLDS(memcmp(&all, &answer.all, sizeof(all)) == 0);
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceGetIp(g_eth0, VIMBRA_FAMILY_IPV4, NULL));
    daemon_says(0);
}

static void drive_hardware(void) {
    TVimbraIfaceMac mac = {{2, 0, 0, 0, 0, 1}};
    u32 mtu = 0;
    struct {
        s32 result;
        TVimbraIfaceMac mac;
    } macAnswer = {0, {{2, 0, 0, 0, 0, 9}}};
    const u32 mtuAnswer[] = {0, 1400};

    ASKS(262, 22, 0, VimbraIfaceSetMac(g_eth0, &mac));
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceSetMac(NULL, &mac));
    ASKS(273, 20, 0, VimbraIfaceSetMtu(g_eth0, VIMBRA_FAMILY_IPV4, 1500));
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceSetMtu(g_eth0, VIMBRA_FAMILY_IPV6, 1000));
    daemon_answers(&macAnswer, sizeof(macAnswer));
    ASKS(263, 16, 0, VimbraIfaceGetMac(g_eth0, &mac));
    GIVES(9, mac.abyMacAddr[5]);
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceGetMac(g_eth0, NULL));
    daemon_answers(mtuAnswer, sizeof(mtuAnswer));
    ASKS(274, 16, 0, VimbraIfaceGetMtu(g_eth0, &mtu));
    GIVES(1400, mtu);
    GIVES(-1, VimbraIfaceGetMtu(g_eth0, NULL));
    daemon_says(0);
}

static void drive_bonds(void) {
    TVimbraBondParam bond;

    memset(&bond, 0, sizeof(bond));
    bond.achIface[0] = g_eth0;
    bond.dwIfaceNum = 1;
    bond.pchActiveIface = g_eth0;
    bond.pchBondPath = (char*)"/tmp";
    GIVES(0, VimbraBondStart(1, &bond));
    GIVES(3841, daemon_type());
    GIVES(1, g_dwBondIsStarted);
    GIVES(VIMBRA_ERR_PARAM, VimbraBondStart(7, &bond));
    bond.pchBondPath = (char*)"/none";
    GIVES(-1, VimbraBondStart(1, &bond));
    REFUSED(-1, VimbraBondStop());
    ASKS(3842, 0, 0, VimbraBondStop());
    GIVES(0, g_dwBondIsStarted);
}

static void drive_servers(void) {
    TVimbraDhcpsInfo pool;
    TVimbraDhcpsState state;
    const u32 runs = 1;
    struct {
        s32 result;
        TVimbraIfaceAllIp all;
    } addresses;

    memset(&addresses, 0, sizeof(addresses));
    memset(&pool, 0, sizeof(pool));
    pool.tIpPoolStart = address("192.0.2.10").tIpAddr;
    pool.tIpPoolEnd = address("192.0.2.20").tIpAddr;
    pool.dwIpPoolPrefix = 24;
    pool.tRoutes = address("192.0.2.1").tIpAddr;
    pool.tIfaceIp = address("192.0.2.1").tIpAddr;
    pool.dwIfacePrefix = 24;
    daemon_answers_to(277, &addresses, sizeof(addresses));
    GIVES(0, VimbraDhcpsStart(g_eth0, VIMBRA_FAMILY_IPV4, &pool));
    HOLDS(daemon_type() == 0x801 && daemon_size() == 1390);
    GIVES(VIMBRA_ERR_PARAM, VimbraDhcpsStart(g_eth0, VIMBRA_FAMILY_IPV4, NULL));
    REFUSED(VIMBRA_ERR_REFUSED, VimbraDhcpsStart(g_eth0, VIMBRA_FAMILY_IPV4, &pool));
    ASKS(0x802, 18, 0, VimbraDhcpsStop(g_eth0, VIMBRA_FAMILY_IPV4));
    GIVES(VIMBRA_ERR_PARAM, VimbraDhcpsStop(NULL, VIMBRA_FAMILY_IPV4));
    daemon_answers(&runs, sizeof(runs));
    ASKS(0x804, 18, 0, VimbraDhcpsGetState(g_eth0, VIMBRA_FAMILY_IPV4, &state));
    GIVES(1, state.dwDhcpsIsRun);
    GIVES(VIMBRA_ERR_PARAM, VimbraDhcpsGetState(g_eth0, 1, &state));
    daemon_says(0);
    daemon_answers_to(0, NULL, 0);
    ASKS(769, 4, 0, VimbraWebsEnable(80));
    REFUSED(-1, VimbraWebsEnable(80));
    ASKS(770, 0, 0, VimbraWebsDisable());
}

void drive_requests(void) {
    drive_common();
    drive_addresses();
    drive_hardware();
    drive_bonds();
    drive_servers();
}
