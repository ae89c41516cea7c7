#include "lib/files/inetd.hpp"

#include <signal.h>
#include <vimbra/process.h>

#include <cerrno>

namespace vimbra {

FILE* OpenInetdStream(const char* mode) {
    if (mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    FILE* stream = nullptr;
    for (const char* path : kInetdPaths) {
        do {
            stream = fopen(path, mode);
        } while (stream == nullptr && errno == EINTR);
        if (stream != nullptr) {
            break;
        }
    }
    return stream;
}

s32 ReloadInetd(CallSite site) {
    char directory[] = "/proc/";
    char name[] = "inetd";
    const s32 pid = GetServicePid(directory, name);
    if (pid <= 0) {
        VLOG_ERROR_AT(site, "can't get the pid of Inetd");
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT_AT(site, "Inetd Pid:%d", pid);
    kill(pid, SIGHUP);
    return VIMBRA_OK;
}

}  // namespace vimbra
