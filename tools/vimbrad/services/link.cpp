// MAC address and MTU of an interface.
#include <netlink/route/link.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "netlink.hpp"
#include "originals.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

using Mac = std::array<u8, sizeof(TVimbraIfaceMac)>;

Link Find(const std::string& name) {
    return Netlink().FindLink(name);
}

template <class Alter>
void ChangeLink(const Link& link, Alter alter) {
    const auto changes = Allocated<Link>(rtnl_link_alloc());
    alter(changes.get());
    Netlink().Change(Build<NlMessage>([&](nl_msg** message) {
        return rtnl_link_build_change_request(link.get(), changes.get(), 0, message);
    }));
}

Mac MacOf(const Link& link) {
    const nl_addr* found = rtnl_link_get_addr(link.get());
    Mac mac{};
    if (found == nullptr || nl_addr_get_len(found) != mac.size()) {
        throw Refusal(EOPNOTSUPP, "the interface has no MAC address");
    }
    std::memcpy(mac.data(), nl_addr_get_binary_addr(found), mac.size());
    return mac;
}

void SetMac(const Link& link, const Mac& mac) {
    const auto address = Allocated<NlAddr>(nl_addr_build(AF_LLC, mac.data(), mac.size()));
    ChangeLink(link,
               [&address](rtnl_link* changes) { rtnl_link_set_addr(changes, address.get()); });
}

u32 MtuOf(const Link& link) {
    return rtnl_link_get_mtu(link.get());
}

void SetMtu(const Link& link, u32 mtu) {
    ChangeLink(link, [mtu](rtnl_link* changes) { rtnl_link_set_mtu(changes, mtu); });
}

class LinkService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.Change<wire::IfaceMacBody, wire::PlainResult>(
            wire::kMacSet, "mac set", [this](const wire::IfaceMacBody& body) {
                Mac mac;
                std::ranges::copy(body.tIfaceMac.abyMacAddr, mac.begin());
                return Set(macs_, body, mac, MacOf, SetMac);
            });
        registry.Query<wire::IfaceBody, wire::TIpcMac>(
            wire::kMacGet, "mac get", [](const wire::IfaceBody& body) {
                wire::TIpcMac reply{};
                std::ranges::copy(MacOf(Find(NameOf(body.achIfaceName))),
                                  reply.tIpcIfaceMac.abyMacAddr);
                return reply;
            });
        registry.Change<wire::IfaceMtuBody, wire::PlainResult>(
            wire::kMtuSet, "mtu set", [this](const wire::IfaceMtuBody& body) {
                return Set(mtus_, body, body.dwMtu, MtuOf, SetMtu);
            });
        registry.Query<wire::IfaceBody, wire::TIpcMtu>(
            wire::kMtuGet, "mtu get", [](const wire::IfaceBody& body) {
                return wire::TIpcMtu{0, MtuOf(Find(NameOf(body.achIfaceName)))};
            });
    }

    void Save(Json& state) const override {
        state["macs"] = macs_.Save();
        state["mtus"] = mtus_.Save();
    }
    void Restore(const Json& state) override {
        macs_.Restore(state.value("macs", Json::array()));
        mtus_.Restore(state.value("mtus", Json::array()));
    }
    void TakeBack() override {
        PutBack(macs_, MacOf, SetMac);
        PutBack(mtus_, MtuOf, SetMtu);
    }

 private:
    template <class Value, class Body, class GetIt, class SetIt>
    static wire::PlainResult Set(Originals<Value>& originals, const Body& body, const Value& value,
                                 GetIt get, SetIt set) {
        const Link link = Find(NameOf(body.achIfaceName));
        const Value before = get(link);
        set(link, value);
        originals.Note(rtnl_link_get_ifindex(link.get()), before, value);
        return {0};
    }

    template <class Value, class GetIt, class SetIt>
    static void PutBack(Originals<Value>& originals, GetIt get, SetIt set) {
        originals.TakeBack(
            [get](const std::string& name) { return get(Find(name)); },
            [set](const std::string& name, const Value& value) { set(Find(name), value); });
    }

    Originals<Mac> macs_;
    Originals<u32> mtus_;
};

}  // namespace

std::unique_ptr<Service> MakeLinkService(const Context&) {
    return std::make_unique<LinkService>();
}

}  // namespace vimbrad
