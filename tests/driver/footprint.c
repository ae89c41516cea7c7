/* What the library costs a process: the time until it is loaded and ready, the private memory that
 * the process has more then, and what each further listener adds. Loads the library itself, so that
 * both are seen, and answers its requests. Ends with status 1 if a bound is exceeded; "-" is none.
 *
 *     footprint LIBRARY MICROSECONDS KILOBYTES KILOBYTES-OF-A-LISTENER */
#include <dlfcn.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vimbra/dhcpc.h>
#include <vimbra/ipc.h>

enum { kListeners = 8 };

typedef s32 (*init_call)(void);
typedef s32 (*start_call)(const char*, u16, VimbraDhcpcNotifyCallBack);

static int g_status = 0;

static void fail(const char* what) {
    perror(what);
    exit(1);
}

static void measured(const char* what, long value, const char* unit, const char* bound) {
    printf("%-34s %5ld %s", what, value, unit);
    if (strcmp(bound, "-") != 0) {
        const int exceeded = value > atol(bound);
        printf(" (%s at most)%s", bound, exceeded ? " EXCEEDED" : "");
        g_status |= exceeded;
    }
    printf("\n");
}

/* In microseconds. */
static long now(void) {
    struct timespec time;

    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000L + time.tv_nsec / 1000;
}

/* Whose they are. */
enum { kLibrary, kHeap, kOthers, kOwners };

/* Pages that are this process's own, in kilobytes by owner: what each one with the library costs the
 * machine. Those of files that it shares are not, even where they lie in memory alone. */
static void private_pages(long kilobytes[kOwners]) {
    static char text[65536];
    FILE* maps = fopen("/proc/self/smaps", "r");
    int owner = kOthers;

    if (maps == NULL) {
        fail("smaps");
    }
    memset(kilobytes, 0, kOwners * sizeof(*kilobytes));
    setvbuf(maps, NULL, _IONBF, 0);
    while (fgets(text, sizeof(text), maps) != NULL) {
        unsigned long first;
        unsigned long end;
        long value;
        if (sscanf(text, "%lx-%lx ", &first, &end) == 2) {
            owner = strstr(text, "/libvimbra.so") != NULL ? kLibrary
                    : strstr(text, "[heap]") != NULL      ? kHeap
                                                          : kOthers;
        } else if (sscanf(text, "Anonymous: %ld kB", &value) == 1) {
            kilobytes[owner] += value;
        }
    }
    fclose(maps);
}

static long private_kilobytes(void) {
    long kilobytes[kOwners];

    private_pages(kilobytes);
    return kilobytes[kLibrary] + kilobytes[kHeap] + kilobytes[kOthers];
}

/* The daemon: says yes to whatever it is asked. */
static pid_t serve(void) {
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address;
    pid_t child;

    memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/tmp/api_daemon");
    unlink(address.sun_path);
    if (bind(listener, (struct sockaddr*)&address, sizeof(address)) != 0 ||
        listen(listener, 5) != 0) {
        fail(address.sun_path);
    }
    child = fork();
    while (child == 0) {
        const int fd = accept(listener, NULL, NULL);
        char request[sizeof(IpcMsgHead) + VIMBRA_IPC_BODY_MAX];
        struct {
            IpcMsgHead head;
            s32 result;
        } reply = {{0, sizeof(reply.result), 0}, 0};
        if (fd < 0 || read(fd, request, sizeof(request)) <= 0 ||
            write(fd, &reply, sizeof(reply)) != sizeof(reply)) {
            _exit(1);
        }
        close(fd);
    }
    close(listener);
    return child;
}

static int on_lease(u32 event, struct VimbraDhcpcAddrInfo* lease) {
    (void)event;
    (void)lease;
    return 0;
}

static void* symbol(void* library, const char* name) {
    void* const found = dlsym(library, name);

    if (found == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    return found;
}

static void start(start_call dhcpc_start, int first, int last) {
    char name[VIMBRA_IFACE_NAME_LEN];
    int i;

    for (i = first; i < last; i++) {
        snprintf(name, sizeof(name), "eth%d", i);
        if (dhcpc_start(name, VIMBRA_FAMILY_IPV4, on_lease) != 0) {
            fprintf(stderr, "no listener for %s\n", name);
            exit(1);
        }
    }
}

static void* load(const char* path, const char* microseconds) {
    const long before = now();
    void* const library = dlopen(path, RTLD_NOW);
    long loaded;

    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        exit(1);
    }
    loaded = now();
    if (((init_call)symbol(library, "VimbraInit"))() != 0) {
        fprintf(stderr, "VimbraInit failed\n");
        exit(1);
    }
    measured("loading", loaded - before, "us", "-");
    measured("loading and VimbraInit", now() - before, "us", microseconds);
    return library;
}

/* The heap has the records that VimbraInit makes and the loader's list of libraries. */
static void* load_measured(const char* path, const char* microseconds, const char* kilobytes) {
    static const char* const kNames[kOwners] = {"  the library's pages", "  on the heap",
                                                "  pages of others"};
    long before[kOwners];
    long after[kOwners];
    long sum = 0;
    void* library;
    int i;

    private_pages(before);
    private_pages(before);
    library = load(path, microseconds);
    private_pages(after);
    for (i = 0; i < kOwners; i++) {
        sum += after[i] - before[i];
    }
    measured("private memory of a process", sum, "kB", kilobytes);
    for (i = 0; i < kOwners; i++) {
        measured(kNames[i], after[i] - before[i], "kB", "-");
    }
    return library;
}

int main(int argc, char** argv) {
    start_call dhcpc_start;
    void* library;
    pid_t server;
    long before;
    long after;

    if (argc != 5) {
        fprintf(stderr, "footprint LIBRARY MICROSECONDS KILOBYTES KILOBYTES-OF-A-LISTENER\n");
        return 2;
    }
    server = serve();
    /* What the C library needs for this program goes first. */
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    printf("footprint of %s\n", argv[1]);
    library = load_measured(argv[1], argv[2], argv[3]);
    dhcpc_start = (start_call)symbol(library, "VimbraDhcpcStart");
    ((s32(*)(u32))symbol(library, "VimbraDebugLevelSet"))(0);
    /* The first one brings what is there once. */
    start(dhcpc_start, 0, 1);
    before = private_kilobytes();
    start(dhcpc_start, 1, 1 + kListeners);
    after = private_kilobytes();
    measured("private memory of a listener", (after - before + kListeners - 1) / kListeners, "kB",
             argv[4]);
    kill(server, SIGKILL);
    waitpid(server, NULL, 0);
    return g_status;
}
