// Watches interfaces for addresses that router advertisements bring, change or take away, and tells
// of all addresses of such an interface whenever they are others than before.
#include <linux/if_addr.h>
#include <net/if.h>

#include <map>
#include <nlohmann/json.hpp>

#include "address_record.hpp"
#include "api/api_route/api_route/router_notify_wire.hpp"
#include "kernel_events.hpp"
#include "log.hpp"
#include "notifier.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

TVimbraIfaceAllIp AddressesOf(const std::string& name) {
    Netlink kernel;
    const Link link = kernel.FindLink(name);
    return RecordsOf(kernel.Addresses(rtnl_link_get_ifindex(link.get()), VIMBRA_FAMILY_BOTH));
}

bool operator==(const TVimbraIfaceAllIp& one, const TVimbraIfaceAllIp& other) {
    return std::memcmp(&one, &other, sizeof(one)) == 0;
}

// An IPv6 address that the kernel made from an advertisement. An older kernel does not say where an
// address is from, but none from an advertisement is permanent. One that is still being tried is
// announced again when it is known to be free.
bool IsFromAdvertisement(nlmsghdr* announcement) {
    const auto* address = static_cast<const ifaddrmsg*>(nlmsg_data(announcement));
    if (address->ifa_family != AF_INET6) {
        return false;
    }
    nlattr* attributes[IFA_MAX + 1];
    if (nlmsg_parse(announcement, sizeof(*address), attributes, IFA_MAX, nullptr) < 0) {
        return false;
    }
    const u32 flags =
        attributes[IFA_FLAGS] != nullptr ? nla_get_u32(attributes[IFA_FLAGS]) : address->ifa_flags;
    const bool announced =
        attributes[IFA_PROTO] == nullptr || nla_get_u8(attributes[IFA_PROTO]) == IFAPROT_KERNEL_RA;
    return announced && (flags & (IFA_F_PERMANENT | IFA_F_TENTATIVE)) == 0;
}

class RouterAdvertisementService : public Service {
 public:
    explicit RouterAdvertisementService(const Context& context)
        : loop_(context.loop), notifier_(context.loop, wire::kRouterNotifySocket, [] {}) {}

    void Attach(Registry& registry) override {
        using wire::PlainResult;
        registry.Change<wire::RouterAdvertiseStartBody, PlainResult>(
            wire::kRouterAdvertiseStart, "router advertisement start",
            [this](const auto& body) { return Start(NameOf(body.achIfaceName)); });
        registry.Change<wire::IfaceBody, PlainResult>(
            wire::kRouterAdvertiseStop, "router advertisement stop",
            [this](const auto& body) { return Stop(NameOf(body.achIfaceName)); });
    }

    void Save(Json& state) const override {
        Json& list = state["router_advertisement_watches"] = Json::array();
        for (const auto& [name, _] : watched_) {
            list.push_back(name);
        }
    }
    void Restore(const Json& state) override {
        for (const Json& each : state.value("router_advertisement_watches", Json::array())) {
            Start(each.get<std::string>());
        }
    }
    void Show(Json& answer) const override {
        for (const auto& [name, _] : watched_) {
            answer["watches"].push_back({{"kind", "router_advertisement"}, {"interface", name}});
        }
    }

 private:
    // The kernel is heard before the addresses are read: none that comes in between is missed.
    wire::PlainResult Start(const std::string& name) {
        if (!events_) {
            events_ = std::make_unique<KernelEvents>(
                loop_, std::initializer_list<rtnetlink_groups>{RTNLGRP_IPV6_IFADDR},
                [this](nlmsghdr* announcement) { Look(announcement); });
        }
        try {
            watched_[name] = AddressesOf(name);
        } catch (...) {
            Stop(name);
            throw;
        }
        return {0};
    }

    wire::PlainResult Stop(const std::string& name) {
        watched_.erase(name);
        if (watched_.empty()) {
            events_.reset();
        }
        return {0};
    }

    void Look(nlmsghdr* announcement) {
        if (announcement == nullptr) {
            for (auto& [name, known] : watched_) {
                Compare(name, known);
            }
            return;
        }
        if ((announcement->nlmsg_type != RTM_NEWADDR && announcement->nlmsg_type != RTM_DELADDR) ||
            !nlmsg_valid_hdr(announcement, sizeof(ifaddrmsg)) ||
            !IsFromAdvertisement(announcement)) {
            return;
        }
        char name[IF_NAMESIZE] = "";
        if_indextoname(static_cast<const ifaddrmsg*>(nlmsg_data(announcement))->ifa_index, name);
        if (const auto found = watched_.find(name); found != watched_.end()) {
            Compare(found->first, found->second);
        }
    }

    void Compare(const std::string& name, TVimbraIfaceAllIp& known) {
        try {
            const TVimbraIfaceAllIp now = AddressesOf(name);
            if (now == known) {
                return;
            }
            known = now;
        } catch (const Refusal& refusal) {
            // The interface goes, and its addresses with it.
            LogDebug("router advertisement: %s", refusal.what());
            return;
        }
        wire::RouterNotifyBody body{};
        name.copy(body.achIfaceName, sizeof(body.achIfaceName));
        body.tNetIfaceAllIp = known;
        notifier_.Post(wire::kRouterNotify, body);
    }

    uv_loop_t* loop_;
    std::map<std::string, TVimbraIfaceAllIp> watched_;
    std::unique_ptr<KernelEvents> events_;
    Notifier notifier_;
};

}  // namespace

std::unique_ptr<Service> MakeRouterAdvertisementService(const Context& context) {
    return std::make_unique<RouterAdvertisementService>(context);
}

}  // namespace vimbrad
