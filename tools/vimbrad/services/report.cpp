// The interface report that the applications of the first generation read: everything about an
// interface as text.
#include "api/api_1x/api_ip/net_ip_wire.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "netlink.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// Those applications know IPv4 only: other entries are marked as not for them.
constexpr u32 kNotShown = 1;

void WriteText(const nl_addr* address, std::span<char> text) {
    char buffer[128];
    nl_addr2str(address, buffer, sizeof(buffer));
    // Without the prefix length that may follow.
    const std::string plain(buffer, std::strcspn(buffer, "/"));
    std::memcpy(text.data(), plain.c_str(), std::min(plain.size() + 1, text.size() - 1));
}

api_ipaddr_show_info Report(const wire::IfaceBody& body) {
    Netlink kernel;
    const Link link = kernel.FindLink(NameOf(body.achIfaceName));
    api_ipaddr_show_info reply{};
    ir_ipaddr_show_info& report = reply.ipaddr_show_info;
    report.mtu = rtnl_link_get_mtu(link.get());
    if (const nl_addr* mac = rtnl_link_get_addr(link.get())) {
        WriteText(mac, report.mac);
    }

    ir_ipaddr_param_all& all = report.ipaddr_param_all;
    for (const IfaceAddr& each :
         kernel.Addresses(rtnl_link_get_ifindex(link.get()), VIMBRA_FAMILY_BOTH)) {
        if (all.ipnum == std::size(all.ipaddr_param)) {
            break;
        }
        ir_ipaddr_param& entry = all.ipaddr_param[all.ipnum++];
        WriteText(rtnl_addr_get_local(each.get()), entry.ipaddr);
        entry.ipmask = static_cast<u32>(rtnl_addr_get_prefixlen(each.get()));
        entry.ipflag = rtnl_addr_get_family(each.get()) == VIMBRA_FAMILY_IPV4 ? 0 : kNotShown;
    }
    return reply;
}

class ReportService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.Query<wire::IfaceBody, api_ipaddr_show_info>(wire::kIpaddrShowFilter,
                                                              "interface report", Report);
    }
};

}  // namespace

std::unique_ptr<Service> MakeReportService(const Context&) {
    return std::make_unique<ReportService>();
}

}  // namespace vimbrad
