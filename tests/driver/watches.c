/* Watches: statistics, conflicts, router advertisements. Each is started, told something, stopped. */
#include <arpa/inet.h>
#include <string.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static int g_stats = 0;
static int g_conflicts = 0;
static int g_advertisements = 0;

static void count(int* counter) {
    __atomic_add_fetch(counter, 1, __ATOMIC_RELEASE);
}

static void on_stat(TNetDevStat* stats, u32 number) {
    HOLDS(number >= 1 && stats[0].dwBandSended == 5);
    count(&g_stats);
}

static void on_conflict(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    (void)type;
    HOLDS(mac->abyMacAddr[5] == 9 && address->tV4Addr.s_addr == inet_addr("192.0.2.1"));
    count(&g_conflicts);
}

static void on_legacy_conflict(u32 type, u8* mac, u32 address) {
    (void)type;
    HOLDS(mac[5] == 9 && address == inet_addr("192.0.2.1"));
    count(&g_conflicts);
}

static void on_conflict_ex(u32 type, TNetConflictInfo* info) {
    (void)type;
    HOLDS(info->abyMacAddr[5] == 9);
    count(&g_conflicts);
}

static void on_advertisement(TVimbraRouterAdCb* advertisement) {
    check_text("advertisement", "eth0", advertisement->achIfaceName);
    count(&g_advertisements);
}

static void drive_statistics(void) {
    struct __attribute__((packed)) {
        u64 sent;
        u64 received;
        u32 valid;
        u32 reserved;
    } report[3];

    memset(report, 0, sizeof(report));
    report[0].sent = 5;
    report[0].valid = 1;
    GIVES(-1, VimbraStatNotifyCallbackReg(0, on_stat));
    GIVES(-1, VimbraStatNotifyCallbackReg(1, NULL));
    GIVES(-1, NetStatNotifyCallbackReg(-1, on_stat));
    ASKS(0x703, 4, 0, VimbraStatNotifyCallbackReg(1, on_stat));
    GIVES(0, notify("ipc_stat", 0, report, sizeof(report)));
    HOLDS(comes_to(&g_stats, 1));
    REFUSED(-1, VimbraStatStop());
    ASKS(0x704, 0, 0, VimbraStatStop());
    GIVES(0, VimbraStatStop());
    ASKS(0x703, 4, 0, NetStatNotifyCallbackReg(1, on_stat));
    ASKS(0x704, 0, 0, NetStatStop());
}

static void report_conflict(int wanted) {
    struct __attribute__((packed)) {
        char name[16];
        TVimbraAddr address;
        TVimbraIfaceMac mac;
    } report;

    memset(&report, 0, sizeof(report));
    strcpy(report.name, "eth0");
    report.address.wSinFamily = VIMBRA_FAMILY_IPV4;
    report.address.tV4Addr.s_addr = inet_addr("192.0.2.1");
    report.mac.abyMacAddr[5] = 9;
    GIVES(0, notify("ipc_ip_conflict", VIMBRA_IP_CONFLICT, &report, sizeof(report)));
    HOLDS(comes_to(&g_conflicts, wanted));
}

static void drive_conflicts(void) {
    IpConflictCheckInit();
    HOLDS(g_ptIpConflictInfo != NULL);
    ASKS(281, 2, 0, VimbraIpConflictCheckStart(VIMBRA_FAMILY_IPV4, on_conflict));
    GIVES(-1, VimbraIpConflictCheckStart(VIMBRA_FAMILY_IPV4, on_conflict));
    GIVES(VIMBRA_ERR_CALLBACK, VimbraIpConflictCheckStart(VIMBRA_FAMILY_IPV6, NULL));
    GIVES(VIMBRA_ERR_PARAM, VimbraIpConflictCheckStart(1, on_conflict));
    report_conflict(1);
    ASKS(282, 2, 0, VimbraIpConflictCheckStop(VIMBRA_FAMILY_IPV4));
    GIVES(VIMBRA_ERR_PARAM, VimbraIpConflictCheckStop(1));
    GIVES(0, NetIpConflictCallBackReg(on_legacy_conflict));
    GIVES(-1, NetIpConflictCallBackReg(on_legacy_conflict));
    report_conflict(2);
    GIVES(0, VimbraIpConflictCheckStop(VIMBRA_FAMILY_IPV4));
    GIVES(0, NetIpConflictCallBackRegEx(on_conflict_ex));
    GIVES(-1, NetIpConflictCallBackRegEx(on_conflict_ex));
    report_conflict(3);
    GIVES(0, VimbraIpConflictCheckStop(VIMBRA_FAMILY_IPV4));
    GIVES(0, NetIpOnceConflicted());
}

static void drive_advertisements(void) {
    char eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";
    TVimbraRouterAdCb report;

    RouterAdvertiseInit();
    HOLDS(g_ptApiRouterNotifyInfo != NULL);
    ASKS(279, 20, 0, VimbraRouterAdvertiseStart(eth0, on_advertisement));
    GIVES(-1, VimbraRouterAdvertiseStart(eth0, on_advertisement));
    GIVES(VIMBRA_ERR_PARAM, VimbraRouterAdvertiseStart(NULL, on_advertisement));
    GIVES(VIMBRA_ERR_CALLBACK, VimbraRouterAdvertiseStart(eth0, NULL));
    memset(&report, 0, sizeof(report));
    strcpy(report.achIfaceName, eth0);
    GIVES(0, notify("ipc_router_notify", 0, &report, sizeof(report)));
    HOLDS(comes_to(&g_advertisements, 1));
    ASKS(280, 16, 0, VimbraRouterAdvertiseStop(eth0));
    GIVES(-1, VimbraRouterAdvertiseStop(eth0));
    GIVES(VIMBRA_ERR_PARAM, VimbraRouterAdvertiseStop(NULL));
}

void drive_watches(void) {
    drive_statistics();
    drive_conflicts();
    drive_advertisements();
}
