#include "address_record.hpp"

#include <linux/rtnetlink.h>

namespace vimbrad {
namespace {

EVimbraScopeType ScopeOf(int kernelScope) {
    switch (kernelScope) {
        case RT_SCOPE_HOST:
            return VIMBRA_SCOPE_TYPE_HOST;
        case RT_SCOPE_LINK:
            return VIMBRA_SCOPE_TYPE_LINK;
        case RT_SCOPE_SITE:
            return VIMBRA_SCOPE_TYPE_SITE;
        case RT_SCOPE_UNIVERSE:
            return VIMBRA_SCOPE_TYPE_GLOBAL;
        default:
            return VIMBRA_SCOPE_TYPE_DEF;
    }
}

}  // namespace

TVimbraIfaceIp RecordOf(rtnl_addr* address) {
    return {ScopeOf(rtnl_addr_get_scope(address)), MakeAddr(rtnl_addr_get_local(address)),
            static_cast<u32>(rtnl_addr_get_prefixlen(address))};
}

TVimbraIfaceAllIp RecordsOf(const std::vector<IfaceAddr>& addresses) {
    TVimbraIfaceAllIp list{};
    for (const IfaceAddr& each : addresses) {
        if (list.dwIpNum == VIMBRA_IFACE_IP_MAX) {
            break;
        }
        list.atNetIfaceIp[list.dwIpNum++] = RecordOf(each.get());
    }
    return list;
}

}  // namespace vimbrad
