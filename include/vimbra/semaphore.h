/**
 * @file
 * System V semaphores, semop(2): one semaphore to a set, shared by every process of the machine
 * that opens its key. NTP uses key 7783, traceroute key 7784. What holds for every call stands in
 * <vimbra/vimbra.h>.
 */
#ifndef VIMBRA_SEMAPHORE_H
#define VIMBRA_SEMAPHORE_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * Sets semaphore 0 of a set to 1, SETVAL in semctl(2).
 *
 * @param sem_id  the set, as semget(2) gave it.
 * @retval 0      done.
 * @retval -1     semctl(2) failed; logged.
 */
VIMBRA_API int set_semvalue(int sem_id);

/**
 * Removes a set from the system, IPC_RMID in semctl(2), for all processes.
 *
 * @param sem_id  the set, as semget(2) gave it.
 * @retval 0      done.
 * @retval -1     semctl(2) failed; logged.
 */
VIMBRA_API int del_semvalue(int sem_id);

/**
 * Takes semaphore 0; waits until it can. The system gives it back when the process ends, SEM_UNDO.
 *
 * @param sem_id  the set, as semget(2) gave it.
 * @retval 0      taken.
 * @retval -1     semop(2) failed, an interruption by a signal included; logged, and errno says why.
 */
VIMBRA_API int semaphore_p(int sem_id);

/**
 * Gives semaphore 0 back, with SEM_UNDO. Nothing checks that it was taken.
 *
 * @param sem_id  the set, as semget(2) gave it.
 * @retval 0      done.
 * @retval -1     semop(2) failed; logged.
 */
VIMBRA_API int semaphore_v(int sem_id);

VIMBRA_END_DECLS

#endif
