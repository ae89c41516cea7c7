/* What the parts of the driver share: checks, and the daemon that they script. */
#ifndef VIMBRA_TESTS_DRIVER_H
#define VIMBRA_TESTS_DRIVER_H

#include <stddef.h>
#include <vimbra/types.h>

/* A check that does not hold is printed and counted. */
void check(const char* what, long wanted, long result);
void check_text(const char* what, const char* wanted, const char* text);
int failures(void);
int checks(void);

/* A call that has to give a result. */
#define GIVES(wanted, call) check(#call, (long)(wanted), (long)(call))
/* What has to be so. */
#define HOLDS(condition) check(#condition, 1, (condition) ? 1 : 0)

/* The daemon: a child process, so that every call goes over the socket. What it is asked without
 * need of an answer it may see only later. */
void daemon_start(void);
void daemon_stop(void);
/* What it answers from now on, as the body of its replies. */
void daemon_answers(const void* body, size_t size);
void daemon_says(s32 result);
/* The same for one type alone, and for no other any more; 0 is none. */
void daemon_answers_to(u32 type, const void* body, size_t size);
/* How often it was asked, and what for the last time. */
u32 daemon_asked(void);
u32 daemon_type(void);
u32 daemon_size(void);
const u8* daemon_body(void);

/* A call that asks the daemon once, with that type and a body of that size. */
#define ASKS(type, size, wanted, call)             \
    do {                                           \
        const u32 before = daemon_asked();         \
        GIVES(wanted, call);                       \
        check(#call, before + 1, daemon_asked());  \
        check(#call " type", type, daemon_type()); \
        check(#call " size", size, daemon_size()); \
    } while (0)
/* A call that the daemon refuses. */
#define REFUSED(wanted, call) \
    do {                      \
        daemon_says(7);       \
        GIVES(wanted, call);  \
        daemon_says(0);       \
    } while (0)

/* Waits until a count that a callback keeps has come to a value; false after a minute. */
int comes_to(const int* count, int value);
/* Posts a notification to a listener of this process. */
int notify(const char* name, u32 type, const void* body, size_t size);

void drive_base(void);
void drive_threads(void);
void drive_processes(void);
void drive_files(void);
void drive_requests(void);
void drive_routes(void);
void drive_legacy(void);
void drive_watches(void);
void drive_clients(void);
void drive_probes(void);

#endif
