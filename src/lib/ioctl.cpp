#include <sys/ioctl.h>
#include <sys/socket.h>
#include <vimbra/iface_check.h>

#include "lib/base/fd.hpp"
#include "lib/log.hpp"

s32 SocketIoctl(u32 dwRequest, char* buffer) {
    const vimbra::Fd fd(socket, AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (!fd) {
        VLOG_ERRNO("socket error");
        return VIMBRA_ERR_GENERAL;
    }
    if (ioctl(fd.Get(), dwRequest, buffer) < 0) {
        VLOG_ERRNO("ioctl error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}
