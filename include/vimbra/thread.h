/**
 * @file
 * Threads: the thin layer on which the library starts its own, open to applications too.
 *
 * Handles are POSIX thread handles, pthread_self(3). The calls that act on one act on any living
 * thread of the process: one that was started here, by pthread_create(3), or the main thread.
 * Refused, and untouched, are 0, -1, and the handle of a thread that was started here and has gone,
 * as long as the C library has not given that handle to a new thread, which it may do once the old
 * one has ended and was waited for or detached: do not keep a handle longer than that. The handle
 * of a thread that was started elsewhere and has gone must not be handed in at all, as with the
 * calls of POSIX. No call may be made from a signal handler, but ThreadGetId(); <vimbra/vimbra.h>
 * says what else holds for every call.
 */
#ifndef VIMBRA_THREAD_H
#define VIMBRA_THREAD_H

#include <pthread.h>
#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * Starts a joinable thread, pthread_create(3).
 *
 * The thread blocks the signals of ThreadSigBlockall(), so that signals go to the application's own
 * threads, and can be cancelled at cancellation points only, pthreads(7).
 *
 * @param name       the thread's name, of which the kernel keeps 15 characters, PR_SET_NAME in
 *                   prctl(2). Not copied: it must live as long as the thread.
 * @param proc       what the thread runs.
 * @param param      handed to it.
 * @param stacksize  in bytes; a size that the system refuses leaves the default.
 * @param policy     with SCHED_RR (2) the thread runs under it, with a priority that is lower by
 *                   `priority`; where the system refuses, with ordinary scheduling. With any other
 *                   value nice(2) is called with -priority, also without effect where refused.
 * @param priority   see there.
 * @return the thread's handle, or 0: no memory or no thread.
 */
VIMBRA_API pthread_t ThreadSpawn(char* name, void (*proc)(void*), void* param, int stacksize,
                                 int policy, int priority);

/**
 * ThreadSpawn() of a detached thread: nobody has to wait for it, and nobody can.
 *
 * @param name       as ThreadSpawn() takes it.
 * @param proc       what the thread runs.
 * @param param      handed to it.
 * @param stacksize  as ThreadSpawn() takes it, in bytes.
 * @param policy     as ThreadSpawn() takes it.
 * @param priority   as ThreadSpawn() takes it.
 * @return the thread's handle, or 0: no memory or no thread.
 */
VIMBRA_API pthread_t ThreadSpawnDeatched(char* name, void (*proc)(void*), void* param,
                                         int stacksize, int policy, int priority);

/** Lets other threads run, sched_yield(2). */
VIMBRA_API void ThreadYield(void);

/**
 * Waits for a joinable thread to end, pthread_join(3). Every joinable thread must be waited for or
 * detached once. A cancellation point, as pthread_join(3) is: a waiter that is cancelled leaves the
 * thread joinable.
 *
 * @param thread_id  the thread.
 * @return           its exit value: null for one that was started here and came to its end,
 *                   PTHREAD_CANCELED for one that was cancelled. Null at once for a handle that is
 *                   refused, a thread that is detached or waited for already, or the caller itself.
 */
VIMBRA_API void* ThreadWait(pthread_t thread_id);

/**
 * Asks a thread to end, pthread_cancel(3); does not wait for it.
 *
 * @param thread_id  the thread.
 * @retval 0         asked. A thread may ask itself.
 * @retval -1        the handle is refused, or the thread has ended.
 */
VIMBRA_API int ThreadKill(pthread_t thread_id);

/**
 * Makes a joinable thread a detached one, pthread_detach(3).
 *
 * @param thread_id  the thread.
 * @retval 0         done.
 * @retval -1        the handle is refused, or the thread is detached or being waited for.
 */
VIMBRA_API int ThreadDetach(pthread_t thread_id);

/** Ends the calling thread, pthread_exit(3). */
VIMBRA_API void ThreadExit(void) __attribute__((noreturn));

/**
 * Sleeps, usleep(3); a signal ends it early.
 *
 * @param sec  MICROSECONDS, despite its name.
 */
VIMBRA_API void ThreadDelay(int sec);

/**
 * Who is calling? pthread_self(3).
 *
 * @return the calling thread's handle as far as it fits an int: whole on 32-bit machines only.
 */
VIMBRA_API int ThreadGetId(void);

/**
 * A thread's static priority, pthread_getschedparam(3).
 *
 * @param thread_id  the thread.
 * @return           its priority: 0 with ordinary scheduling; -1 for a handle that is refused or a
 *                   thread that has ended.
 */
VIMBRA_API int ThreadGetPriority(pthread_t thread_id);

/**
 * Not supported.
 *
 * @retval -1  always.
 */
VIMBRA_API int ThreadSuspend(pthread_t thread_id);

/**
 * Not supported.
 *
 * @retval -1  always.
 */
VIMBRA_API int ThreadResume(pthread_t thread_id);

/**
 * Not supported.
 *
 * @retval -1  always.
 */
VIMBRA_API int ThreadAdjustPriority(pthread_t thread_id, int priority);

/** Without effect; kept for programs that link to it. */
VIMBRA_API void ThreadSetCleanup(pthread_t thread_id, void (*proc)(void*), void* param);

/**
 * Adds a signal to the calling thread's mask, pthread_sigmask(3).
 *
 * @param signum  the signal; a number that is none changes nothing.
 */
VIMBRA_API void ThreadSigBlock(int signum);

/**
 * Takes a signal out of the calling thread's mask, pthread_sigmask(3).
 *
 * @param signum  the signal; a number that is none changes nothing.
 */
VIMBRA_API void ThreadSigUnblock(int signum);

/** Adds SIGHUP, SIGINT, SIGQUIT, SIGILL, SIGTRAP, SIGABRT, SIGKILL (without effect), SIGTERM,
 * SIGPIPE, SIGUSR1, SIGUSR2, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU and SIGALRM to the calling thread's
 * mask, pthread_sigmask(3). */
VIMBRA_API void ThreadSigBlockall(void);

VIMBRA_END_DECLS

#endif
