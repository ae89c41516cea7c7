/* sleep for the tests on the board, which start it by other names: busybox would take those for the
 * names of its own programs. */
#include <stdlib.h>
#include <time.h>

int main(int argc, char** argv) {
    double seconds = 0;
    struct timespec time;
    int i;

    for (i = 1; i < argc; i++) {
        seconds += strtod(argv[i], NULL);
    }
    time.tv_sec = (time_t)seconds;
    time.tv_nsec = (long)((seconds - (double)time.tv_sec) * 1e9);
    return nanosleep(&time, NULL) != 0;
}
