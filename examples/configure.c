/*
 * Gives an interface an address and a default gateway, and looks whether they are there: a daemon that
 * dies without an answer counts as success, so who has to know reads back.
 *
 *     configure eth0 192.0.2.10/24 192.0.2.1
 */
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vimbra/vimbra.h>

/* Says why a call failed, as well as the library knows. */
static int Failed(const char* what, s32 result) {
    TVimbraFailure failure;

    fprintf(stderr, "%s: %s", what, VimbraResultText(result));
    if (VimbraLastFailure(&failure) == VIMBRA_OK) {
        if (failure.eStep == VIMBRA_FAILURE_REFUSAL) {
            fprintf(stderr, "; the daemon refused: %s", strerror(failure.nDaemonCode));
        } else if (failure.nErrno != 0) {
            fprintf(stderr, "; %s: %s", failure.pchCall, strerror(failure.nErrno));
        }
    }
    fputc('\n', stderr);
    return 1;
}

static int HasAddress(const TVimbraIfaceAllIp* list, const TVimbraIfaceIp* wanted) {
    u32 i;

    for (i = 0; i < list->dwIpNum; i++) {
        const TVimbraIfaceIp* each = &list->atNetIfaceIp[i];
        if (each->tIpAddr.tV4Addr.s_addr == wanted->tIpAddr.tV4Addr.s_addr &&
            each->dwPrefix == wanted->dwPrefix) {
            return 1;
        }
    }
    return 0;
}

int main(int argc, char** argv) {
    TVimbraIfaceAllIp set = {0};
    TVimbraIfaceAllIp now;
    TVimbraIfaceIp* address = &set.atNetIfaceIp[0];
    TVimbraAddr gateway = {.wSinFamily = VIMBRA_FAMILY_IPV4};
    TVimbraAddr gatewayNow;
    char* slash = argc == 4 ? strchr(argv[2], '/') : NULL;
    s32 result;

    if (slash == NULL) {
        fprintf(stderr, "usage: configure INTERFACE ADDRESS/PREFIX GATEWAY\n");
        return 2;
    }
    *slash = '\0';
    set.dwIpNum = 1;
    address->eScopeType = VIMBRA_SCOPE_TYPE_GLOBAL;
    address->tIpAddr.wSinFamily = VIMBRA_FAMILY_IPV4;
    address->dwPrefix = (u32)atoi(slash + 1);
    if (inet_pton(AF_INET, argv[2], &address->tIpAddr.tV4Addr) != 1 ||
        inet_pton(AF_INET, argv[3], &gateway.tV4Addr) != 1) {
        fprintf(stderr, "configure: that is no IPv4 address\n");
        return 2;
    }

    VimbraDebugLevelSet(0); /* silence first: preparing the library is logged, too */
    VimbraInit();
    result = VimbraIfaceSetIp(argv[1], VIMBRA_FAMILY_IPV4, &set);
    if (result != VIMBRA_OK) {
        return Failed("address", result);
    }
    result = VimbraSetDefGateway(argv[1], gateway);
    if (result != VIMBRA_OK) {
        return Failed("gateway", result);
    }
    result = VimbraIfaceGetIp(argv[1], VIMBRA_FAMILY_IPV4, &now);
    if (result != VIMBRA_OK || !HasAddress(&now, address)) {
        return Failed("the address is not there", result);
    }
    result = VimbraGetDefGateway(argv[1], VIMBRA_FAMILY_IPV4, &gatewayNow);
    if (result != VIMBRA_OK || gatewayNow.tV4Addr.s_addr != gateway.tV4Addr.s_addr) {
        return Failed("the gateway is not there", result);
    }
    printf("%s has %s/%u, gateway %s\n", argv[1], argv[2], (unsigned)address->dwPrefix, argv[3]);
    return 0;
}
