/* Threads of the library's making. */
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include "driver.h"

static int g_pipe[2];
static int g_ended = 0;
static int g_cleaned = 0;

static void count(void* counter) {
    __atomic_add_fetch((int*)counter, 1, __ATOMIC_RELEASE);
}

static void look_and_exit(void* counter) {
    sigset_t blocked;

    ThreadSigBlockall();
    ThreadSigUnblock(SIGTERM);
    ThreadSigBlock(SIGUSR1);
    sigemptyset(&blocked);
    pthread_sigmask(SIG_BLOCK, NULL, &blocked);
    HOLDS(sigismember(&blocked, SIGTERM) == 0);
    HOLDS(sigismember(&blocked, SIGUSR1) == 1);
    GIVES((int)(intptr_t)pthread_self(), ThreadGetId());
    ThreadYield();
    ThreadSetCleanup(pthread_self(), count, &g_cleaned);
    count(counter);
    ThreadExit();
}

static void wait_for_ever(void* counter) {
    char byte;

    count(counter);
    /* Nobody writes. */
    while (read(g_pipe[0], &byte, 1) != 0) {
    }
}

void drive_threads(void) {
    char name[] = "driver";
    pthread_t thread = ThreadSpawn(name, look_and_exit, &g_ended, 65536, SCHED_OTHER, 0);

    HOLDS(thread != 0);
    HOLDS(ThreadWait(thread) == NULL);
    GIVES(1, g_ended);
    HOLDS(ThreadWait(0) == NULL);
    GIVES(-1, ThreadKill(0));
    GIVES(-1, ThreadDetach(0));

    GIVES(0, pipe(g_pipe));
    thread = ThreadSpawn(name, wait_for_ever, &g_ended, 65536, SCHED_OTHER, 0);
    HOLDS(comes_to(&g_ended, 2));
    HOLDS(ThreadGetPriority(thread) >= 0);
    GIVES(-1, ThreadSuspend(thread));
    GIVES(-1, ThreadResume(thread));
    GIVES(-1, ThreadAdjustPriority(thread, 1));
    GIVES(0, ThreadKill(thread));
    HOLDS(ThreadWait(thread) == PTHREAD_CANCELED);
    close(g_pipe[0]);
    close(g_pipe[1]);

    thread = ThreadSpawn(name, count, &g_ended, 65536, SCHED_OTHER, 0);
    GIVES(0, ThreadDetach(thread));
    HOLDS(comes_to(&g_ended, 3));
    HOLDS(ThreadSpawnDeatched(name, count, &g_ended, 65536, SCHED_OTHER, 0) != 0);
    HOLDS(comes_to(&g_ended, 4));
    ThreadDelay(0);
}
