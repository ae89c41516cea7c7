// Addresses of an interface: add, delete, flush, replace, list.
#include <linux/if_addr.h>
#include <linux/ip.h>
#include <linux/rtnetlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/inet.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "address_record.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "ledger.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

std::optional<int> KernelScope(EVimbraScopeType scope) {
    switch (scope) {
        case VIMBRA_SCOPE_TYPE_DEF:
            return std::nullopt;
        case VIMBRA_SCOPE_TYPE_HOST:
            return RT_SCOPE_HOST;
        case VIMBRA_SCOPE_TYPE_LINK:
            return RT_SCOPE_LINK;
        case VIMBRA_SCOPE_TYPE_SITE:
            return RT_SCOPE_SITE;
        case VIMBRA_SCOPE_TYPE_GLOBAL:
            return RT_SCOPE_UNIVERSE;
    }
    throw Refusal(EINVAL, "no such scope");
}

// True when what the kernel holds is what was asked for. The kernel gives an IPv6 address its scope
// by itself, and the default is whatever the kernel chose.
bool Fulfils(const TVimbraIfaceIp& held, const TVimbraIfaceIp& wanted) {
    return Same(held.tIpAddr, wanted.tIpAddr) && held.dwPrefix == wanted.dwPrefix &&
           (wanted.eScopeType == VIMBRA_SCOPE_TYPE_DEF || held.eScopeType == wanted.eScopeType ||
            wanted.tIpAddr.wSinFamily == VIMBRA_FAMILY_IPV6);
}

// The link-local address that the kernel gives every IPv6 interface: neighbour discovery lives on
// it, and the kernel does not make it again before the interface goes down and up. It is made from
// the MAC address, recognisable by ff:fe in its middle, or from a secret, and then marked so.
bool MadeByKernel(rtnl_addr* address) {
    const TVimbraIfaceIp held = RecordOf(address);
    if (held.tIpAddr.wSinFamily != VIMBRA_FAMILY_IPV6 ||
        !IN6_IS_ADDR_LINKLOCAL(&held.tIpAddr.tV6Addr)) {
        return false;
    }
    const u8* bytes = held.tIpAddr.tV6Addr.s6_addr;
    return (bytes[11] == 0xff && bytes[12] == 0xfe) ||
           (rtnl_addr_get_flags(address) & IFA_F_STABLE_PRIVACY) != 0;
}

// One interface and its addresses.
class Iface {
 public:
    explicit Iface(const std::string& name) : link_(kernel_.FindLink(name)) {}

    // What the interface has of these families, IPv4 first, each in the kernel's order.
    std::vector<IfaceAddr> Addresses(u16 family) { return kernel_.Addresses(Index(), family); }

    // Addresses that a flush or a replacement may take away.
    std::vector<IfaceAddr> Configured(u16 wantedFamily) {
        std::vector<IfaceAddr> found = Addresses(wantedFamily);
        std::erase_if(found, [](const auto& each) { return MadeByKernel(each.get()); });
        return found;
    }

    void Add(const TVimbraIfaceIp& wanted, unsigned flags = 0) {
        const IfaceAddr address = Make(wanted);
        if (const auto scope = KernelScope(wanted.eScopeType)) {
            rtnl_addr_set_scope(address.get(), *scope);
        }
        if (flags != 0) {
            rtnl_addr_set_flags(address.get(), flags);
        }
        SetBroadcast(address.get(), wanted);
        kernel_.Change(Build<NlMessage>([&](nl_msg** message) {
            return rtnl_addr_build_add_request(address.get(), NLM_F_EXCL, message);
        }));
    }

    void Delete(const TVimbraIfaceIp& unwanted) {
        const IfaceAddr address = Make(unwanted);
        Delete(address.get());
    }

