#include <arpa/inet.h>
#include <vimbra/iface_check.h>

#include <cstdio>

#include "lib/failure.hpp"
#include "lib/log.hpp"

namespace {

constexpr u32 kLastEthernet = 2;

struct AddressClass {
    const char* from;
    const char* to;
    s32 code;
};

constexpr AddressClass kUnicastClasses[] = {
    {"1.0.0.0", "126.255.255.255", VIMBRA_IP_CLASS_A},
    {"128.0.0.0", "191.255.255.255", VIMBRA_IP_CLASS_B},
    {"192.0.0.0", "223.255.255.255", VIMBRA_IP_CLASS_C},
};
constexpr AddressClass kMulticastClass = {"224.0.0.0", "239.255.255.255", VIMBRA_IP_CLASS_D};

u32 HostOrder(const char* dotted) {
    in_addr address = {};
    inet_aton(dotted, &address);
    return ntohl(address.s_addr);
}

bool IsIn(const AddressClass& addressClass, u32 hostOrderIp) {
    return hostOrderIp >= HostOrder(addressClass.from) && hostOrderIp <= HostOrder(addressClass.to);
}

}  // namespace

s32 check_mask(u32 mask) {
    const u32 bits = ntohl(mask);
    // The lowest one and all above it, without the ones of the mask: zeros between ones.
    return ((0U - bits) & ~bits) != 0 ? VIMBRA_ERR_GENERAL : VIMBRA_OK;
}

s32 check_ip(u32 ip) {
    const u32 bits = ntohl(ip);
    for (const AddressClass& addressClass : kUnicastClasses) {
        if (IsIn(addressClass, bits)) {
            return addressClass.code;
        }
    }
    return IsIn(kMulticastClass, bits) ? kMulticastClass.code : VIMBRA_IP_CLASS_OTHER;
}

s32 check_ip_mask_gateway_the_same_net(u32 ip, u32 mask, u32 gateway) {
    if (gateway == 0 || ((ip ^ gateway) & mask) == 0) {
        return VIMBRA_OK;
    }
    return vimbra::RefuseArgument(__func__, VIMBRA_ERR_NOT_SAME_NET);
}

s32 check_intranet_ip(u32 ip, u32 mask) {
    const u32 network = ip & mask;
    const u32 broadcast = network | ~mask;
    return ip == network || ip == broadcast ? VIMBRA_ERR_GENERAL : VIMBRA_OK;
}

s32 interface_name(u32 ethid, char* devname, s32 name_len) {
    if (ethid > kLastEthernet) {
        VLOG_ERROR("Eth:%d does not exist and max interface NO:%d", static_cast<int>(ethid),
                   static_cast<int>(kLastEthernet));
        return vimbra::RefuseArgument(__func__, VIMBRA_ERR_IFACE_NUMBER);
    }
    if (devname == nullptr || name_len < 0) {
        return VIMBRA_ERR_GENERAL;
    }
    char name[16];
    snprintf(name, sizeof(name), "%s%d", "eth", static_cast<int>(ethid));
    // Fills all of name_len: the field may go on the wire as it is. A short one is left
    // unterminated, as strncpy does.
    memset(devname, 0, static_cast<size_t>(name_len));
    memcpy(devname, name, strnlen(name, static_cast<size_t>(name_len)));
    return VIMBRA_OK;
}
