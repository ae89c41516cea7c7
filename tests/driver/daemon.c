/* The driver's daemon. What it shall answer and what it was asked lie in memory that both processes
 * share; each request is noted before it is answered, so that the caller finds it. */
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include "driver.h"

struct shared {
    u32 asked;
    IpcMsgHead head;
    u8 body[VIMBRA_IPC_BODY_MAX];
    struct answer {
        u32 type;
        u32 size;
        u8 body[VIMBRA_IPC_BODY_MAX];
    } usual, special;
};

static struct shared* g_shared = NULL;
static pid_t g_daemon = -1;

static int read_whole(int fd, void* memory, size_t size) {
    size_t done = 0;

    while (done < size) {
        const ssize_t got = read(fd, (u8*)memory + done, size - done);
        if (got <= 0) {
            return 0;
        }
        done += (size_t)got;
    }
    return 1;
}

static void serve_one(int fd) {
    struct {
        IpcMsgHead head;
        u8 body[VIMBRA_IPC_BODY_MAX];
    } reply;
    IpcMsgHead head;
    const struct answer* answer;

    if (!read_whole(fd, &head, sizeof(head)) || head.size > sizeof(g_shared->body) ||
        !read_whole(fd, g_shared->body, head.size)) {
        return;
    }
    g_shared->head = head;
    __atomic_add_fetch(&g_shared->asked, 1, __ATOMIC_RELEASE);
    memset(&reply, 0, sizeof(reply));
    reply.head.type = head.type;
    answer = head.type == g_shared->special.type ? &g_shared->special : &g_shared->usual;
    reply.head.size = answer->size;
    memcpy(reply.body, answer->body, answer->size);
    send(fd, &reply, sizeof(reply.head) + answer->size, MSG_NOSIGNAL);
}

static void serve(int listener) {
    for (;;) {
        const int fd = accept(listener, NULL, NULL);
        if (fd < 0) {
            _exit(1);
        }
        serve_one(fd);
        close(fd);
    }
}

void daemon_start(void) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address;
    socklen_t length;

    g_shared =
        mmap(NULL, sizeof(*g_shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (g_shared == MAP_FAILED) {
        abort();
    }
    GIVES(0, MakeAddrServer(fd, "api_daemon", &address, &length));
    daemon_says(0);
    g_daemon = fork();
    if (g_daemon == 0) {
        serve(fd);
    }
    close(fd);
}

void daemon_stop(void) {
    kill(g_daemon, SIGKILL);
    waitpid(g_daemon, NULL, 0);
    munmap(g_shared, sizeof(*g_shared));
}

void daemon_answers(const void* body, size_t size) {
    memcpy(g_shared->usual.body, body, size);
    g_shared->usual.size = (u32)size;
}

void daemon_says(s32 result) {
    daemon_answers(&result, sizeof(result));
}

void daemon_answers_to(u32 type, const void* body, size_t size) {
    g_shared->special.type = type;
    g_shared->special.size = (u32)size;
    if (size > 0) {
        memcpy(g_shared->special.body, body, size);
    }
}

u32 daemon_asked(void) {
    return __atomic_load_n(&g_shared->asked, __ATOMIC_ACQUIRE);
}

u32 daemon_type(void) {
    return g_shared->head.type;
}

u32 daemon_size(void) {
    return g_shared->head.size;
}

const u8* daemon_body(void) {
    return g_shared->body;
}
