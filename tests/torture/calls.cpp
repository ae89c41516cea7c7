// The calls of calls.inc as the library under torture makes them: torture_<call>.
#include <crypt.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "inside.hpp"

namespace vimbra::tests::torture {
namespace {

constexpr s64 kSecond = 1000000000;
// Longer waits of a run in which something has failed are cut to this.
constexpr s64 kLongestWait = kSecond / 20;
constexpr s64 kPause = kSecond / 1000;
constexpr s64 kSlice = kSecond / 1000;

// What a failing call returns for "nothing" or "a short count" of so many bytes.
ssize_t Count(int outcome, size_t size) {
    switch (outcome) {
        case kShort:
            return static_cast<ssize_t>((size + 1) / 2);
        case kEnd:
            return 0;
        default:
            return -1;
    }
}

// A call with a count: it is made for as many bytes as it is to take.
template <typename Make>
ssize_t Counted(Call call, size_t size, const Make& make, bool canEnd = true) {
    const int outcome = Meet(call, canEnd);
    if (outcome == 0) {
        return make(size);
    }
    const ssize_t count = Count(outcome, size);
    return count > 0 ? make(static_cast<size_t>(count)) : count;
}

// Processes go while they are looked at; no other file that is there is suddenly not.
bool MayGo(const char* path) {
    return strstr(path, "/proc/") != nullptr || access(path, F_OK) != 0;
}

#define TORTURE_OR(call, failure)    \
    if (Meet(Call::k_##call) != 0) { \
        return failure;              \
    }

int Descriptor(int fd) {
    const int error = errno;
    Opened(fd);
    errno = error;
    return fd;
}

template <typename Block>
Block* Tracked(Block* block) {
    const int error = errno;
    Allocated(block);
    errno = error;
    return block;
}

s64 Nanoseconds(const timeval& time) {
    return time.tv_sec * kSecond + time.tv_usec * 1000;
}

timeval ToTimeval(s64 nanoseconds) {
    return {static_cast<time_t>(nanoseconds / kSecond),
            static_cast<suseconds_t>(nanoseconds % kSecond / 1000)};
}

void Clear(int count, fd_set* set) {
    if (set != nullptr) {
        memset(set, 0, (static_cast<size_t>(count) + 63) / 64 * 8);
    }
}

bool IsIn(int fd, const fd_set* set) {
    return set != nullptr &&
           (reinterpret_cast<const unsigned long*>(set)[fd / 64] >> (fd % 64) & 1) != 0;
}

void Put(int fd, bool in, fd_set* set) {
    if (in) {
        reinterpret_cast<unsigned long*>(set)[fd / 64] |= 1UL << (fd % 64);
    }
}

s64 Now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

std::vector<pollfd> Awaited(int count, const fd_set* reading, const fd_set* writing) {
    std::vector<pollfd> awaited;
    for (int fd = 0; fd < count; fd++) {
        const int events = (IsIn(fd, reading) ? POLLIN : 0) | (IsIn(fd, writing) ? POLLOUT : 0);
        if (events != 0) {
            awaited.push_back({fd, static_cast<short>(events), 0});
        }
    }
    return awaited;
}

// How long a wait of the caller's thread really takes: where something has failed nobody waits a
// minute for what does not come.
s64 RealWait(s64 asked) {
    return IsCaller() && HasFailed() ? std::min(asked, kLongestWait) : asked;
}

struct Sets {
    int count;
    fd_set* reading;
    fd_set* writing;
    fd_set* excepted;
};

// One wait, a cancellation point; the sets stay as they are when the time is over.
int SelectFor(const Sets& sets, const std::vector<pollfd>& awaited, s64 time) {
    timeval timeout = ToTimeval(time);
    const int result = select(sets.count, sets.reading, sets.writing, sets.excepted, &timeout);
    if (result == 0) {
        for (const pollfd& one : awaited) {
            Put(one.fd, (one.events & POLLIN) != 0, sets.reading);
            Put(one.fd, (one.events & POLLOUT) != 0, sets.writing);
        }
    }
    return result;
}

// The wait in slices, between which it may be found that nobody wants to wait any more.
int SelectWithin(const Sets& sets, timeval* timeout) {
    const std::vector<pollfd> awaited = Awaited(sets.count, sets.reading, sets.writing);
    const s64 asked = Nanoseconds(*timeout);
    const s64 real = awaited.empty() ? std::min(asked, kPause) : RealWait(asked);
    const s64 start = Now();
    BeginWait(awaited);
    int result = 0;
    s64 gone = 0;
    do {
        result = SelectFor(sets, awaited, std::min(kSlice, real - gone));
        gone = Now() - start;
    } while (result == 0 && gone < real && !IsInHurry());
    EndWait();
    if (result == 0) {
        SpareTime(std::max<s64>(asked - gone, 0));
        Clear(sets.count, sets.reading);
        Clear(sets.count, sets.writing);
        gone = asked;
    }
    *timeout = ToTimeval(std::max<s64>(asked - gone, 0));
    return result;
}

int SelectForEver(const Sets& sets) {
    BeginWait(Awaited(sets.count, sets.reading, sets.writing));
    const int result = select(sets.count, sets.reading, sets.writing, sets.excepted, nullptr);
    EndWait();
    return result;
}

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

// ---- Memory -------------------------------------------------------------------------------------

void* torture_calloc(size_t count, size_t size) {
    TORTURE_OR(calloc, nullptr)
    return Tracked(calloc(count, size));
}

void* torture_malloc(size_t size) {
    TORTURE_OR(malloc, nullptr)
    void* block = malloc(size);
    if (block != nullptr) {
        memset(block, 0xa5, size);  // What is not written is not what it was by chance.
    }
    return Tracked(block);
}

char* torture_strndup(const char* text, size_t size) {
    TORTURE_OR(strndup, nullptr)
    return Tracked(strndup(text, size));
}

void torture_free(void* block) {
    Freed(block);
    free(block);
}

// ---- Sockets ------------------------------------------------------------------------------------

int torture_socket(int domain, int type, int protocol) {
    TORTURE_OR(socket, -1)
    return Descriptor(socket(domain, type, protocol));
}

int torture_connect(int fd, const sockaddr* address, socklen_t length) {
    TORTURE_OR(connect, -1)
    const int result = connect(fd, address, length);
    const int error = errno;
    if (result == 0 && strstr(address->sa_data, "api_daemon") != nullptr) {
        Connected();
    }
    errno = error;
    return result;
}

int torture_bind(int fd, const sockaddr* address, socklen_t length) {
    TORTURE_OR(bind, -1)
    return bind(fd, address, length);
}

int torture_listen(int fd, int backlog) {
    TORTURE_OR(listen, -1)
    return listen(fd, backlog);
}

int torture_accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    TORTURE_OR(accept4, -1)
    const int connection = Descriptor(accept4(fd, address, length, flags));
    // What was sent is there at once, so that a run has the same calls each time.
    pollfd sent = {connection, POLLIN, 0};
    const int error = errno;
    static_cast<void>(connection >= 0 && poll(&sent, 1, 10000));
    errno = error;
    return connection;
}

ssize_t torture_send(int fd, const void* data, size_t size, int flags) {
    return Counted(Call::k_send, size, [=](size_t count) { return send(fd, data, count, flags); });
}

ssize_t torture_recv(int fd, void* data, size_t size, int flags) {
    return Counted(Call::k_recv, size, [=](size_t count) { return recv(fd, data, count, flags); });
}

int torture_getsockopt(int fd, int level, int name, void* value, socklen_t* size) {
    TORTURE_OR(getsockopt, -1)
    return getsockopt(fd, level, name, value, size);
}

int torture_setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
    TORTURE_OR(setsockopt, -1)
    return setsockopt(fd, level, name, value, size);
}

int torture_select(int count, fd_set* reading, fd_set* writing, fd_set* excepted,
                   timeval* timeout) {
    const int outcome = Meet(Call::k_select, timeout != nullptr);
    if (outcome == kTimeOut) {
        SpareTime(Nanoseconds(*timeout));
        *timeout = {};
        Clear(count, reading);
        Clear(count, writing);
        return 0;
    }
    if (outcome != 0) {
        return -1;
    }
    const Sets sets = {count, reading, writing, excepted};
    return timeout != nullptr ? SelectWithin(sets, timeout) : SelectForEver(sets);
}

// The library only looks.
int torture_poll(pollfd* awaited, nfds_t count, int timeout) {
    const int outcome = Meet(Call::k_poll, timeout >= 0);
    if (outcome != 0) {
        return outcome == kTimeOut ? 0 : -1;
    }
    return poll(awaited, count, timeout);
}

// ---- Files and directories ----------------------------------------------------------------------

int torture_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = makes ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (Meet(Call::k_open, MayGo(path)) != 0) {
        return -1;
    }
    return Descriptor(open(path, flags, mode));
}

