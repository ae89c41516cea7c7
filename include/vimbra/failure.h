/**
 * @file
 * Why a call failed. Most results say only that it did; here is the rest: whether there was no
 * daemon or no permission, whether the daemon refused and with which number, or what the system
 * said.
 *
 * The library notes a failure for the thread whose call failed, where it comes to pass. A success
 * changes nothing. Any thread may make these calls at any time.
 */
#ifndef VIMBRA_FAILURE_H
#define VIMBRA_FAILURE_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** The step of a call that failed. */
typedef enum EVimbraFailureStep VIMBRA_ENUM32 {
    VIMBRA_FAILURE_NONE = 0,          /**< none has been noted */
    VIMBRA_FAILURE_ARGUMENT = 1,      /**< an argument was refused; nothing was sent */
    VIMBRA_FAILURE_NO_DAEMON = 2,     /**< nobody listens; nErrno says what connect(2) found */
    VIMBRA_FAILURE_NO_PERMISSION = 3, /**< this process may not connect to the daemon */
    VIMBRA_FAILURE_SENDING = 4,       /**< the request could not be written whole */
    /** No answer within 60 seconds, or no place in the daemon's backlog (nErrno is then EAGAIN). */
    VIMBRA_FAILURE_TIMEOUT = 5,
    /** No answer, half of one, or one of the wrong size; or the wait for it was interrupted. The
     * daemon may have carried the request out. */
    VIMBRA_FAILURE_ANSWER = 6,
    VIMBRA_FAILURE_REFUSAL = 7, /**< the daemon refused; nDaemonCode says why */
    VIMBRA_FAILURE_LOCAL = 8    /**< in this process: nErrno says why */
} EVimbraFailureStep;

/** One failure. */
typedef struct VimbraFailure {
    EVimbraFailureStep eStep; /**< where it failed */
    /** With VIMBRA_FAILURE_REFUSAL the daemon's number, also where the call returns another; the
     * companion daemon's are those of errno(3). Else 0. */
    s32 nDaemonCode;
    s32 nErrno; /**< errno(3) of the system call that failed; 0 where none did */
    /** The function of the library that failed, as its log lines name it: the call itself, or a
     * step of it such as "ApicMtuSet". A constant text, never null. */
    const char* pchCall;
} TVimbraFailure;

/**
 * The newest failure of the calling thread that it has not read yet. To be asked right after each
 * call that failed: what it hands over it forgets, so that an old failure is not taken for that of
 * a later call which notes none.
 *
 * Nothing is noted where the result is the whole answer: a service that runs already or does not,
 * an account that is not there.
 *
 * @param ptFailure  receives the failure; the caller's memory. Zero, with an empty text, where
 *                   there is none.
 * @retval 0         handed over.
 * @retval -1        no failure, or a null pointer.
 */
VIMBRA_API s32 VimbraLastFailure(TVimbraFailure* ptFailure);

/**
 * A result in words, for messages to people.
 *
 * @param nResult  what a call has returned.
 * @return         a constant text in English without a full stop, never null. Where two services
 *                 give one number two meanings both are told. "unknown result" for any other
 *                 number, which may be the daemon's own.
 */
VIMBRA_API const char* VimbraResultText(s32 nResult);

VIMBRA_END_DECLS

#endif
