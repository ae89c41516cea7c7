/*
 * A program of the first generation: interfaces by number, IPv4 addresses as words in network byte
 * order. New programs use <vimbra/vimbra.h>; the two go together in one process.
 */
#include <arpa/inet.h>
#include <stdio.h>
#include <vimbra/net.h>

int main(void) {
    TNetEthParam address;
    struct in_addr ip;
    u32 mtu = 0;

    NetLogSwitch(0);
    NetInit();
    if (NetGetEthParam(0, &address) != 0 || NetGetMtu(0, &mtu) != 0) {
        fprintf(stderr, "eth0 cannot be read\n");
        return 1;
    }
    ip.s_addr = address.dwIpAdrs;
    printf("eth0: %s, MTU %u\n", inet_ntoa(ip), (unsigned)mtu);
    return 0;
}
