/* Starts and stops every service that reports back. Needs the library and nothing else: in C, so
 * that no other library is loaded either. Prints what failed; with status 0 all went well. */
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <vimbra/log.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

static int failures = 0;

static void check(const char* what, int result) {
    if (result != 0) {
        failures++;
        printf("%s: %d\n", what, result);
    }
}

static void on_stat(TNetDevStat* stats, u32 count) {
    (void)stats;
    (void)count;
}
static void on_conflict(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    (void)type;
    (void)mac;
    (void)address;
}
static void on_advertisement(TVimbraRouterAdCb* advertisement) {
    (void)advertisement;
}
static int on_lease(u32 event, struct VimbraDhcpcAddrInfo* lease) {
    (void)event;
    (void)lease;
    return 0;
}
static int on_report(u32 event, void* report) {
    (void)event;
    (void)report;
    return 0;
}
static void on_link(u32 event, void* data, u32 length) {
    (void)event;
    (void)data;
    (void)length;
}
static int on_echo(s32 event, TVimbraPingCBInfo* info) {
    (void)event;
    (void)info;
    return 0;
}
static int on_hop(s32 event, TVimbraTracerouteCBInfo* info) {
    (void)event;
    (void)info;
    return 0;
}

static void watches(void) {
    char name[] = "eth0";

    check("stat start", VimbraStatNotifyCallbackReg(1, on_stat));
    check("stat stop", VimbraStatStop());
    check("conflict start", VimbraIpConflictCheckStart(2, on_conflict));
    check("conflict stop", VimbraIpConflictCheckStop(2));
    check("conflict v6 start", VimbraIpConflictCheckStart(10, on_conflict));
    check("conflict v6 stop", VimbraIpConflictCheckStop(10));
    check("advertisement start", VimbraRouterAdvertiseStart(name, on_advertisement));
    check("advertisement stop", VimbraRouterAdvertiseStop(name));
}

static void clients(void) {
    TVimbraAddr server;
    TVimbraPppoeParam account;

    memset(&server, 0, sizeof(server));
    server.wSinFamily = 2;
    inet_pton(AF_INET, "192.0.2.1", &server.tV4Addr);
    memset(&account, 0, sizeof(account));
    strcpy(account.achUserName, "user");
    strcpy(account.achPassword, "password");
    strcpy(account.achDevName, "eth0");

    check("dhcp start", VimbraDhcpcStart("eth0", 2, on_lease));
    check("dhcp stop", VimbraDhcpcStop("eth0", 2));
    check("ntp start", VimbraNtpcStart(server, 60, on_report));
    check("ntp stop", VimbraNtpcStop(2));
    check("pppoe start", VimbraPppoeStart(&account, 11, on_link));
    check("pppoe stop", VimbraPppoeStop("eth0", 11));
}

static void tests(void) {
    TVimbraAddr host;
    TVimbraPingOpt ping;
    TVimbraTracerouteOpt trace;

    memset(&host, 0, sizeof(host));
    host.wSinFamily = 2;
    inet_pton(AF_INET, "192.0.2.1", &host.tV4Addr);
    memset(&ping, 0, sizeof(ping));
    memset(&trace, 0, sizeof(trace));

    check("ping start", VimbraPingStart(host, &ping, 1, on_echo));
    check("ping stop", VimbraPingStop(1));
    check("traceroute start", VimbraTracerouteStart(host, &trace, 1, on_hop));
    check("traceroute stop", VimbraTracerouteStop(1));
}

int main(void) {
    VimbraDebugLevelSet(0);
    check("init", VimbraInit());
    watches();
    clients();
    tests();
    return failures == 0 ? 0 : 1;
}
