/*
 * Asks a host for three echoes.
 *
 *     ping 192.0.2.1
 */
#include <arpa/inet.h>
#include <semaphore.h>
#include <stdio.h>
#include <vimbra/vimbra.h>

enum { kProbes = 3, kUser = 1 };

static sem_t g_told;
static int g_answers;

/* On the listener's thread. Only that thread writes g_answers, and sem_post hands it over. */
static int OnEcho(s32 result, TVimbraPingCBInfo* info) {
    if (result == 0) {
        g_answers++;
        printf("%d: %d us, ttl %d\n", (int)info->nSeq, (int)info->nTripTime, (int)info->nTtl);
    } else {
        printf("%d: no answer (%d)\n", (int)info->nSeq, (int)result);
    }
    sem_post(&g_told);
    return 0;
}

int main(int argc, char** argv) {
    TVimbraPingOpt options = {.nPktSize = 56, .nTimeOut = 1000, .nTtl = 64, .nCount = kProbes};
    TVimbraAddr host = {.wSinFamily = VIMBRA_FAMILY_IPV4};
    int i;

    if (argc != 2 || inet_pton(AF_INET, argv[1], &host.tV4Addr) != 1) {
        fprintf(stderr, "usage: ping ADDRESS\n");
        return 2;
    }
    sem_init(&g_told, 0, 0);
    VimbraDebugLevelSet(0);
    VimbraInit();
    if (VimbraPingStart(host, &options, kUser, OnEcho) != VIMBRA_OK) {
        fprintf(stderr, "no ping\n");
        return 1;
    }
    for (i = 0; i < kProbes; i++) {
        sem_wait(&g_told);
    }
    printf("%d of %d\n", g_answers, kProbes);
    /* 1305: it has ended by itself after the last probe. */
    VimbraPingStop(kUser);
    return g_answers > 0 ? 0 : 1;
}
