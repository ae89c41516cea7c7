/*
 * Dials over PPPoE, prints the addresses of the link, and hangs up at the end of its input.
 *
 *     pppoe_dial eth0 user <password-file
 */
#include <arpa/inet.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <vimbra/vimbra.h>

static pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t g_changed = PTHREAD_COND_INITIALIZER;
static u32 g_event;

static void OnEvent(u32 event, void* data, u32 size) {
    const TVimbraPppoeAddr* link = data;
    char ours[INET_ADDRSTRLEN], peer[INET_ADDRSTRLEN];

    if (event == VIMBRA_PPPOE_EVENT_CONNECTED && size >= sizeof(*link)) {
        inet_ntop(AF_INET, &link->tOurIpaddr.tV4Addr, ours, sizeof(ours));
        inet_ntop(AF_INET, &link->tPeerIpAddr.tV4Addr, peer, sizeof(peer));
        printf("up: %s, peer %s\n", ours, peer);
    } else if (event == VIMBRA_PPPOE_EVENT_STOPPED) {
        puts("over");
    } else {
        printf("event %u\n", (unsigned)event);
    }
    fflush(stdout);
    pthread_mutex_lock(&g_mutex);
    g_event = event;
    pthread_cond_signal(&g_changed);
    pthread_mutex_unlock(&g_mutex);
}

int main(int argc, char** argv) {
    TVimbraPppoeParam dial = {.dwAutoDialInterval = 5, .wDialRetryTimes = 3};
    int isUp;

    if (argc != 3 || fgets(dial.achPassword, sizeof(dial.achPassword), stdin) == NULL) {
        fprintf(stderr, "usage: pppoe_dial INTERFACE USER <PASSWORD-FILE\n");
        return 2;
    }
    dial.achPassword[strcspn(dial.achPassword, "\n")] = '\0';
    snprintf(dial.achUserName, sizeof(dial.achUserName), "%s", argv[2]);
    snprintf(dial.achDevName, sizeof(dial.achDevName), "%s", argv[1]);

    VimbraDebugLevelSet(0);
    VimbraInit();
    if (VimbraPppoeStart(&dial, VIMBRA_FAMILY_IPV4, OnEvent) != VIMBRA_OK) {
        fprintf(stderr, "%s: not dialled\n", argv[1]);
        return 1;
    }
    memset(dial.achPassword, 0, sizeof(dial.achPassword));
    pthread_mutex_lock(&g_mutex);
    while (g_event == 0) {
        pthread_cond_wait(&g_changed, &g_mutex);
    }
    isUp = g_event == VIMBRA_PPPOE_EVENT_CONNECTED;
    pthread_mutex_unlock(&g_mutex);
    while (isUp && getchar() != EOF) {
    }
    VimbraPppoeStop(argv[1], VIMBRA_FAMILY_IPV4);
    return isUp ? 0 : 1;
}