    void Delete(rtnl_addr* address) {
        if (rtnl_addr_get_family(address) == VIMBRA_FAMILY_IPV4) {
            KeepSecondaries();
        }
        kernel_.Change(Build<NlMessage>(
            [&](nl_msg** message) { return rtnl_addr_build_delete_request(address, 0, message); }));
    }

 private:
    int Index() const { return rtnl_link_get_ifindex(link_.get()); }

    IfaceAddr Make(const TVimbraIfaceIp& record) const {
        const NlAddr local = MakeNlAddr(record.tIpAddr, record.dwPrefix);
        auto address = Allocated<IfaceAddr>(rtnl_addr_alloc());
        rtnl_addr_set_ifindex(address.get(), Index());
        if (rtnl_addr_set_local(address.get(), local.get()) < 0) {
            throw Refusal(EINVAL);
        }
        return address;
    }

    // Programs that broadcast ask the interface for the address to use. A net of one or two
    // addresses has none.
    static void SetBroadcast(rtnl_addr* address, const TVimbraIfaceIp& record) {
        if (record.tIpAddr.wSinFamily != VIMBRA_FAMILY_IPV4 || record.dwPrefix == 0 ||
            record.dwPrefix > 30) {
            return;
        }
        TVimbraAddr broadcast = record.tIpAddr;
        broadcast.tV4Addr.s_addr |= htonl(~u32{0} >> record.dwPrefix);
        const NlAddr made = MakeNlAddr(broadcast, 32);
        rtnl_addr_set_broadcast(address, made.get());
    }

    // Unless told otherwise the kernel takes every other address of a subnet away with the first.
    void KeepSecondaries() {
        if (keepsSecondaries_) {
            return;
        }
        const auto changes = Allocated<Link>(rtnl_link_alloc());
        rtnl_link_inet_set_conf(changes.get(), IPV4_DEVCONF_PROMOTE_SECONDARIES, 1);
        kernel_.Change(Build<NlMessage>([&](nl_msg** message) {
            return rtnl_link_build_change_request(link_.get(), changes.get(), 0, message);
        }));
        keepsSecondaries_ = true;
    }

    Netlink kernel_;
    Link link_;
    bool keepsSecondaries_ = false;
};

wire::TIpcAllIp Get(const wire::FamilyIfaceBody& body) {
    return {0, RecordsOf(Iface(NameOf(body.achIfaceName)).Addresses(body.wSinFamily))};
}

// What was asked for, each entry once. Nothing is changed before all of it is known to make sense.
std::vector<TVimbraIfaceIp> WantedOf(const TVimbraIfaceAllIp& list, u16 family) {
    if (list.dwIpNum > VIMBRA_IFACE_IP_MAX) {
        throw Refusal(EINVAL, "more addresses than the list can hold");
    }
    std::vector<TVimbraIfaceIp> wanted;
    for (u32 i = 0; i < list.dwIpNum; ++i) {
        const TVimbraIfaceIp& entry = list.atNetIfaceIp[i];
        if (!Covers(family, entry.tIpAddr.wSinFamily)) {
            throw Refusal(EINVAL, "an address of another family than the request's");
        }
        MakeNlAddr(entry.tIpAddr, entry.dwPrefix);
        KernelScope(entry.eScopeType);
        if (std::none_of(wanted.begin(), wanted.end(),
                         [&entry](const auto& each) { return Fulfils(each, entry); })) {
            wanted.push_back(entry);
        }
    }
    return wanted;
}

// Replaces the addresses of an interface. New ones come before old ones go, and one that stays is
// never touched; if the kernel refuses a new one, those that came with it go again.
class Replacement {
 public:
    Replacement(Iface& iface, u16 family) : iface_(iface), held_(iface.Configured(family)) {}

    void Run(const std::vector<TVimbraIfaceIp>& wanted) {
        std::vector<TVimbraIfaceIp> missing;
        for (const TVimbraIfaceIp& each : wanted) {
            if (!Keep(each)) {
                missing.push_back(each);
            }
        }
        try {
            for (const TVimbraIfaceIp& each : missing) {
                AddNew(each);
            }
        } catch (...) {
            Undo();
            throw;
        }
        for (const IfaceAddr& each : held_) {
            iface_.Delete(each.get());
        }
    }

