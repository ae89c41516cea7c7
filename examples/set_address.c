#include <arpa/inet.h>
#include <stdio.h>
#include <vimbra/vimbra.h>

int main(int argc, char** argv) {
    char eth0[] = "eth0";
    char* name = argc > 1 ? argv[1] : eth0;
    TVimbraIfaceAllIp set = {0};
    s32 result;

    VimbraDebugLevelSet(0); /* first: the library logs to standard output otherwise */
    VimbraInit();
    set.dwIpNum = 1;
    set.atNetIfaceIp[0].eScopeType = VIMBRA_SCOPE_TYPE_GLOBAL;
    set.atNetIfaceIp[0].tIpAddr.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, "192.168.7.1", &set.atNetIfaceIp[0].tIpAddr.tV4Addr);
    set.atNetIfaceIp[0].dwPrefix = 24;
    result = VimbraIfaceSetIp(name, VIMBRA_FAMILY_IPV4, &set);
    if (result != VIMBRA_OK) {
        fprintf(stderr, "%s keeps its addresses: %d\n", name, (int)result);
        return 1;
    }
    return 0;
}
