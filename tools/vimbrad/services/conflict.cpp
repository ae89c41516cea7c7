// Watches the links for hosts that use an IP address or a MAC address of ours.
#include <linux/if_arp.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <tuple>

#include "api/api_network_common/ip_conflict_wire.hpp"
#include "kernel_events.hpp"
#include "log.hpp"
#include "neighbours.hpp"
#include "netlink.hpp"
#include "notifier.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

enum ConflictType : u32 { kIpConflict = 1, kMacConflict = 2 };

// A host with our address that says nothing by itself answers a probe. Three go out in a row, since
// one may be lost: after the start and whenever our addresses change.
constexpr int kProbesInARow = 3;
// Changes come in bursts.
constexpr u64 kSettleMs = 100;
constexpr u64 kRowMs = 1'000;
constexpr u64 kProbeMs = 15'000;
// A host in conflict goes on saying so: each is told of once in this time.
constexpr u64 kSilenceMs = 10'000;
constexpr size_t kConflictsMax = 256;

// An interface of ours, with its addresses of one family.
struct OwnIface {
    std::string name;
    Mac mac{};
    bool up = false;
    std::vector<TVimbraAddr> addresses;

    bool Has(const TVimbraAddr& address) const {
        return std::ranges::any_of(addresses,
                                   [&](const auto& each) { return Same(each, address); });
    }
};

std::map<int, OwnIface> ReadOwn(u16 family) {
    Netlink kernel;
    const NlCache links = kernel.Dump([](nl_sock* socket, nl_cache** cache) {
        return rtnl_link_alloc_cache(socket, AF_UNSPEC, cache);
    });
    std::map<int, OwnIface> own;
    ForEach<rtnl_link>(links, [&](rtnl_link* link) {
        OwnIface iface;
        const nl_addr* mac = rtnl_link_get_addr(link);
        if (rtnl_link_get_arptype(link) != ARPHRD_ETHER || mac == nullptr ||
            nl_addr_get_len(mac) != iface.mac.size()) {
            return;
        }
        std::memcpy(iface.mac.data(), nl_addr_get_binary_addr(mac), iface.mac.size());
        iface.name = rtnl_link_get_name(link);
        iface.up = (rtnl_link_get_flags(link) & IFF_UP) != 0;
        own.emplace(rtnl_link_get_ifindex(link), std::move(iface));
    });
    ForEach<rtnl_addr>(kernel.Dump(rtnl_addr_alloc_cache), [&](rtnl_addr* address) {
        const auto iface = own.find(rtnl_addr_get_ifindex(address));
        if (rtnl_addr_get_family(address) == family && iface != own.end()) {
            iface->second.addresses.push_back(MakeAddr(rtnl_addr_get_local(address)));
        }
    });
    return own;
}

// The watch of one family.
class Watch {
 public:
    Watch(uv_loop_t* loop, u16 family, Notifier& notifier)
        : loop_(loop),
          family_(family),
          notifier_(notifier),
          events_(loop,
                  {RTNLGRP_LINK,
                   family == VIMBRA_FAMILY_IPV4 ? RTNLGRP_IPV4_IFADDR : RTNLGRP_IPV6_IFADDR},
                  [this](nlmsghdr*) { Changed(); }),
          neighbours_(loop, family, [this](const Statement& statement) { Consider(statement); }),
          timer_(MakeTimer(loop, this)) {
        Changed();
    }

 private:
    // What we have is read again when it is needed next.
    void Changed() {
        own_.reset();
        probesLeft_ = kProbesInARow;
        Schedule(kSettleMs);
    }

    const std::map<int, OwnIface>& Own() {
        if (!own_) {
            try {
                own_ = ReadOwn(family_);
            } catch (const Refusal& refusal) {
                LogWarning("conflict watch: no addresses: %s", refusal.what());
                own_.emplace();
            }
        }
        return *own_;
    }