    const std::vector<TVimbraIfaceIp>& Added() const { return added_; }

 private:
    // Takes a held address that fulfils the wish out of those that go.
    bool Keep(const TVimbraIfaceIp& wanted) {
        return std::erase_if(held_, [&wanted](const auto& each) {
                   return Fulfils(RecordOf(each.get()), wanted);
               }) != 0;
    }

    void AddNew(const TVimbraIfaceIp& wanted) {
        try {
            iface_.Add(wanted);
        } catch (const Refusal& refusal) {
            if (!MakeWay(wanted)) {
                throw;
            }
            iface_.Add(wanted, NoDetection(wanted));
        }
        added_.push_back(wanted);
    }

    // The kernel cannot hold an address twice, with two scopes or (IPv6) two prefixes, nor change
    // them, and has one scope for an IPv4 subnet: what is in the way goes just before the new
    // address comes. Where that was in use there is no need to ask the network again whether it is
    // free.
    bool MakeWay(const TVimbraIfaceIp& wanted) {
        bool made = false;
        for (auto each = held_.begin(); each != held_.end();) {
            const TVimbraIfaceIp held = RecordOf(each->get());
            if (!IsInTheWay(held, wanted)) {
                ++each;
                continue;
            }
            iface_.Delete(each->get());
            each = held_.erase(each);
            exchanged_.push_back(held);
            made = true;
        }
        return made;
    }

    static bool IsInTheWay(const TVimbraIfaceIp& held, const TVimbraIfaceIp& wanted) {
        if (Same(held.tIpAddr, wanted.tIpAddr)) {
            return true;
        }
        if (held.tIpAddr.wSinFamily != VIMBRA_FAMILY_IPV4 ||
            wanted.tIpAddr.wSinFamily != VIMBRA_FAMILY_IPV4 || held.dwPrefix != wanted.dwPrefix) {
            return false;
        }
        const NlAddr one = MakeNlAddr(held.tIpAddr, held.dwPrefix);
        const NlAddr other = MakeNlAddr(wanted.tIpAddr, wanted.dwPrefix);
        return nl_addr_cmp_prefix(one.get(), other.get()) == 0;
    }

    static unsigned NoDetection(const TVimbraIfaceIp& address) {
        return address.tIpAddr.wSinFamily == VIMBRA_FAMILY_IPV6 ? IFA_F_NODAD : 0;
    }

    void Undo() {
        Try(added_, [this](const TVimbraIfaceIp& each) { iface_.Delete(each); });
        Try(exchanged_,
            [this](const TVimbraIfaceIp& each) { iface_.Add(each, NoDetection(each)); });
    }

    template <class Step>
    static void Try(const std::vector<TVimbraIfaceIp>& addresses, Step step) {
        for (const TVimbraIfaceIp& each : addresses) {
            try {
                step(each);
            } catch (const Refusal& refusal) {
                LogError("could not go back to the addresses before: %s", refusal.what());
            }
        }
    }

    Iface& iface_;
    std::vector<IfaceAddr> held_;
    std::vector<TVimbraIfaceIp> added_;
    std::vector<TVimbraIfaceIp> exchanged_;
};

