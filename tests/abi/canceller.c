/* Cancels a thread, which the C library cannot do alone: it loads another one for it, or aborts. */
#include <pthread.h>
#include <unistd.h>

static void* run(void* argument) {
    (void)argument;
    pause();
    return 0;
}

int main(void) {
    pthread_t thread;

    if (pthread_create(&thread, 0, run, 0) != 0 || pthread_cancel(thread) != 0) {
        return 1;
    }
    return pthread_join(thread, 0);
}
