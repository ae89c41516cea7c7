#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <vimbra/iface_check.h>

#include <cstddef>

#include "lib/failure.hpp"
#include "lib/log.hpp"

namespace {

static_assert(IFNAMSIZ == VIMBRA_IFACE_NAME_LEN);

// How much of a name goes into a request: the kernel terminates what it is given at 15 itself.
constexpr size_t kWholeField = IFNAMSIZ;
constexpr size_t kTerminated = IFNAMSIZ - 1;

ifreq RequestFor(const char* name, size_t most) {
    ifreq request = {};
    memcpy(request.ifr_name, name, strnlen(name, most));
    return request;
}

s32 Ioctl(u32 code, ifreq& request) {
    return SocketIoctl(code, reinterpret_cast<char*>(&request));
}

}  // namespace

s32 IfethGetFlags(char* ifname, u32* flag) {
    if (ifname == nullptr) {
        VLOG_ERROR("ifname is null!");
        return vimbra::RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (flag == nullptr) {
        VLOG_ERROR("flag is null!");
        return vimbra::RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    ifreq request = RequestFor(ifname, kWholeField);
    if (Ioctl(SIOCGIFFLAGS, request) != 0) {
        VLOG_ERRNO("ioctl error");
        return VIMBRA_ERR_GENERAL;
    }
    *flag = static_cast<u16>(request.ifr_flags);
    return VIMBRA_OK;
}

s32 IfethSetFlags(char* ifname, u32 flags) {
    if (ifname == nullptr) {
        VLOG_ERROR("ifname is null!");
        return vimbra::RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    ifreq request = RequestFor(ifname, kTerminated);
    request.ifr_flags = static_cast<s16>(flags);
    return Ioctl(SIOCSIFFLAGS, request) == 0 ? VIMBRA_OK : VIMBRA_ERR_GENERAL;
}

s32 IfethGetLineStatus(char* ifname, u32* status) {
    if (ifname == nullptr) {
        VLOG_ERROR("ifname is null!");
        return vimbra::RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    if (status == nullptr) {
        VLOG_ERROR("status is null!");
        return vimbra::RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    ethtool_value value = {};
    value.cmd = ETHTOOL_GLINK;
    ifreq request = RequestFor(ifname, kTerminated);
    request.ifr_data = reinterpret_cast<char*>(&value);
    if (Ioctl(SIOCETHTOOL, request) != 0) {
        VLOG_ERRNO("ioctl error");
        return VIMBRA_ERR_GENERAL;
    }
    *status = value.data;
    return VIMBRA_OK;
}

s32 IfethGetHwAddr(char* pif_name, u8* phw_addr, u16* pfamily) {
    if (pif_name == nullptr || phw_addr == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    ifreq request = RequestFor(pif_name, kWholeField);
    const s32 result = Ioctl(SIOCGIFHWADDR, request);
    if (result != VIMBRA_OK) {
        return result;
    }
    memcpy(phw_addr, request.ifr_hwaddr.sa_data, 6);
    if (pfamily != nullptr) {
        *pfamily = request.ifr_hwaddr.sa_family;
    }
    return VIMBRA_OK;
}

s32 IfethGetIpAddr(char* pif_name, in_addr* pip_addr) {
    if (pif_name == nullptr || pip_addr == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    ifreq request = {};
    memcpy(request.ifr_name, pif_name, sizeof(request.ifr_name));
    request.ifr_addr.sa_family = AF_INET;
    if (Ioctl(SIOCGIFADDR, request) != 0) {
        return VIMBRA_ERR_GENERAL;
    }
    memcpy(pip_addr,
           reinterpret_cast<const u8*>(&request.ifr_addr) + offsetof(sockaddr_in, sin_addr),
           sizeof(*pip_addr));
    return VIMBRA_OK;
}
