/* Clients that report back: DHCP, PPPoE, NTP. */
#include <arpa/inet.h>
#include <string.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static int g_leases = 0;
static int g_links = 0;
static int g_times = 0;

static void count(int* counter) {
    __atomic_add_fetch(counter, 1, __ATOMIC_RELEASE);
}

static int on_lease(u32 event, struct VimbraDhcpcAddrInfo* lease) {
    GIVES(VIMBRA_DHCPC_EVENT_LEASE, event);
    GIVES(3600, lease->dwLeaseTime);
    count(&g_leases);
    return 0;
}

static int on_legacy_lease(u32 event, TNetDhcpcNotify* lease) {
    GIVES(VIMBRA_DHCPC_EVENT_LEASE, event);
    HOLDS(lease->dwIpAddrs == inet_addr("192.0.2.1"));
    count(&g_leases);
    return 0;
}

static void on_link(u32 event, void* data, u32 length) {
    (void)data;
    if (event == VIMBRA_PPPOE_EVENT_STOPPED) {
        GIVES(0, length);
        return;
    }
    HOLDS(event == VIMBRA_PPPOE_EVENT_CONNECTED && length == sizeof(TVimbraPppoeAddr));
    count(&g_links);
}

static void on_legacy_link(u32 event, void* data, u32 length) {
    (void)data;
    (void)length;
    if (event == NET_PPPOE_EVENT_CONNECTED) {
        count(&g_links);
    }
}

static int on_time(u32 event, void* report) {
    (void)report;
    GIVES(VIMBRA_NTPC_EVENT_1, event);
    count(&g_times);
    return 0;
}

static TVimbraAddr address(const char* text) {
    TVimbraAddr ip;

    memset(&ip, 0, sizeof(ip));
    ip.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, text, &ip.tV4Addr);
    return ip;
}

static void report_lease(int wanted) {
    TVimbraDhcpcAddrInfo lease;

    memset(&lease, 0, sizeof(lease));
    strcpy(lease.achDevName, "eth0");
    lease.tIpAddrs = address("192.0.2.1");
    lease.tGateWay = address("192.0.2.254");
    lease.dwIpPrefix = 24;
    lease.dwLeaseTime = 3600;
    GIVES(0, notify("ipc_dhcpc_eth0", 1285, &lease, sizeof(lease)));
    HOLDS(comes_to(&g_leases, wanted));
}

