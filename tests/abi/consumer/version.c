/* Prints the version of the library that it runs with. */
#include <stdio.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

int main(void) {
    char version[256];
    TVimbraAddr address = {0};

    if (sizeof(address) != 20 || VimbraQueryVersion(version, sizeof(version)) != VIMBRA_OK) {
        return 1;
    }
    puts(version);
    return 0;
}
