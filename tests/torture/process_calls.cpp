// The calls of calls.inc as the library under torture makes them: threads, processes, semaphores.
#include <crypt.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include "calls.hpp"

namespace vimbra::tests::torture {
namespace {

struct Start {
    void* (*body)(void*);
    void* argument;
    int slot;
};

void* Begin(void* memory) {
    const Start start = *static_cast<Start*>(memory);
    delete static_cast<Start*>(memory);
    BeThread(start.slot);
    return start.body(start.argument);
}

}  // namespace

extern "C" {

int torture_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                           void* (*body)(void*), void* argument) {
    if (const int outcome = Meet(Call::k_pthread_create)) {
        return outcome;
    }
    const int slot = NewThread();
    auto* const start = new Start{body, argument, slot};
    const int result = pthread_create(thread, attributes, Begin, start);
    if (result != 0) {
        ForgetThread(slot);
        delete start;
    }
    return result;
}

int torture_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)()) {
    if (const int outcome = Meet(Call::k_pthread_atfork)) {
        return outcome;
    }
    return pthread_atfork(prepare, parent, child);
}

int torture_pthread_attr_init(pthread_attr_t* attributes) {
    if (const int outcome = Meet(Call::k_pthread_attr_init)) {
        return outcome;
    }
    return pthread_attr_init(attributes);
}

int torture_pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size) {
    if (const int outcome = Meet(Call::k_pthread_attr_setstacksize)) {
        return outcome;
    }
    return pthread_attr_setstacksize(attributes, size);
}

int torture_pthread_getcpuclockid(pthread_t thread, clockid_t* clock) {
    if (const int outcome = Meet(Call::k_pthread_getcpuclockid)) {
        return outcome;
    }
    return pthread_getcpuclockid(thread, clock);
}

int torture_pthread_setschedparam(pthread_t thread, int policy, const sched_param* param) {
    if (const int outcome = Meet(Call::k_pthread_setschedparam)) {
        return outcome;
    }
    return pthread_setschedparam(thread, policy, param);
}

int torture_nice(int by) {
    TORTURE_OR(nice, -1)
    return nice(by);
}

int torture_msync(void* address, size_t size, int flags) {
    TORTURE_OR(msync, -1)
    return msync(address, size, flags);
}

// The one call is gettid(2), which cannot fail; the other asks whether a thread lives.
long torture_syscall(long number, long first, long second, long third) {
    if (number != SYS_gettid && Meet(Call::k_syscall) != 0) {
        return -1;
    }
    return syscall(number, first, second, third);
}

int torture_kill(pid_t pid, int number) {
    TORTURE_OR(kill, -1)
    return kill(pid, number);
}

int torture_vfork_fails() {
    return Meet(Call::k_vfork) != 0;
}

#if defined(__x86_64__)
// Nothing may lie on the stack when vfork(2) returns twice: the real one takes this one's place.
asm(R"(
    .text
    .globl torture_vfork
    .type torture_vfork, @function
torture_vfork:
    subq $8, %rsp
    call torture_vfork_fails@PLT
    addq $8, %rsp
    testl %eax, %eax
    jnz 1f
    jmp vfork@PLT
1:  movl $-1, %eax
    ret
    .size torture_vfork, .-torture_vfork
)");
#else
pid_t torture_vfork() {
    return torture_vfork_fails() != 0 ? -1 : fork();
}
#endif

int torture_execvp(const char* file, char* const* argv) {
    TORTURE_OR(execvp, -1)
    return execvp(file, argv);
}

pid_t torture_waitpid(pid_t pid, int* status, int options) {
    const int outcome = Meet(Call::k_waitpid);
    if (outcome == ECHILD) {
        waitpid(pid, status, options);  // As where somebody else has waited for it.
        errno = ECHILD;
    }
    return outcome != 0 ? -1 : waitpid(pid, status, options);
}

int torture_semget(key_t key, int count, int flags) {
    TORTURE_OR(semget, -1)
    return semget(key, count, flags);
}

int torture_semctl(int id, int number, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    TORTURE_OR(semctl, -1)
    return semctl(id, number, command, argument);
}

// What was taken can be given back.
int torture_semop(int id, sembuf* operations, size_t count) {
    if (operations->sem_op < 0 && Meet(Call::k_semop) != 0) {
        return -1;
    }
    return semop(id, operations, count);
}

int torture_getrlimit(__rlimit_resource_t resource, rlimit* limit) {
    TORTURE_OR(getrlimit, -1)
    return getrlimit(resource, limit);
}

char* torture_crypt_r(const char* key, const char* salt, crypt_data* data) {
    TORTURE_OR(crypt_r, nullptr)
    return crypt_r(key, salt, data);
}

void torture_exit(int code) {
    if (void* place = PlaceOfExit()) {
        siglongjmp(*static_cast<sigjmp_buf*>(place), 1);
    }
    exit(code);
}

}  // extern "C"

}  // namespace vimbra::tests::torture