FILE* torture_fopen(const char* path, const char* mode) {
    if (Meet(Call::k_fopen, MayGo(path)) != 0) {
        return nullptr;
    }
    FILE* stream = fopen(path, mode);
    if (stream != nullptr) {
        Descriptor(fileno(stream));
    }
    return stream;
}

char* torture_fgets(char* line, int size, FILE* stream) {
    TORTURE_OR(fgets, nullptr)
    return fgets(line, size, stream);
}

int torture_fclose(FILE* stream) {
    const int outcome = Meet(Call::k_fclose);
    Closed(fileno(stream));
    const int result = fclose(stream);
    return outcome != 0 ? (errno = outcome, EOF) : result;
}

// A close that fails has closed all the same.
int torture_close(int fd) {
    const int outcome = Meet(Call::k_close);
    Closed(fd);
    const int result = close(fd);
    return outcome != 0 ? (errno = outcome, -1) : result;
}

// A watch of files has no end.
ssize_t torture_read(int fd, void* data, size_t size) {
    struct stat status;
    const bool canEnd = fstat(fd, &status) == 0 && (status.st_mode & S_IFMT) != 0;
    return Counted(
        Call::k_read, size, [=](size_t count) { return read(fd, data, count); }, canEnd);
}

ssize_t torture_pread(int fd, void* data, size_t size, off_t offset) {
    return Counted(Call::k_pread, size,
                   [=](size_t count) { return pread(fd, data, count, offset); });
}

