// Finding processes in the proc file system. Any of them may end while it is looked at.
#include <fcntl.h>
#include <sys/stat.h>
#include <vimbra/process.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "lib/base/directory.hpp"
#include "lib/base/fd.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

// One read of at most len bytes of a file into a cleared buffer; the count or -1.
ssize_t ReadFileToBuf(const char* filename, int mode, char* buf, size_t len) {
    memset(buf, 0, len);
    const Fd fd(open, filename, mode | O_CLOEXEC);
    return fd ? read(fd.Get(), buf, len) : -1;
}

ssize_t ReadToBuf(const char* filename, char* buf, size_t len) {
    return ReadFileToBuf(filename, O_RDONLY, buf, len);
}

void CutAtNewline(char* text) {
    text[strcspn(text, "\n")] = '\0';
}

bool IsDirectory(const Directory& directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status;
    return fstatat(directory.Fd(), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

s32 Number(const char* name) {
    return static_cast<s32>(strtol(name, nullptr, 10));
}

// path and name are joined as they are: the path brings its slash. False when that is no path.
bool Join(char (&file)[PATH_MAX], const char* path, const char* name, const char* leaf) {
    const int length = snprintf(file, sizeof(file), "%s%s/%s", path, name, leaf);
    return static_cast<size_t>(length) < sizeof(file);
}

// The first process whose command line suits; keyword and except may be null.
s32 FindByCmdline(CallSite site, const char* path, const char* service, const char* keyword,
                  const char* except) {
    if (path == nullptr || service == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    Directory directory(path);
    if (!directory) {
        VLOG_ERROR_AT(site, "open direct error.");
        return VIMBRA_ERR_GENERAL;
    }
    char file[PATH_MAX];
    char text[1000];
    while (const dirent* entry = directory.Next()) {
        if (!Join(file, path, entry->d_name, "cmdline")) {
            continue;
        }
        const ssize_t count = ReadToBuf(file, text, sizeof(text) - 1);
        if (count < 0) {
            continue;
        }
        text[count] = '\0';
        for (ssize_t i = 0; i < count; i++) {
            if (static_cast<u8>(text[i]) < ' ') {
                text[i] = ' ';
            }
        }
        if (except != nullptr && strstr(text, except) != nullptr) {
            continue;
        }
        if (strstr(text, service) != nullptr &&
            (keyword == nullptr || strstr(text, keyword) != nullptr)) {
            return Number(entry->d_name);
        }
    }
    return 0;
}

bool HasProcess(Directory& directory, s32 pid) {
    constexpr size_t kCompared = 10;
    char name[16];
    snprintf(name, sizeof(name), "%d", pid);
    while (const dirent* entry = directory.Next()) {
        if (strncmp(entry->d_name, name, kCompared) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

s32 GetServicePid(char* pchPath, char* pchService) {
    if (pchPath == nullptr || pchService == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    Directory directory(pchPath);
    if (!directory) {
        VLOG_ERROR("open direct error.");
        return VIMBRA_ERR_GENERAL;
    }
    char file[PATH_MAX];
    char line[1000 + 1];
    while (const dirent* entry = directory.Next()) {
        if (!IsDirectory(directory, *entry) || !Join(file, pchPath, entry->d_name, "status")) {
            continue;
        }
        // To write as well: what may not be written to is passed over.
        const ssize_t count = ReadFileToBuf(file, O_RDWR, line, sizeof(line) - 1);
        if (count <= 0) {
            continue;
        }
        line[count] = '\0';
        CutAtNewline(line);
        if (strstr(line, pchService) != nullptr) {
            return Number(entry->d_name);
        }
    }
    return 0;
}

s32 GetServicePidFromCmdline(char* pchPath, char* pchService, char* pKeyWord) {
    return FindByCmdline(VIMBRA_HERE, pchPath, pchService, pKeyWord, nullptr);
}

s32 GetServicePidFromCmdline2(char* pchPath, char* pchService, char* pKeyWord, char* pchExcept) {
    if (pchExcept == nullptr) {
        VLOG_ERROR("the pchExcept is !NULL");
        return VIMBRA_ERR_GENERAL;
    }
    return FindByCmdline(VIMBRA_HERE, pchPath, pchService, pKeyWord, pchExcept);
}

s32 CheckCmdByPid(s32 pid, const char* cmd) {
    if (cmd == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    Directory directory("/proc");
    if (!directory) {
        VLOG_ERROR("read dir error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (!HasProcess(directory, pid)) {
        VLOG_ERROR("can't find %s in pid directory %d!", cmd, pid);
        return 0;
    }
    char file[32];
    snprintf(file, sizeof(file), "/proc/%d/comm", pid);
    if (access(file, F_OK) != 0) {
        VLOG_ERRNO("access file error:");
        VLOG_ERROR("access file error:[%s]!", file);
        return VIMBRA_ERR_GENERAL;
    }
    const Fd fd(open, file, O_RDONLY | O_CLOEXEC);
    if (!fd) {
        VLOG_ERRNO("open file error:");
        VLOG_ERROR("open file error:[%s]!", file);
        return VIMBRA_ERR_GENERAL;
    }
    char line[50 + 1] = {};
    if (read(fd.Get(), line, sizeof(line) - 1) <= 0) {
        VLOG_ERROR("read file error:[%s]!", file);
        return VIMBRA_ERR_GENERAL;
    }
    CutAtNewline(line);
    return strstr(line, cmd) != nullptr ? 1 : 0;
}
