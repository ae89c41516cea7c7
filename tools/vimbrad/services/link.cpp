// MAC address and MTU of an interface.
#include <netlink/route/link.h>

#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "netlink.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

template <class Alter>
void ChangeLink(const std::string& name, Alter alter) {
    Netlink kernel;
    const Link link = kernel.FindLink(name);
    const auto changes = Allocated<Link>(rtnl_link_alloc());
    alter(changes.get());
    kernel.Change(Build<NlMessage>([&](nl_msg** message) {
        return rtnl_link_build_change_request(link.get(), changes.get(), 0, message);
    }));
}

wire::PlainResult SetMac(const wire::IfaceMacBody& body) {
    const auto mac = Allocated<NlAddr>(
        nl_addr_build(AF_LLC, body.tIfaceMac.abyMacAddr, sizeof(body.tIfaceMac.abyMacAddr)));
    ChangeLink(NameOf(body.achIfaceName),
               [&mac](rtnl_link* changes) { rtnl_link_set_addr(changes, mac.get()); });
    return {0};
}

wire::TIpcMac GetMac(const wire::IfaceBody& body) {
    const Link link = Netlink().FindLink(NameOf(body.achIfaceName));
    const nl_addr* mac = rtnl_link_get_addr(link.get());
    wire::TIpcMac reply{};
    if (mac == nullptr || nl_addr_get_len(mac) != sizeof(reply.tIpcIfaceMac.abyMacAddr)) {
        throw Refusal(EOPNOTSUPP, "the interface has no MAC address");
    }
    std::memcpy(reply.tIpcIfaceMac.abyMacAddr, nl_addr_get_binary_addr(mac),
                sizeof(reply.tIpcIfaceMac.abyMacAddr));
    return reply;
}

wire::PlainResult SetMtu(const wire::IfaceMtuBody& body) {
    ChangeLink(NameOf(body.achIfaceName),
               [&body](rtnl_link* changes) { rtnl_link_set_mtu(changes, body.dwMtu); });
    return {0};
}

wire::TIpcMtu GetMtu(const wire::IfaceBody& body) {
    const Link link = Netlink().FindLink(NameOf(body.achIfaceName));
    return {0, rtnl_link_get_mtu(link.get())};
}

class LinkService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.Change<wire::IfaceMacBody, wire::PlainResult>(wire::kMacSet, "mac set", SetMac);
        registry.Query<wire::IfaceBody, wire::TIpcMac>(wire::kMacGet, "mac get", GetMac);
        registry.Change<wire::IfaceMtuBody, wire::PlainResult>(wire::kMtuSet, "mtu set", SetMtu);
        registry.Query<wire::IfaceBody, wire::TIpcMtu>(wire::kMtuGet, "mtu get", GetMtu);
    }
};

}  // namespace

std::unique_ptr<Service> MakeLinkService(const Context&) {
    return std::make_unique<LinkService>();
}

}  // namespace vimbrad
