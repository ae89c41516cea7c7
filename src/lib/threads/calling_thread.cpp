// What a thread does with itself: no handle is looked up, and nothing is kept.
#include <pthread.h>
#include <sched.h>
#include <unistd.h>
#include <vimbra/thread.h>

#include <csignal>
#include <initializer_list>

namespace {

void ChangeMask(int how, std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signum : signals) {
        sigaddset(&set, signum);
    }
    pthread_sigmask(how, &set, nullptr);
}

}  // namespace

void ThreadYield() {
    sched_yield();
}

void ThreadExit() {
    pthread_exit(nullptr);
}

void ThreadDelay(int sec) {
    usleep(static_cast<useconds_t>(sec));
}

int ThreadGetId() {
    return static_cast<int>(pthread_self());
}

int ThreadSuspend(pthread_t) {
    return -1;
}

int ThreadResume(pthread_t) {
    return -1;
}

int ThreadAdjustPriority(pthread_t, int) {
    return -1;
}

void ThreadSetCleanup(pthread_t, void (*)(void*), void*) {}

void ThreadSigBlock(int signum) {
    ChangeMask(SIG_BLOCK, {signum});
}

void ThreadSigUnblock(int signum) {
    ChangeMask(SIG_UNBLOCK, {signum});
}

void ThreadSigBlockall() {
    ChangeMask(SIG_BLOCK, {SIGHUP, SIGINT, SIGQUIT, SIGILL, SIGTRAP, SIGABRT, SIGKILL, SIGTERM,
                           SIGPIPE, SIGUSR1, SIGUSR2, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU, SIGALRM});
}