static void drive_dhcp(void) {
    TVimbraDhcpcAddrInfo lease;
    TVimbraDhcpcState state;
    TDhcpcInfo record;
    TDhcpcInfo* client;

    DhcpcInit();
    HOLDS(g_ptApiDhcpCInfo != NULL);
    GIVES(0, CheckFamily(VIMBRA_FAMILY_IPV6));
    GIVES(-1, CheckFamily(1));
    GIVES(VIMBRA_ERR_CALLBACK, VimbraDhcpcStart("eth0", VIMBRA_FAMILY_IPV4, NULL));
    GIVES(VIMBRA_ERR_PARAM, VimbraDhcpcStart(NULL, VIMBRA_FAMILY_IPV4, on_lease));
    REFUSED(VIMBRA_ERR_REFUSED, VimbraDhcpcStart("eth0", VIMBRA_FAMILY_IPV4, on_lease));
    GIVES(0, VimbraDhcpcStart("eth0", VIMBRA_FAMILY_IPV4, on_lease));
    GIVES(1281, daemon_type());
    report_lease(1);
    HOLDS(FamilyMapDhcpcInfo(g_ptApiDhcpCInfo->wSinfamily) == g_ptApiDhcpCInfo);
    HOLDS(FamilyMapDhcpcInfo(9) == NULL);
    client = FamilyMapDhcpcInfoExt(VIMBRA_FAMILY_IPV4, "eth0");
    HOLDS(client != NULL && client->bDhcpcStarted == 1);
    HOLDS(FamilyMapDhcpcInfoExt(VIMBRA_FAMILY_IPV4, "eth9") == NULL);
    GIVES(0, VimbraDhcpcGetLeaseInfo("eth0", VIMBRA_FAMILY_IPV4, &lease));
    GIVES(3600, lease.dwLeaseTime);
    GIVES(-1, VimbraDhcpcGetLeaseInfo("eth9", VIMBRA_FAMILY_IPV4, &lease));
    GIVES(0, VimbraDhcpcGetIfstate("eth0", VIMBRA_FAMILY_IPV4, &state));
    GIVES(1, state.dwDhcpcIsRun);
    GIVES(VIMBRA_ERR_PARAM, VimbraDhcpcGetIfstate("eth0", VIMBRA_FAMILY_IPV4, NULL));
    GIVES(0, LinuxNetDhcpcGetState("eth9", VIMBRA_FAMILY_IPV4, &state));
    GIVES(0, state.dwDhcpcIsRun);
    /* No client process runs here. */
    GIVES(VIMBRA_ERR_NO_PROCESS, VimbraDhcpcRenew("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(VIMBRA_ERR_NO_PROCESS, LinuxNetDhcpcRenew("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(-1, VimbraDhcpcRenew("eth9", VIMBRA_FAMILY_IPV4));
    ASKS(1287, 18, 0, AndoridDhcpcRenew("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(-1, AndoridDhcpcRenew(NULL, VIMBRA_FAMILY_IPV4));
    GIVES(0, VimbraDhcpcStop("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(1282, daemon_type());
    GIVES(-1, VimbraDhcpcStop("eth0", VIMBRA_FAMILY_IPV4));

    memset(&record, 0, sizeof(record));
    record.wSinfamily = VIMBRA_FAMILY_IPV4;
    strcpy(record.tDhcpcAddr.achDevName, "eth0");
    GIVES(0, ApicDhcpcStart(&record));
    GIVES(-1, ApicDhcpcStart(NULL));
    GIVES(0, ApicDhcpcStop("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(-1, ApicDhcpcStop(NULL, VIMBRA_FAMILY_IPV4));
}

static void drive_legacy_dhcp(void) {
    TNetDhcpcLeaseBuffer lease;
    TNetDhcpcState state;

    GIVES(0, NetDhcpcStart(0, on_legacy_lease, 1));
    report_lease(2);
    GIVES(0, NetDhcpcGetLeaseInfo(0, &lease.tLegacy));
    GIVES(3600, lease.tLease.dwLeaseTime);
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDhcpcGetLeaseInfo(9, &lease.tLegacy));
    GIVES(0, NetDhcpcGetIfstate(0, &state));
    GIVES(1, state.dwDhcpcIsRun);
    GIVES(VIMBRA_ERR_PARAM, NetDhcpcGetIfstate(0, NULL));
    GIVES(VIMBRA_ERR_NO_PROCESS, NetDhcpcRenew(0));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDhcpcRenew(9));
    GIVES(0, NetDhcpcStop(0));
    GIVES(-1, NetDhcpcStop(0));
}

static void drive_pppoe(void) {
    TVimbraPppoeParam account;
    TPppoeInitParam legacy;
    TVimbraPppoeAddr addresses;
    TVimbraPppoeStates states;
    TVimbraVersion version;
    TVersion legacyVersion;

    PppoeInit();
    HOLDS(g_ptApiPppoeInfo != NULL);
    memset(&account, 0, sizeof(account));
    memset(&addresses, 0, sizeof(addresses));
    GIVES(VIMBRA_ERR_PARAM, VimbraPppoeStart(&account, VIMBRA_FAMILY_IPV4, on_link));
    strcpy(account.achUserName, "user");
    strcpy(account.achPassword, "password");
    strcpy(account.achDevName, "eth0");
    GIVES(0, VimbraPppoeStart(&account, VIMBRA_FAMILY_IPV4, on_link));
    GIVES(1537, daemon_type());
    GIVES(-1, VimbraPppoeStart(&account, VIMBRA_FAMILY_IPV4, on_link));
    GIVES(0, notify("ipc_pppoe", 1, &addresses, sizeof(addresses)));
    HOLDS(comes_to(&g_links, 1));
    GIVES(0, VimbraPppoeStop("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(0, VimbraPppoeStop("eth0", VIMBRA_FAMILY_IPV4));
    GIVES(VIMBRA_ERR_PARAM, VimbraPppoeStop("eth0", 1));
    GIVES(0, VimbraPppoeVer(&version));
    HOLDS(version.achVersion[0] != '\0');
    GIVES(VIMBRA_ERR_PARAM, VimbraPppoeVer(NULL));
    memset(&states, 0, sizeof(states));
    VimbraPppoeStatesDump(&states);
    VimbraPppoeStatesDump(NULL);

    memset(&legacy, 0, sizeof(legacy));
    strcpy(legacy.abyUserName, "user");
    strcpy(legacy.abyPassword, "password");
    GIVES(0, NetPppoeStart(&legacy, on_legacy_link));
    GIVES(-1, NetPppoeStart(NULL, on_legacy_link));
    GIVES(0, notify("ipc_pppoe", 1, &addresses, sizeof(addresses)));
    HOLDS(comes_to(&g_links, 2));
    GIVES(0, NetPppoeStop());
    GIVES(0, NetPppoeVer(&legacyVersion));
    GIVES(VIMBRA_ERR_PARAM, NetPppoeVer(NULL));
}

static void drive_ntp(void) {
    const TVimbraAddr host = address("192.0.2.1");
    TVimbraAddr other = host;
    TVimbraNtpcReport report;

    HOLDS(g_ptApiNtpCInfo != NULL);
    memset(&report, 0, sizeof(report));
    other.wSinFamily = 1;
    ASKS(2305, 26, 0, VimbraNtpcStart(host, 60, on_time));
    GIVES(-1, VimbraNtpcStart(host, 60, on_time));
    GIVES(VIMBRA_ERR_CALLBACK, VimbraNtpcStart(host, 60, NULL));
    GIVES(0, notify("ipc_ntp", 1, &report, sizeof(report)));
    HOLDS(comes_to(&g_times, 1));
    ASKS(2306, 2, 0, VimbraNtpcStop(VIMBRA_FAMILY_IPV4));
    GIVES(-1, VimbraNtpcStop(1));
    ASKS(2307, 20, 0, VimbraNtpcSerCheck(host));
    GIVES(-1, VimbraNtpcSerCheck(other));
    REFUSED(-1, VimbraNtpcSerCheck(host));
    GIVES(0, VimBraNtpcStart(inet_addr("192.0.2.1"), 60, on_time));
    GIVES(VIMBRA_ERR_CALLBACK, VimBraNtpcStart(inet_addr("192.0.2.1"), 60, NULL));
    GIVES(0, VimBraNtpcStop());
    GIVES(0, VimBraNtpcStop());
    ASKS(2307, 20, 0, NetCheckNtpcServer(inet_addr("192.0.2.1")));
    REFUSED(-1, NetCheckNtpcServer(inet_addr("192.0.2.1")));
}

void drive_clients(void) {
    drive_dhcp();
    drive_legacy_dhcp();
    drive_pppoe();
    drive_ntp();
}
