/*
 * How an application is tested without a network: the daemon is played by a script. The application here is
 * a DHCP client that keeps the address it has; it is tested with a refused start, a lease, and a lease that
 * is lost.
 *
 *     cc lease_test.c $(pkg-config --cflags --libs vimbra vimbra-test) -o lease_test
 *     vimbra-sandbox -- ./lease_test
 */
#include <arpa/inet.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vimbra-test/fake.h>
#include <vimbra/vimbra.h>

/* ---- the application ---- */

static pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
static char g_address[INET_ADDRSTRLEN]; /* empty without a lease */
static int g_reports;

static int OnReport(u32 event, TVimbraDhcpcAddrInfo* lease) {
    pthread_mutex_lock(&g_mutex);
    g_address[0] = '\0';
    if (event == VIMBRA_DHCPC_EVENT_LEASE) {
        inet_ntop(AF_INET, &lease->tIpAddrs.tV4Addr, g_address, sizeof(g_address));
    }
    g_reports++;
    pthread_mutex_unlock(&g_mutex);
    return 0;
}

static int StartClient(void) {
    return VimbraDhcpcStart("eth0", VIMBRA_FAMILY_IPV4, OnReport);
}

/* ---- its test ---- */

/* Aborts in every build, unlike assert(3). */
#define CHECK(condition)                                               \
    do {                                                               \
        if (!(condition)) {                                            \
            fprintf(stderr, "%d: not so: %s\n", __LINE__, #condition); \
            abort();                                                   \
        }                                                              \
    } while (0)

static int HasAddress(const char* wanted) {
    int has;

    pthread_mutex_lock(&g_mutex);
    has = strcmp(g_address, wanted) == 0;
    pthread_mutex_unlock(&g_mutex);
    return has;
}

int main(void) {
    char why[256];
    char* asked;
    TVimbraFake* daemon;

    VimbraDebugLevelSet(0);
    VimbraInit();
    daemon = VimbraFakeStart("{\"answers\": {\"dhcp-client-start\": [{\"code\": 19}, {}]}}", why,
                             sizeof(why));
    if (daemon == NULL) {
        fprintf(stderr, "%s\n", why);
        return 1;
    }

    /* The first start is refused with ENODEV: no client. */
    CHECK(StartClient() != VIMBRA_OK);
    /* The second one is not. */
    CHECK(StartClient() == VIMBRA_OK);
    CHECK(VimbraFakeWait(daemon, 2, 10000) == 0);

    /* A lease: the call returns when the callback has run. */
    CHECK(VimbraFakeNotify(daemon,
                           "{\"notify\": \"lease\", \"socket\": \"ipc_dhcpc_eth0\", \"body\": "
                           "{\"achDevName\": \"eth0\", \"tIpAddrs\": \"192.0.2.7\"}}",
                           why, sizeof(why)) == 0);
    CHECK(HasAddress("192.0.2.7"));
    /* It is lost. */
    CHECK(VimbraFakeNotify(daemon,
                           "{\"notify\": \"lease-failed\", \"socket\": \"ipc_dhcpc_eth0\", "
                           "\"body\": {\"achDevName\": \"eth0\"}}",
                           why, sizeof(why)) == 0);
    CHECK(HasAddress(""));
    CHECK(VimbraDhcpcStop("eth0", VIMBRA_FAMILY_IPV4) == VIMBRA_OK);

    asked = VimbraFakeRequests(daemon);
    CHECK(asked != NULL && strstr(asked, "\"dhcp-client-stop\"") != NULL);
    fputs(asked, stdout);
    free(asked);
    VimbraFakeStop(daemon);
    return 0;
}