    void Schedule(u64 milliseconds) {
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<Watch*>(timer->data)->Probe(); },
            milliseconds, 0);
    }

    void Probe() {
        for (const auto& [index, iface] : Own()) {
            for (const TVimbraAddr& address : iface.addresses) {
                if (iface.up) {
                    neighbours_.Probe(index, iface.mac, address);
                }
            }
        }
        probesLeft_ = std::max(0, probesLeft_ - 1);
        Schedule(probesLeft_ != 0 ? kRowMs : kProbeMs);
    }

    void Consider(const Statement& statement) {
        const auto found = Own().find(statement.iface);
        if (found == Own().end()) {
            return;
        }
        const OwnIface& iface = found->second;
        if (statement.mac == iface.mac) {
            // Our own words that come back, over a loop of the link or a bridge, speak of our own
            // addresses.
            if (!IsZero(statement.address) && !IsOurs(statement.address)) {
                Report(kMacConflict, iface, statement);
            }
        } else if (statement.uses && iface.Has(statement.address) && !IsOurMac(statement.mac)) {
            Report(kIpConflict, iface, statement);
        }
    }

    // On any interface: they may all be on one link, and one answers for another.
    bool IsOurs(const TVimbraAddr& address) {
        return std::ranges::any_of(Own(),
                                   [&](const auto& each) { return each.second.Has(address); });
    }
    bool IsOurMac(const Mac& mac) {
        return std::ranges::any_of(Own(), [&](const auto& each) { return each.second.mac == mac; });
    }

    void Report(ConflictType type, const OwnIface& iface, const Statement& statement) {
        if (!IsNews(type, statement)) {
            return;
        }
        wire::IpConfilctMsg message{};
        iface.name.copy(message.achIfcName, sizeof(message.achIfcName) - 1);
        message.tIpAddr = statement.address;
        std::copy(statement.mac.begin(), statement.mac.end(), message.mac.abyMacAddr);
        LogWarning("%s conflict on %s", type == kIpConflict ? "address" : "MAC",
                   iface.name.c_str());
        notifier_.Post(type, message);
    }

    bool IsNews(ConflictType type, const Statement& statement) {
        const u64 now = uv_now(loop_);
        std::erase_if(told_, [now](const auto& each) { return now - each.second >= kSilenceMs; });
        const std::span<const u8> bytes = BytesOf(statement.address);
        // Whoever floods the link with names must not fill our memory.
        return told_.size() < kConflictsMax &&
               told_
                   .try_emplace(
                       {type, statement.iface, statement.mac, {bytes.begin(), bytes.end()}}, now)
                   .second;
    }

    using Conflict = std::tuple<ConflictType, int, Mac, std::vector<u8>>;

    uv_loop_t* loop_;
    u16 family_;
    Notifier& notifier_;
    std::optional<std::map<int, OwnIface>> own_;
    std::map<Conflict, u64> told_;
    int probesLeft_ = 0;
    KernelEvents events_;
    Neighbours neighbours_;
    UvHandle<uv_timer_t> timer_;
};

class ConflictService : public Service {
 public:
    explicit ConflictService(const Context& context)
        : loop_(context.loop), families_([this](u16 family) {
              const bool v4 = family == VIMBRA_FAMILY_IPV4;
              return Family{{loop_, v4 ? wire::kConflictSocket : wire::kConflictSocketV6, [] {}},
                            {}};
          }) {}

    void Attach(Registry& registry) override {
        using wire::PlainResult;
        registry.Change<wire::ConflictBody, PlainResult>(
            wire::kConflictStart, "conflict watch start", [this](const wire::ConflictBody& body) {
                Start(body.wSinFamily);
                return PlainResult{0};
            });
        registry.Change<wire::ConflictBody, PlainResult>(
            wire::kConflictStop, "conflict watch stop", [this](const wire::ConflictBody& body) {
                Family& family = families_.Of(body.wSinFamily);
                family.watch.reset();
                family.notifier.Clear();
                return PlainResult{0};
            });
    }

    void Save(Json& state) const override {
        Json& list = state["conflict_watches"] = Json::array();
        families_.ForEach([&list](u16 number, const Family& family) {
            if (family.watch) {
                list.push_back(number);
            }
        });
    }
    void Restore(const Json& state) override {
        for (const Json& each : state.value("conflict_watches", Json::array())) {
            Start(each.get<u16>());
        }
    }
    void Show(Json& answer) const override {
        families_.ForEach([&answer](u16 number, const Family& family) {
            if (family.watch) {
                answer["watches"].push_back({{"kind", "conflict"}, {"family", FamilyKey(number)}});
            }
        });
    }

 private:
    struct Family {
        Notifier notifier;
        std::unique_ptr<Watch> watch;
    };

    void Start(u16 number) {
        Family& family = families_.Of(number);
        family.watch.reset();
        family.watch = std::make_unique<Watch>(loop_, number, family.notifier);
    }

    uv_loop_t* loop_;
    PerFamily<Family> families_;
};

}  // namespace

std::unique_ptr<Service> MakeConflictService(const Context& context) {
    return std::make_unique<ConflictService>(context);
}

}  // namespace vimbrad