ssize_t torture_write(int fd, const void* data, size_t size) {
    return Counted(Call::k_write, size, [=](size_t count) { return write(fd, data, count); });
}

ssize_t torture_pwrite(int fd, const void* data, size_t size, off_t offset) {
    return Counted(Call::k_pwrite, size,
                   [=](size_t count) { return pwrite(fd, data, count, offset); });
}

int torture_ftruncate(int fd, off_t size) {
    TORTURE_OR(ftruncate, -1)
    return ftruncate(fd, size);
}

int torture_fallocate(int fd, int mode, off_t offset, off_t size) {
    TORTURE_OR(fallocate, -1)
    return fallocate(fd, mode, offset, size);
}

int torture_linkat(int from, const char* path, int to, const char* name, int flags) {
    TORTURE_OR(linkat, -1)
    return linkat(from, path, to, name, flags);
}

int torture_unlink(const char* path) {
    TORTURE_OR(unlink, -1)
    return unlink(path);
}

int torture_access(const char* path, int mode) {
    TORTURE_OR(access, -1)
    return access(path, mode);
}

int torture_fstat(int fd, struct stat* status) {
    TORTURE_OR(fstat, -1)
    return fstat(fd, status);
}

int torture_fstatat(int fd, const char* path, struct stat* status, int flags) {
    TORTURE_OR(fstatat, -1)
    return fstatat(fd, path, status, flags);
}

int torture_lstat(const char* path, struct stat* status) {
    TORTURE_OR(lstat, -1)
    return lstat(path, status);
}

DIR* torture_opendir(const char* path) {
    TORTURE_OR(opendir, nullptr)
    DIR* directory = opendir(path);
    if (directory != nullptr) {
        Descriptor(dirfd(directory));
    }
    return directory;
}

dirent* torture_readdir(DIR* directory) {
    TORTURE_OR(readdir, nullptr)
    return readdir(directory);
}

int torture_closedir(DIR* directory) {
    const int outcome = Meet(Call::k_closedir);
    Closed(dirfd(directory));
    const int result = closedir(directory);
    return outcome != 0 ? (errno = outcome, -1) : result;
}

int torture_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    TORTURE_OR(ioctl, -1)
    return ioctl(fd, request, argument);
}

int torture_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    TORTURE_OR(fcntl, -1)
    const int result = fcntl(fd, command, argument);
    return command == F_DUPFD_CLOEXEC || command == F_DUPFD ? Descriptor(result) : result;
}

int torture_dup2(int from, int to) {
    TORTURE_OR(dup2, -1)
    return dup2(from, to);
}

int torture_pipe2(int* ends, int flags) {
    TORTURE_OR(pipe2, -1)
    const int result = pipe2(ends, flags);
    if (result == 0) {
        Opened(ends[0]);
        Opened(ends[1]);
    }
    return result;
}

int torture_inotify_init1(int flags) {
    TORTURE_OR(inotify_init1, -1)
    return Descriptor(inotify_init1(flags));
}

int torture_inotify_add_watch(int fd, const char* path, u32 mask) {
    TORTURE_OR(inotify_add_watch, -1)
    return inotify_add_watch(fd, path, mask);
}

// ---- Threads, processes, semaphores -------------------------------------------------------------

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

// ---- The rest -----------------------------------------------------------------------------------

int torture_usleep(useconds_t time) {
    TORTURE_OR(usleep, -1)
    return usleep(time);
}

int torture_printf(const char* format, ...) {
    TORTURE_OR(printf, -1)
    va_list arguments;
    va_start(arguments, format);
    const int result = vprintf(format, arguments);
    va_end(arguments);
    return result;
}

int torture_dprintf(int fd, const char* format, ...) {
    TORTURE_OR(dprintf, -1)
    va_list arguments;
    va_start(arguments, format);
    const int result = vdprintf(fd, format, arguments);
    va_end(arguments);
    return result;
}

int torture_vfprintf(FILE* stream, const char* format, va_list arguments) {
    TORTURE_OR(vfprintf, -1)
    return vfprintf(stream, format, arguments);
}

int torture_putchar(int character) {
    TORTURE_OR(putchar, EOF)
    return putchar(character);
}

int torture_clock_gettime(clockid_t clock, timespec* time) {
    const int result = clock_gettime(clock, time);
    if (clock == CLOCK_MONOTONIC) {
        const s64 now = time->tv_sec * kSecond + time->tv_nsec + TimeAhead();
        *time = {static_cast<time_t>(now / kSecond), static_cast<long>(now % kSecond)};
    }
    return result;
}

}  // extern "C"

}  // namespace vimbra::tests::torture
