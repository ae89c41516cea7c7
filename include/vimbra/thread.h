/**
 * @file
 * Threads: the thin layer on which the library starts its own, open to applications too.
 *
 * Handles are POSIX thread handles, pthread_self(3). The calls that act on one look it up among the
 * threads that were started here and have not ended: 0, -1, the handle of a thread that has gone or
 * one that was started elsewhere is refused and nothing is touched. A thread's handle may be given
 * to a new thread once it has ended and was waited for or detached, so do not keep it longer than
 * that.
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

/** ThreadSpawn() of a detached thread: nobody has to wait for it, and nobody can. */
VIMBRA_API pthread_t ThreadSpawnDeatched(char* name, void (*proc)(void*), void* param,
                                         int stacksize, int policy, int priority);

/** Lets other threads run, sched_yield(2). */
VIMBRA_API void ThreadYield(void);

/**
 * Waits for a joinable thread to end, pthread_join(3). Every joinable thread must be waited for or
 * detached once. No cancellation point.
 *
 * @return the thread's exit value: null, or PTHREAD_CANCELED. Null at once for a thread that is
 * detached, gone, waited for already, the caller itself, or not of this layer.
 */
VIMBRA_API void* ThreadWait(pthread_t thread_id);

/**
 * Asks a thread to end, pthread_cancel(3); does not wait for it.
 *
 * @retval 0   asked. A thread may be asked to end from its own procedure.
 * @retval -1  the thread has gone or is not of this layer.
 */
VIMBRA_API int ThreadKill(pthread_t thread_id);

/**
 * Makes a joinable thread a detached one, pthread_detach(3).
 *
 * @retval 0   done.
 * @retval -1  the thread is detached, being waited for, gone, or not of this layer.
 */
VIMBRA_API int ThreadDetach(pthread_t thread_id);

/** Ends the calling thread, pthread_exit(3). */
VIMBRA_API void ThreadExit(void) __attribute__((noreturn));

/** Sleeps, usleep(3). @param sec MICROSECONDS, despite its name. */
VIMBRA_API void ThreadDelay(int sec);

/** The calling thread's handle as far as it fits an int: whole on 32-bit machines only. */
VIMBRA_API int ThreadGetId(void);

/** A thread's static priority, pthread_getschedparam(3); -1 for a thread that is not of this layer
 * or has gone, the caller itself excepted. */
VIMBRA_API int ThreadGetPriority(pthread_t thread_id);

/** Not supported. @retval -1 always. */
VIMBRA_API int ThreadSuspend(pthread_t thread_id);

/** Not supported. @retval -1 always. */
VIMBRA_API int ThreadResume(pthread_t thread_id);

/** Not supported. @retval -1 always. */
VIMBRA_API int ThreadAdjustPriority(pthread_t thread_id, int priority);

/** Without effect; kept for programs that link to it. */
VIMBRA_API void ThreadSetCleanup(pthread_t thread_id, void (*proc)(void*), void* param);

/** Adds a signal to the calling thread's mask, pthread_sigmask(3). */
VIMBRA_API void ThreadSigBlock(int signum);

/** Takes a signal out of the calling thread's mask, pthread_sigmask(3). */
VIMBRA_API void ThreadSigUnblock(int signum);

/** Adds SIGHUP, SIGINT, SIGQUIT, SIGILL, SIGTRAP, SIGABRT, SIGKILL (without effect), SIGTERM,
 * SIGPIPE, SIGUSR1, SIGUSR2, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU and SIGALRM to the calling thread's
 * mask. */
VIMBRA_API void ThreadSigBlockall(void);

VIMBRA_END_DECLS

#endif
