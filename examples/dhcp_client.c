/*
 * Runs a DHCP client from start to stop: waits for a lease, prints it, gives it back.
 *
 *     dhcp_client eth0
 *
 * The callback runs on the library's listener thread. It only stores what it learns and wakes the main
 * thread, so that the next report never waits for this program.
 */
#include <arpa/inet.h>
#include <pthread.h>
#include <stdio.h>
#include <vimbra/vimbra.h>

static pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_changed = PTHREAD_COND_INITIALIZER;
static u32 g_event;
static TVimbraDhcpcAddrInfo g_lease;

static int OnReport(u32 event, TVimbraDhcpcAddrInfo* lease) {
    pthread_mutex_lock(&g_mutex);
    g_event = event;
    g_lease = *lease; /* the library's record is gone after this call */
    pthread_cond_signal(&g_changed);
    pthread_mutex_unlock(&g_mutex);
    return 0;
}

int main(int argc, char** argv) {
    char text[INET_ADDRSTRLEN];
    u32 event;

    if (argc != 2) {
        fprintf(stderr, "usage: dhcp_client INTERFACE\n");
        return 2;
    }
    VimbraDebugLevelSet(0);
    VimbraInit();
    if (VimbraDhcpcStart(argv[1], VIMBRA_FAMILY_IPV4, OnReport) != VIMBRA_OK) {
        fprintf(stderr, "%s: no DHCP client\n", argv[1]);
        return 1;
    }

    pthread_mutex_lock(&g_mutex);
    while (g_event == 0) {
        pthread_cond_wait(&g_changed, &g_mutex);
    }
    event = g_event;
    if (event == VIMBRA_DHCPC_EVENT_LEASE) {
        inet_ntop(AF_INET, &g_lease.tIpAddrs.tV4Addr, text, sizeof(text));
        printf("%s: %s for %u seconds\n", argv[1], text, (unsigned)g_lease.dwLeaseTime);
    } else {
        printf("%s: no lease\n", argv[1]);
    }
    pthread_mutex_unlock(&g_mutex);

    VimbraDhcpcStop(argv[1], VIMBRA_FAMILY_IPV4);
    return event == VIMBRA_DHCPC_EVENT_LEASE ? 0 : 1;
}
