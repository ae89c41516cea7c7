/* Ping and traceroute. */
#include <arpa/inet.h>
#include <string.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static int g_echoes = 0;
static int g_hops = 0;

static void count(int* counter) {
    __atomic_add_fetch(counter, 1, __ATOMIC_RELEASE);
}

static int on_echo(s32 result, TVimbraPingCBInfo* info) {
    HOLDS(result == 0 && info->nUserID == 1 && info->nTtl == 64);
    count(&g_echoes);
    return 0;
}

static void on_legacy_echo(s32 result, s32 ttl, s32 time, s32 number, s32 user, s32 type,
                           s32 code) {
    (void)time;
    (void)number;
    (void)type;
    (void)code;
    HOLDS(result == 0 && ttl == 64 && user == 1);
    count(&g_echoes);
}

static int on_hop(s32 result, TVimbraTracerouteCBInfo* info) {
    HOLDS(result == 101 && info->dwTtl == 3);
    count(&g_hops);
    return 0;
}

static void on_legacy_hop(s32 result, s32 ttl, s32 time, u32 address, char* name, s32 user,
                          s32 type, s32 code) {
    (void)time;
    (void)address;
    (void)name;
    (void)user;
    (void)type;
    (void)code;
    HOLDS(result == 101 && ttl == 3);
    count(&g_hops);
}

static void report_echo(int wanted) {
    const s32 report[] = {1, 64, 10, 1, 0}; /* user, lifetime, time, number, more */

    GIVES(0, notify("ipc_ping", 0, report, sizeof(report)));
    HOLDS(comes_to(&g_echoes, wanted));
}

static void drive_ping(void) {
    TVimbraPingOpt options = {56, 1, 64, 3};
    TVimbraAddr host;

    PingInit();
    HOLDS(g_ptApiPingInfo != NULL);
    memset(&host, 0, sizeof(host));
    host.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, "192.0.2.1", &host.tV4Addr);
    ASKS(3073, 40, 0, VimbraPingStart(host, &options, 1, on_echo));
    GIVES(-1, VimbraPingStart(host, &options, 1, on_echo));
    GIVES(VIMBRA_ERR_PARAM, VimbraPingStart(host, NULL, 2, on_echo));
    GIVES(VIMBRA_ERR_PARAM, VimbraPingStart(host, &options, 0, on_echo));
    report_echo(1);
    GIVES(0, VimbraPingStop(1));
    GIVES(VIMBRA_ERR_PING_UNKNOWN, VimbraPingStop(5));
    GIVES(VIMBRA_ERR_PARAM, VimbraPingStop(0));
    GIVES(0, NetPingStart(inet_addr("192.0.2.1"), &options, 1, on_legacy_echo));
    GIVES(VIMBRA_ERR_PARAM, NetPingStart(inet_addr("192.0.2.1"), NULL, 1, on_legacy_echo));
    GIVES(VIMBRA_ERR_CALLBACK, NetPingStart(inet_addr("192.0.2.1"), &options, 2, NULL));
    report_echo(2);
    GIVES(0, NetPingStop(1));
    GIVES(VIMBRA_ERR_PARAM, NetPingStop(0));
}

static void report_hop(int wanted) {
    TVimbraTracerouteCBInfo report;

    memset(&report, 0, sizeof(report));
    report.dwTtl = 3;
    report.nUserId = 1;
    GIVES(0, notify("ipc_traceroute", 101, &report, sizeof(report)));
    HOLDS(comes_to(&g_hops, wanted));
}

static void drive_traceroute(void) {
    TVimbraTracerouteOpt options = {30};
    TTraceroutePara legacy;
    TVimbraAddr host;

    TracerouteInit();
    HOLDS(g_ptApiTracerouteInfo != NULL);
    memset(&host, 0, sizeof(host));
    host.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, "192.0.2.1", &host.tV4Addr);
    ASKS(3329, 28, 0, VimbraTracerouteStart(host, &options, 1, on_hop));
    GIVES(VIMBRA_ERR_CALLBACK, VimbraTracerouteStart(host, NULL, 2, on_hop));
    GIVES(VIMBRA_ERR_PARAM, VimbraTracerouteStart(host, &options, 0, on_hop));
    report_hop(1);
    GIVES(0, VimbraTracerouteStop(1));
    GIVES(0, VimbraTracerouteStop(1));
    GIVES(VIMBRA_ERR_PARAM, VimbraTracerouteStop(0));
    legacy.dwDstIp = inet_addr("192.0.2.1");
    legacy.dwTtl = 30;
    GIVES(0, NetTracerouteStart(&legacy, 1, on_legacy_hop));
    GIVES(VIMBRA_ERR_PARAM, NetTracerouteStart(NULL, 1, on_legacy_hop));
    GIVES(VIMBRA_ERR_CALLBACK, NetTracerouteStart(&legacy, 2, NULL));
    report_hop(2);
    GIVES(0, NetTracerouteStop(1));
    GIVES(VIMBRA_ERR_PARAM, NetTracerouteStop(0));
    GIVES(-1, ClearTraceRtMsgQueue(1));
}

void drive_probes(void) {
    drive_ping();
    drive_traceroute();
}
