/*
 * Waits until another host uses an address of this one.
 */
#include <arpa/inet.h>
#include <semaphore.h>
#include <stdio.h>
#include <vimbra/vimbra.h>

static sem_t g_found;

static void OnConflict(EVimbraConflictType type, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    const u8* bytes = mac->abyMacAddr;
    char text[INET6_ADDRSTRLEN] = "?";

    inet_ntop(address->wSinFamily, &address->tV6Addr, text, sizeof(text));
    printf("%s %s is used by %02x:%02x:%02x:%02x:%02x:%02x\n",
           type == VIMBRA_IP_CONFLICT ? "address" : "MAC address of", text, bytes[0], bytes[1],
           bytes[2], bytes[3], bytes[4], bytes[5]);
    sem_post(&g_found);
}

int main(void) {
    sem_init(&g_found, 0, 0);
    VimbraDebugLevelSet(0);
    VimbraInit();
    if (VimbraIpConflictCheckStart(VIMBRA_FAMILY_IPV4, OnConflict) != VIMBRA_OK) {
        fprintf(stderr, "no watch\n");
        return 1;
    }
    sem_wait(&g_found);
    VimbraIpConflictCheckStop(VIMBRA_FAMILY_IPV4);
    return 0;
}
