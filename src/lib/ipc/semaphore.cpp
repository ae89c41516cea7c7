#include "lib/ipc/semaphore.hpp"

#include <sys/sem.h>
#include <vimbra/semaphore.h>

#include "lib/log.hpp"

using namespace vimbra;

namespace {

// The third argument of semctl(2), which the C library leaves to its callers to declare.
union Semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

int Check(CallSite site, int result, const char* failed, int sem_id) {
    if (result != -1) {
        return 0;
    }
    const int error = errno;
    VLOG_ERROR_AT(site, "%s", failed);
    VLOG_ERROR_AT(site, "sem_id:%d", sem_id);
    errno = error;
    return -1;
}

int Operate(int sem_id, short change) {
    sembuf operation = {};
    operation.sem_op = change;
    operation.sem_flg = SEM_UNDO;
    return semop(sem_id, &operation, 1);
}

}  // namespace

int set_semvalue(int sem_id) {
    Semun value = {};
    value.val = 1;
    return Check(VIMBRA_HERE, semctl(sem_id, 0, SETVAL, value), "set_semvalue error", sem_id);
}

int del_semvalue(int sem_id) {
    return Check(VIMBRA_HERE, semctl(sem_id, 0, IPC_RMID), "del_semvalue error", sem_id);
}

int semaphore_p(int sem_id) {
    return Check(VIMBRA_HERE, Operate(sem_id, -1), "semaphore_p error", sem_id);
}

int semaphore_v(int sem_id) {
    return Check(VIMBRA_HERE, Operate(sem_id, 1), "semaphore_v error", sem_id);
}

void StartSemaphore::Take() {
    while (!isHeld_) {
        isHeld_ = semaphore_p(id_) == 0;
        if (!isHeld_ && errno != EINTR) {
            return;
        }
    }
}

void StartSemaphore::Give() {
    if (isHeld_) {
        isHeld_ = semaphore_v(id_) != 0;
    }
}