class AddressService : public Service {
 public:
    void Attach(Registry& registry) override {
        using wire::PlainResult;
        registry.Change<wire::IfaceIpBody, PlainResult>(
            wire::kIpaddrAdd, "address add",
            [this](const wire::IfaceIpBody& body) { return Add(body); });
        registry.Change<wire::IfaceIpBody, PlainResult>(
            wire::kIpaddrDel, "address delete",
            [this](const wire::IfaceIpBody& body) { return Delete(body); });
        registry.Change<wire::FamilyIfaceBody, PlainResult>(
            wire::kIpaddrFlush, "address flush",
            [this](const wire::FamilyIfaceBody& body) { return Flush(body); });
        registry.Change<wire::IfaceAllIpBody, PlainResult>(
            wire::kIpaddrSet, "address set",
            [this](const wire::IfaceAllIpBody& body) { return Set(body); });
        registry.Query<wire::FamilyIfaceBody, wire::TIpcAllIp>(wire::kIpaddrGet, "address get",
                                                               Get);
    }

    void Save(Json& state) const override { state["addresses"] = ours_.Save(); }
    void Restore(const Json& state) override {
        ours_.Restore(state.value("addresses", Json::array()));
    }
    void TakeBack() override {
        ours_.TakeBack(
            [](const OwnAddress& each) { Iface(NameOf(each.iface)).Delete(each.address); });
    }

 private:
    // An address that a request has set.
    struct OwnAddress {
        char iface[VIMBRA_IFACE_NAME_LEN];
        TVimbraIfaceIp address;
    };

    static OwnAddress OwnOf(const std::string& name, const TVimbraIfaceIp& address) {
        OwnAddress own{};
        name.copy(own.iface, sizeof(own.iface));
        own.address = address;
        return own;
    }

    wire::PlainResult Add(const wire::IfaceIpBody& body) {
        const std::string name = NameOf(body.achIfaceName);
        const TVimbraIfaceIp wanted = body.tIfaceIp;
        Iface(name).Add(wanted);
        ours_.Note(OwnOf(name, wanted));
        return {0};
    }

    wire::PlainResult Delete(const wire::IfaceIpBody& body) {
        const std::string name = NameOf(body.achIfaceName);
        const TVimbraIfaceIp gone = body.tIfaceIp;
        Iface(name).Delete(gone);
        ours_.ForgetIf([&](const OwnAddress& each) {
            return NameOf(each.iface) == name && Same(each.address.tIpAddr, gone.tIpAddr) &&
                   each.address.dwPrefix == gone.dwPrefix;
        });
        return {0};
    }

    wire::PlainResult Flush(const wire::FamilyIfaceBody& body) {
        const std::string name = NameOf(body.achIfaceName);
        Iface iface(name);
        for (const IfaceAddr& each : iface.Configured(body.wSinFamily)) {
            iface.Delete(each.get());
        }
        ForgetAll(name, body.wSinFamily);
        return {0};
    }

    // What was there already and stays is whose it was.
    wire::PlainResult Set(const wire::IfaceAllIpBody& body) {
        // Of a packed record: what is referred to has to lie where its type wants it.
        const TVimbraIfaceAllIp list = body.tIfaceAllIp;
        const std::vector<TVimbraIfaceIp> wanted = WantedOf(list, body.wSinFamily);
        const std::string name = NameOf(body.achIfaceName);
        Iface iface(name);
        Replacement replacement(iface, body.wSinFamily);
        replacement.Run(wanted);
        ForgetAll(name, body.wSinFamily, wanted);
        for (const TVimbraIfaceIp& each : replacement.Added()) {
            ours_.Note(OwnOf(name, each));
        }
        return {0};
    }

    void ForgetAll(const std::string& name, u16 family,
                   const std::vector<TVimbraIfaceIp>& except = {}) {
        ours_.ForgetIf([&](const OwnAddress& each) {
            return NameOf(each.iface) == name && Covers(family, each.address.tIpAddr.wSinFamily) &&
                   std::ranges::none_of(except, [&each](const TVimbraIfaceIp& stays) {
                       return Fulfils(each.address, stays);
                   });
        });
    }

    Ledger<OwnAddress> ours_;
};

}  // namespace

std::unique_ptr<Service> MakeAddressService(const Context&) {
    return std::make_unique<AddressService>();
}

}  // namespace vimbrad
