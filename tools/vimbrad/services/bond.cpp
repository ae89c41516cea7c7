// Bonding: several interfaces joined to bond0 by the kernel's bonding driver. The driver is spoken
// to over netlink; the control path of a request belongs to drivers that are not.
#include <linux/if.h>
#include <linux/if_link.h>
#include <netlink/attr.h>
#include <netlink/route/link.h>
#include <sys/socket.h>

#include <algorithm>

#include "api/api_bond/bond_wire.hpp"
#include "netlink.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

using wire::PlainResult;

constexpr char kBond[] = "bond0";
constexpr u32 kModeMax = 6;
constexpr u32 kMembersMax = 4;
// How often the driver looks whether a member has its link, in milliseconds.
constexpr u32 kMonitorMs = 100;

// Words and texts, one after the other.
class Reader {
 public:
    explicit Reader(Bytes bytes) : bytes_(bytes) {}

    u32 Word() {
        u32 word;
        const Bytes taken = Take(sizeof(word));
        std::memcpy(&word, taken.data(), sizeof(word));
        return word;
    }

    // With its length before it and a terminator behind it, and no other inside.
    std::string Text() {
        const Bytes taken = Take(Word());
        const auto* text = reinterpret_cast<const char*>(taken.data());
        if (taken.empty() || strnlen(text, taken.size()) != taken.size() - 1) {
            throw Refusal(EINVAL, "a text without its end");
        }
        return {text, taken.size() - 1};
    }

    bool AtEnd() const { return bytes_.empty(); }

 private:
    Bytes Take(size_t count) {
        if (count > bytes_.size()) {
            throw Refusal(EINVAL, "the request is cut short");
        }
        const Bytes taken = bytes_.first(count);
        bytes_ = bytes_.subspan(count);
        return taken;
    }

    Bytes bytes_;
};

struct Wish {
    u8 mode;
    std::vector<std::string> members;
    std::string active;
};

Wish WishOf(Bytes body) {
    Reader reader(body);
    Wish wish{};
    if (reader.Word() != body.size()) {
        throw Refusal(EINVAL, "the request has another length than it says");
    }
    const u32 mode = reader.Word();
    if (mode > kModeMax) {
        throw Refusal(EINVAL, "no such mode");
    }
    wish.mode = static_cast<u8>(mode);
    reader.Text();
    const u32 count = reader.Word();
    if (count == 0 || count > kMembersMax) {
        throw Refusal(EINVAL, "no such number of members");
    }
    for (u32 i = 0; i < count; ++i) {
        wish.members.push_back(reader.Text());
        if (std::count(wish.members.begin(), wish.members.end(), wish.members.back()) != 1) {
            throw Refusal(EINVAL, "a member named twice");
        }
    }
    wish.active = reader.Text();
    if (std::ranges::find(wish.members, wish.active) == wish.members.end()) {
        throw Refusal(EINVAL, "the active interface is not one of the members");
    }
    if (!reader.AtEnd()) {
        throw Refusal(EINVAL, "bytes behind the request");
    }
    return wish;
}

// The modes in which one member at a time is the active one.
bool HasActive(u8 mode) {
    constexpr u8 kActiveBackup = 1, kTransmitBalance = 5, kBalance = 6;
    return mode == kActiveBackup || mode == kTransmitBalance || mode == kBalance;
}

class Bond {
 public:
    void Start(const Wish& wish) {
        std::vector<Link> members;
        for (const std::string& each : wish.members) {
            members.push_back(kernel_.FindLink(each));
        }
        Create(wish.mode);
        try {
            const Link bond = kernel_.FindLink(kBond);
            for (const Link& each : members) {
                Join(each, bond);
            }
            if (HasActive(wish.mode)) {
                SetActive(bond, kernel_.FindLink(wish.active));
            }
            SetUp(bond, true);
        } catch (...) {
            Stop();
            throw;
        }
    }

