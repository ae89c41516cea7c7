// The calls of calls.inc as the library under torture makes them: files and directories.
#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "calls.hpp"

namespace vimbra::tests::torture {
namespace {

// Processes go while they are looked at; no other file that is there is suddenly not.
inline bool MayGo(const char* path) {
    return strstr(path, "/proc/") != nullptr || access(path, F_OK) != 0;
}

}  // namespace

extern "C" {

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

}  // extern "C"

}  // namespace vimbra::tests::torture
