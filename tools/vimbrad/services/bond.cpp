// Bonding: several interfaces joined to bond0 by the kernel's bonding driver. The driver is spoken
// to over netlink; the control path of a request belongs to drivers that are not.
#include <linux/if.h>
#include <linux/if_link.h>
#include <netlink/attr.h>
#include <netlink/route/link.h>
#include <sys/socket.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "address_record.hpp"
#include "api/api_bond/bond_wire.hpp"
#include "log.hpp"
#include "missing.hpp"
#include "netlink.hpp"
#include "record_text.hpp"
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

// What an interface was before it became a member: the driver takes it down, and with that goes
// what it had of IPv6.
struct Member {
    std::string name;
    bool up = false;
    std::vector<TVimbraIfaceIp> addresses = {};
};

class Bond {
 public:
    // What the members were before.
    std::vector<Member> Look(const Wish& wish) {
        std::vector<Member> members;
        for (const std::string& each : wish.members) {
            const Link link = kernel_.FindLink(each);
            Member& member =
                members.emplace_back(Member{each, (rtnl_link_get_flags(link.get()) & IFF_UP) != 0});
            for (const IfaceAddr& address :
                 kernel_.Addresses(rtnl_link_get_ifindex(link.get()), VIMBRA_FAMILY_IPV6)) {
                member.addresses.push_back(RecordOf(address.get()));
            }
        }
        return members;
    }

    // The link-local address that the kernel makes comes with the interface.
    void PutBack(const std::vector<Member>& members) {
        for (const Member& each : members) {
            try {
                const Link link = kernel_.FindLink(each.name);
                SetUp(link, each.up);
                for (const TVimbraIfaceIp& address : each.addresses) {
                    PutBack(link, address);
                }
            } catch (const Refusal& refusal) {
                LogWarning("%s is not as it was before: %s", each.name.c_str(), refusal.what());
            }
        }
    }

    void Start(const Wish& wish) {
        std::vector<Link> members;
        for (const std::string& each : wish.members) {
            members.push_back(kernel_.FindLink(each));
        }
        const std::vector<Member> before = Look(wish);
        Create(wish.mode);
        try {
            const Link bond = kernel_.FindLink(kBond);
            std::ranges::for_each(members, CheckFree);
            for (const Link& each : members) {
                Join(each, bond);
            }
            if (HasActive(wish.mode)) {
                SetActive(bond, kernel_.FindLink(wish.active));
            }
            SetUp(bond, true);
        } catch (...) {
            Stop();
            PutBack(before);
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
    void PutBack(const Link& link, const TVimbraIfaceIp& record) {
        auto address = Allocated<IfaceAddr>(rtnl_addr_alloc());
        const NlAddr local = MakeNlAddr(record.tIpAddr, record.dwPrefix);
        rtnl_addr_set_ifindex(address.get(), rtnl_link_get_ifindex(link.get()));
        if (rtnl_addr_set_local(address.get(), local.get()) < 0) {
            throw std::bad_alloc();
        }
        try {
            kernel_.Change(Build<NlMessage>([&](nl_msg** message) {
                return rtnl_addr_build_add_request(address.get(), NLM_F_EXCL, message);
            }));
        } catch (const Refusal& refusal) {
            if (refusal.Error() != EEXIST) {
                throw;
            }
        }
    }

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
                RefuseFor(kBondingDriver, EOPNOTSUPP);
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

    // The kernel would take it away from the bond or bridge that has it.
    static void CheckFree(const Link& member) {
        if (rtnl_link_get_master(member.get()) != 0) {
            throw Refusal(EBUSY, std::string(rtnl_link_get_name(member.get())) +
                                     " is part of another interface");
        }
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
        registry.ChangeBytes<PlainResult>(wire::kBondStart, "bond start", [this](Bytes body) {
            const Wish wish = WishOf(body);
            Bond bond;
            std::vector<Member> members = bond.Look(wish);
            bond.Start(wish);
            members_ = std::move(members);
            wish_ = wish;
            return PlainResult{0};
        });
        registry.Change<NoBody, PlainResult>(wire::kBondStop, "bond stop", [this](const NoBody&) {
            Stop();
            return PlainResult{0};
        });
    }

    // The bond itself is the kernel's and lives on.
    void Save(Json& state) const override {
        Json& list = state["bond_members"] = Json::array();
        for (const Member& each : members_) {
            Json addresses = Json::array();
            for (const TVimbraIfaceIp& address : each.addresses) {
                addresses.push_back(TextOfRecord(address));
            }
            list.push_back({{"name", each.name}, {"up", each.up}, {"addresses", addresses}});
        }
        state["bond"] = {{"mode", wish_.mode}, {"active", wish_.active}};
    }
    void Restore(const Json& state) override {
        for (const Json& each : state.value("bond_members", Json::array())) {
            Member& member = members_.emplace_back(
                Member{each.at("name").get<std::string>(), each.at("up").get<bool>()});
            for (const Json& address : each.at("addresses")) {
                member.addresses.push_back(
                    RecordFromText<TVimbraIfaceIp>(address.get<std::string>()));
            }
        }
        const Json bond = state.value("bond", Json::object());
        wish_.mode = bond.value("mode", u8{0});
        wish_.active = bond.value("active", "");
    }
    void Show(Json& answer) const override {
        Json& shown = answer["bond"] = Json::object();
        if (members_.empty()) {
            return;
        }
        shown = {{"interface", kBond}, {"mode", wish_.mode}, {"members", Json::array()}};
        for (const Member& each : members_) {
            shown["members"].push_back(each.name);
        }
        if (HasActive(wish_.mode)) {
            shown["active"] = wish_.active;
        }
    }
    // A bond that somebody else has made stays.
    void TakeBack() override {
        if (!members_.empty()) {
            Stop();
        }
    }

 private:
    void Stop() {
        Bond bond;
        bond.Stop();
        bond.PutBack(std::exchange(members_, {}));
    }

    // Of the bond that stands; empty without one.
    std::vector<Member> members_;
    Wish wish_{};
};

}  // namespace

std::unique_ptr<Service> MakeBondService(const Context&) {
    return std::make_unique<BondService>();
}

}  // namespace vimbrad
