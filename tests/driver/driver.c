/* Calls every function of the library, as an application in C does, with arguments that are good
 * and such that are not, and looks at what comes back. Plain C and POSIX alone, so that it runs with
 * every C library. Prints what does not hold; with status 0 all does. */
#include "driver.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <vimbra/vimbra.h>

/* Callbacks check too, on threads of the library. */
static pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
static int g_failures = 0;
static int g_checks = 0;

void check(const char* what, long wanted, long result) {
    pthread_mutex_lock(&g_mutex);
    g_checks++;
    if (wanted != result) {
        g_failures++;
        printf("%s: %ld, not %ld\n", what, result, wanted);
    }
    pthread_mutex_unlock(&g_mutex);
}

void check_text(const char* what, const char* wanted, const char* text) {
    pthread_mutex_lock(&g_mutex);
    g_checks++;
    if (text == NULL || strcmp(wanted, text) != 0) {
        g_failures++;
        printf("%s: \"%s\", not \"%s\"\n", what, text == NULL ? "(null)" : text, wanted);
    }
    pthread_mutex_unlock(&g_mutex);
}

int failures(void) {
    return g_failures;
}

int checks(void) {
    return g_checks;
}

int comes_to(const int* count, int value) {
    int tries;

    for (tries = 0; tries < 6000; tries++) {
        if (__atomic_load_n(count, __ATOMIC_ACQUIRE) == value) {
            return 1;
        }
        usleep(10000);
    }
    return 0;
}

int notify(const char* name, u32 type, const void* body, size_t size) {
    return IpcCallbackSendAndRecv(name, type, body, (s32)size, NULL, 0);
}

int main(void) {
    drive_base();
    drive_threads();
    drive_processes();
    drive_files();
    daemon_start();
    drive_requests();
    drive_routes();
    drive_legacy();
    drive_watches();
    drive_clients();
    drive_probes();
    daemon_stop();
    printf("%d checks, %d failed\n", checks(), failures());
    return failures() == 0 ? 0 : 1;
}
