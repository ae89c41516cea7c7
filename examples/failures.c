/*
 * What to do on each kind of failure: sets the MTU of an interface, and tries again only where that may
 * help.
 *
 *     failures eth0 1400
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <vimbra/vimbra.h>

enum { kTries = 3 };

int main(int argc, char** argv) {
    TVimbraFailure failure;
    int tries;

    if (argc != 3) {
        fprintf(stderr, "usage: failures INTERFACE MTU\n");
        return 2;
    }
    VimbraDebugLevelSet(0);
    VimbraInit();
    for (tries = 1; tries <= kTries; tries++) {
        if (VimbraIfaceSetMtu(argv[1], VIMBRA_FAMILY_IPV4, (u32)strtoul(argv[2], NULL, 10)) ==
            VIMBRA_OK) {
            puts("done");
            return 0;
        }
        if (VimbraLastFailure(&failure) != VIMBRA_OK) {
            puts("the result is the whole answer");
            return 1;
        }
        switch (failure.eStep) {
            case VIMBRA_FAILURE_ARGUMENT: /* a fault of this program: nothing was sent */
                puts("a wrong argument");
                return 2;
            case VIMBRA_FAILURE_NO_PERMISSION: /* for a person to mend */
                puts("this user may not ask the daemon");
                return 1;
            case VIMBRA_FAILURE_REFUSAL: /* the same question gets the same answer */
                printf("refused: %s\n", strerror(failure.nDaemonCode));
                return 1;
            case VIMBRA_FAILURE_TIMEOUT: /* it may have been done: look before asking again */
            case VIMBRA_FAILURE_ANSWER:
                puts("no answer; look whether it was done");
                return 1;
            case VIMBRA_FAILURE_NO_DAEMON: /* it may be starting */
            case VIMBRA_FAILURE_SENDING:
            case VIMBRA_FAILURE_LOCAL: /* memory or descriptors ran out: that may pass */
            default:
                printf("try %d: %s\n", tries, strerror(failure.nErrno));
                usleep(100000);
        }
    }
    return 1;
}