    // The kernel lets go of the members by itself.
    void Stop() {
        Link bond;
        try {
            bond = kernel_.FindLink(kBond);
        } catch (const Refusal&) {
            return;
        }
        kernel_.Change(Build<NlMessage>(
            [&](nl_msg** message) { return rtnl_link_build_delete_request(bond.get(), message); }));
    }

 private:
    // A message about the bond's own settings; the netlink library's builders do not know them all.
    template <class Settings>
    static NlMessage Make(int flags, int iface, Settings settings) {
        auto message = Allocated<NlMessage>(nlmsg_alloc_simple(RTM_NEWLINK, flags));
        ifinfomsg link{};
        link.ifi_family = AF_UNSPEC;
        link.ifi_index = iface;
        bool fits = nlmsg_append(message.get(), &link, sizeof(link), NLMSG_ALIGNTO) == 0 &&
                    (iface != 0 || nla_put_string(message.get(), IFLA_IFNAME, kBond) == 0);
        nlattr* info = nla_nest_start(message.get(), IFLA_LINKINFO);
        fits =
            fits && info != nullptr && nla_put_string(message.get(), IFLA_INFO_KIND, "bond") == 0;
        nlattr* data = nla_nest_start(message.get(), IFLA_INFO_DATA);
        if (!fits || data == nullptr || !settings(message.get())) {
            throw std::bad_alloc();
        }
        nla_nest_end(message.get(), data);
        nla_nest_end(message.get(), info);
        return message;
    }

    void Create(u8 mode) {
        try {
            kernel_.Change(Make(NLM_F_CREATE | NLM_F_EXCL, 0, [mode](nl_msg* message) {
                return nla_put_u8(message, IFLA_BOND_MODE, mode) == 0 &&
                       nla_put_u32(message, IFLA_BOND_MIIMON, kMonitorMs) == 0;
            }));
        } catch (const Refusal& refusal) {
            if (refusal.Error() == EOPNOTSUPP) {
                throw Refusal(EOPNOTSUPP, "the kernel has no bonding driver");
            }
            throw;
        }
    }

    void Alter(const Link& link, const Link& changes) {
        kernel_.Change(Build<NlMessage>([&](nl_msg** message) {
            return rtnl_link_build_change_request(link.get(), changes.get(), 0, message);
        }));
    }

    void SetUp(const Link& link, bool up) {
        const auto changes = Allocated<Link>(rtnl_link_alloc());
        if (up) {
            rtnl_link_set_flags(changes.get(), IFF_UP);
        } else {
            rtnl_link_unset_flags(changes.get(), IFF_UP);
        }
        Alter(link, changes);
    }

    // The driver takes no interface that is up.
    void Join(const Link& member, const Link& bond) {
        SetUp(member, false);
        const auto changes = Allocated<Link>(rtnl_link_alloc());
        rtnl_link_set_master(changes.get(), rtnl_link_get_ifindex(bond.get()));
        Alter(member, changes);
    }

    void SetActive(const Link& bond, const Link& member) {
        const auto index = static_cast<u32>(rtnl_link_get_ifindex(member.get()));
        kernel_.Change(Make(0, rtnl_link_get_ifindex(bond.get()), [index](nl_msg* message) {
            return nla_put_u32(message, IFLA_BOND_ACTIVE_SLAVE, index) == 0;
        }));
    }

    Netlink kernel_;
};

class BondService : public Service {
 public:
    void Attach(Registry& registry) override {
        registry.ChangeBytes<PlainResult>(wire::kBondStart, "bond start", [](Bytes body) {
            Bond().Start(WishOf(body));
            return PlainResult{0};
        });
        registry.Change<NoBody, PlainResult>(wire::kBondStop, "bond stop", [](const NoBody&) {
            Bond().Stop();
            return PlainResult{0};
        });
    }
};

}  // namespace

std::unique_ptr<Service> MakeBondService(const Context&) {
    return std::make_unique<BondService>();
}

}  // namespace vimbrad
