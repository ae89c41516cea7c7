/**
 * @file
 * Diagnostics: five printf-like functions behind one level for the whole process.
 *
 * Every message goes to the system log (facility LOG_LOCAL6) and to standard output. The functions
 * add nothing to the text, no tag, no time, no newline; the library's own messages begin with one
 * of the tags below, followed by process id, function name and source line:
 *
 *     [VIMBRA_ERR]:PID[%d]:[%s](%d):      an error
 *     [VIMBRA_WARN]:PID[%d]:[%s](%d):     a warning
 *     [VIMBRA_PRT]:PID[%d]:[%s](%d):      information
 *     [VIMBRA_PERROR]PID[%d]:%s(%d):%s{errno(%d):%s}    a failed system call
 *
 * All of them may be called from any thread, not from a signal handler, and leave errno as it was.
 * They allocate nothing themselves; the C library allocates for a line that goes to the system log,
 * syslog(3), and both destinations may block the caller. A line is never cut by a cancellation.
 */
#ifndef VIMBRA_LOG_H
#define VIMBRA_LOG_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** Log levels: a message is written when the level is at least that of its kind. */
enum {
    VIMBRA_LEVEL_NONE = 0,    /**< silence */
    VIMBRA_LEVEL_ALART = 1,   /**< silence too: no message has this kind */
    VIMBRA_LEVEL_ERR = 2,     /**< errors */
    VIMBRA_LEVEL_WARNING = 3, /**< and warnings */
    VIMBRA_LEVEL_INFO = 4,    /**< and information */
    VIMBRA_LEVEL_DEBUG = 5    /**< and debugging; the level of a freshly loaded library */
};

/** The level of this process. Change it with VimbraDebugLevelSet() or VimbraLogSwitch(). */
VIMBRA_API extern u32 g_nVimbraLogSwitch;

/**
 * Sets the level of this process alone; VimbraLogSwitch() also tells the daemon.
 *
 * @param nSwitch  the new level; stored unchecked, values above 5 act like 5.
 * @retval 0       always.
 */
VIMBRA_API s32 VimbraDebugLevelSet(u32 nSwitch);

/**
 * Logs at level 2 or more, syslog(3) priority LOG_ERR.
 *
 * @param format  as printf(3) takes it.
 */
VIMBRA_API void VimbraLogError(const char* format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Logs a failed system call at level 2 or more, priority LOG_ERR. Adds nothing of errno itself.
 *
 * @param format  as printf(3) takes it.
 */
VIMBRA_API void VimbraLogPerror(const char* format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Logs at level 3 or more, priority LOG_DEBUG (not LOG_WARNING).
 *
 * @param format  as printf(3) takes it.
 */
VIMBRA_API void VimbraLogWarn(const char* format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Logs at level 4 or more, priority LOG_INFO.
 *
 * @param format  as printf(3) takes it.
 */
VIMBRA_API void VimbraLogPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Logs at level 5 or more, priority LOG_DEBUG.
 *
 * @param format  as printf(3) takes it.
 */
VIMBRA_API void VimbraLogDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));

VIMBRA_END_DECLS

#endif
