// DHCP clients: one udhcpc for each interface. What it is told by servers goes to a hook script,
// which hands it to us over udhcpc's standard output; address and default route are then set as an
// application would set them, and the application is told.
#include <arpa/inet.h>
#include <net/if.h>
#include <netlink/route/link.h>

#include <csignal>
#include <map>
#include <optional>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "api/api_ip/api_ipaddr/ipaddr_wire.hpp"
#include "api/api_route/api_route/route_wire.hpp"
#include "child.hpp"
#include "kernel_route.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "notifier.hpp"
#include "private_dir.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// One line for each value: a line that we read has a limited length, a list of servers has not. The
// mark tells them from what udhcpc says itself.
constexpr char kHook[] = R"(#!/bin/sh
set -f
echo "@event $1"
echo "@ip $ip"
echo "@mask $mask"
echo "@lease $lease"
for each in $router; do echo "@router $each"; done
for each in $dns; do echo "@dns $each"; done
echo "@end"
)";

// For the message to the server that the address is free again.
constexpr std::uint64_t kReleaseMs = 2'000;
// Before a udhcpc that has ended by itself is started again; its interface may be gone.
constexpr std::uint64_t kRestartMs = 5'000;

u32 NumberOf(std::string_view text) {
    return static_cast<u32>(std::strtoul(std::string(text).c_str(), nullptr, 10));
}

TVimbraAddr Ipv4Of(std::string_view text) {
    TVimbraAddr address{};
    address.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, std::string(text).c_str(), &address.tV4Addr);
    return address;
}

// For a server that tells no netmask.
u32 PrefixOfClass(const TVimbraAddr& address) {
    const u32 word = ntohl(address.tV4Addr.s_addr);
    return IN_CLASSA(word) ? 8 : IN_CLASSB(word) ? 16 : 24;
}

void BringUp(const std::string& name) {
    Netlink kernel;
    const Link link = kernel.FindLink(name);
    const auto changes = Allocated<Link>(rtnl_link_alloc());
    rtnl_link_set_flags(changes.get(), IFF_UP);
    kernel.Change(Build<NlMessage>([&](nl_msg** message) {
        return rtnl_link_build_change_request(link.get(), changes.get(), 0, message);
    }));
}

// What a client has given an interface. The requests are those of applications: a gateway takes its
// place by the network priority, whoever asks for it.
class Settings {
 public:
    Settings(Registry& registry, std::string name) : registry_(registry), name_(std::move(name)) {}
    ~Settings() { Remove(); }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    // What a lease leaves unchanged is not touched: the application may have changed it since. The
    // new address is there before the old one goes.
    bool Apply(const TVimbraDhcpcAddrInfo& lease) {
        const TVimbraIfaceIp wanted{VIMBRA_SCOPE_TYPE_DEF, lease.tIpAddrs, lease.dwIpPrefix};
        std::optional<TVimbraIfaceIp> old;
        if (!address_ || !Same(address_->tIpAddr, wanted.tIpAddr) ||
            address_->dwPrefix != wanted.dwPrefix) {
            // An address that is there already belongs to whoever set it.
            const s32 result = ChangeAddress(wire::kIpaddrAdd, wanted);
            if (result != 0 && result != EEXIST)
                return false;
            old = address_;
            address_.reset();
            if (result == 0)
                address_ = wanted;
        }
        if (!gateway_ || !Same(*gateway_, lease.tGateWay)) {
            RemoveGateway();
            SetGateway(lease.tGateWay);
        }
        if (old)
            ChangeAddress(wire::kIpaddrDel, *old);
        return true;
    }

    void Remove() {
        RemoveGateway();
        if (const auto address = std::exchange(address_, std::nullopt))
            ChangeAddress(wire::kIpaddrDel, *address);
    }

 private:
    template <class Body>
    s32 Request(u32 type, const Body& body) {
        wire::PlainResult result{EIO};
        registry_.Dispatch(type, std::as_bytes(std::span(&body, 1)), [&result](Bytes reply) {
            std::memcpy(&result, reply.data(), std::min(reply.size(), sizeof(result)));
        });
        return result.nErrid;
    }

    s32 ChangeAddress(u32 type, const TVimbraIfaceIp& address) {
        wire::IfaceIpBody body{};
        name_.copy(body.achIfaceName, sizeof(body.achIfaceName));
        body.tIfaceIp = address;
        return Request(type, body);
    }

    void SetGateway(const TVimbraAddr& gateway) {
        if (IsZero(gateway))
            return;
        wire::GatewayBody body{};
        name_.copy(body.achIfaceName, sizeof(body.achIfaceName));
        body.tGateWay = gateway;
        if (Request(wire::kGatewaySet, body) == 0)
            gateway_ = gateway;
    }

    // Not one that was set since.
    void RemoveGateway() {
        const auto gateway = std::exchange(gateway_, std::nullopt);
        if (!gateway)
            return;
        try {
            const int iface = IfaceNumber(name_);
            for (const Route& each : ListRoutes(VIMBRA_FAMILY_IPV4, RT_TABLE_MAIN)) {
                const RouteSpec held = SpecOf(each.get());
                if (held.prefix == 0 && held.iface == iface && Same(held.gateway, *gateway))
                    DeleteRoute(each.get());
            }
        } catch (const Refusal& refusal) {
            LogInfo("DHCP client on %s: the gateway stays: %s", name_.c_str(), refusal.what());
        }
    }

    Registry& registry_;
    std::string name_;
    std::optional<TVimbraIfaceIp> address_;
    std::optional<TVimbraAddr> gateway_;
};

// The client of one interface, from its start until it has stopped.
class Client {
 public:
    using Stopped = std::function<void()>;

    Client(uv_loop_t* loop, Registry& registry, std::string name, std::string hook)
        : loop_(loop),
          name_(std::move(name)),
          hook_(std::move(hook)),
          settings_(registry, name_),
          notifier_(loop, (std::string(wire::kDhcpcSocketIpv4) + "_" + name_).c_str(), [] {}),
          timer_(MakeTimer(loop, this)) {
        Run();
    }

    // A lease that is held is told again once it is renewed.
    void Renew() {
        if (!child_)
            throw Refusal(ESRCH, "the client is about to be started again");
        child_->Kill(SIGUSR1);
    }

    bool Stopping() const { return stopped_ != nullptr; }

    // Calls when the program has ended and what it set is gone; that may destroy the client.
    void Stop(Stopped stopped) {
        stopped_ = std::move(stopped);
        if (!child_) {
            Finish();
            return;
        }
        child_->Kill(SIGTERM);
        After(kReleaseMs,
              [](uv_timer_t* timer) { static_cast<Client*>(timer->data)->child_->Kill(SIGKILL); });
    }

 private:
    void Run() {
        BringUp(name_);
        // Applications find the process by "udhcpc" and the interface's name in its command line.
        child_ = std::make_unique<Child>(
            loop_,
            std::vector<std::string>{"busybox", "udhcpc", "-f", "-R", "-i", name_, "-s", hook_},
            Child::Events{[this](std::string_view line) { TakeLine(line); },
                          [this](const ChildEnd& end) { Ended(end); }});
        LogInfo("DHCP client on %s: started", name_.c_str());
    }

    void After(std::uint64_t milliseconds, uv_timer_cb call) {
        uv_timer_start(timer_.get(), call, milliseconds, 0);
    }

    void TakeLine(std::string_view line) {
        if (!line.starts_with('@')) {
            LogDebug("%.*s", static_cast<int>(line.size()), line.data());
            return;
        }
        const std::size_t space = std::min(line.find(' '), line.size());
        const std::string_view key = line.substr(1, space - 1);
        const std::string_view value = line.substr(std::min(space + 1, line.size()));
        if (key == "event") {
            event_ = value;
            told_ = {};
            told_.tGateWay.wSinFamily = VIMBRA_FAMILY_IPV4;
            name_.copy(told_.achDevName, sizeof(told_.achDevName));
        } else if (key == "ip") {
            told_.tIpAddrs = Ipv4Of(value);
        } else if (key == "mask") {
            told_.dwIpPrefix = value.empty() ? PrefixOfClass(told_.tIpAddrs) : NumberOf(value);
        } else if (key == "lease") {
            told_.dwLeaseTime = NumberOf(value);
        } else if (key == "router" && IsZero(told_.tGateWay)) {
            told_.tGateWay = Ipv4Of(value);
        } else if (key == "dns" && told_.dwDnsNum < VIMBRA_DHCPC_DNS_MAX) {
            told_.atDnsServer[told_.dwDnsNum++] = Ipv4Of(value);
        } else if (key == "end") {
            TakeEvent();
        }
    }

    void TakeEvent() {
        LogInfo("DHCP client on %s: %s", name_.c_str(), event_.c_str());
        if (event_ == "bound" || event_ == "renew") {
            has_lease_ = settings_.Apply(told_);
            if (has_lease_)
                notifier_.Post(wire::kDhcpcLease, told_);
            else
                TellFailure();
        } else if (event_ == "deconfig") {
            Lose();
        } else if (event_ == "leasefail" || event_ == "nak") {
            TellFailure();
        }
    }

    // Also told at the start, when there is nothing to lose.
    void Lose() {
        settings_.Remove();
        if (std::exchange(has_lease_, false) && !Stopping())
            TellFailure();
    }

    void TellFailure() {
        TVimbraDhcpcAddrInfo failure{};
        name_.copy(failure.achDevName, sizeof(failure.achDevName));
        notifier_.Post(wire::kDhcpcFail, failure);
    }

    void Ended(const ChildEnd& end) {
        child_.reset();
        if (Stopping()) {
            Finish();
            return;
        }
        LogWarning("DHCP client on %s: ended with %s", name_.c_str(), end.Text().c_str());
        Lose();
        RestartLater();
    }

    void RestartLater() {
        After(kRestartMs, [](uv_timer_t* timer) { static_cast<Client*>(timer->data)->Restart(); });
    }

    void Restart() {
        try {
            Run();
        } catch (const std::exception& error) {
            LogInfo("DHCP client on %s: not started: %s", name_.c_str(), error.what());
            RestartLater();
        }
    }

    void Finish() {
        settings_.Remove();
        LogInfo("DHCP client on %s: stopped", name_.c_str());
        // The call may end this object, and the function with it.
        const Stopped stopped = std::move(stopped_);
        stopped();
    }

    uv_loop_t* loop_;
    std::string name_;
    std::string hook_;
    Settings settings_;
    Notifier notifier_;
    UvHandle<uv_timer_t> timer_;
    std::unique_ptr<Child> child_;
    std::string event_;
    TVimbraDhcpcAddrInfo told_{};
    bool has_lease_ = false;
    Stopped stopped_;
};

class DhcpClientService : public Service {
 public:
    explicit DhcpClientService(const Context& context) : loop_(context.loop) {}

    void Attach(Registry& registry) override {
        using wire::FamilyIfaceBody, wire::PlainResult;
        registry.On<FamilyIfaceBody, PlainResult>(wire::kDhcpcStart, "DHCP client start",
                                                  [this, &registry](const FamilyIfaceBody& body) {
                                                      Start(registry, body);
                                                      return PlainResult{0};
                                                  });
        registry.OnLater<FamilyIfaceBody, PlainResult>(
            wire::kDhcpcStop, "DHCP client stop",
            [this](const FamilyIfaceBody& body, const Answer<PlainResult>& answer) {
                Stop(body, answer);
            });
        registry.On<FamilyIfaceBody, PlainResult>(
            wire::kDhcpcRenew, "DHCP client renew", [this](const FamilyIfaceBody& body) {
                CheckFamily(body.wSinFamily);
                const auto found = clients_.find(NameOf(body.achIfaceName));
                if (found == clients_.end())
                    throw Refusal(ESRCH, "no client on this interface");
                found->second->Renew();
                return PlainResult{0};
            });
    }

 private:
    static void CheckFamily(u16 family) {
        if (family == VIMBRA_FAMILY_IPV6)
            throw Refusal(ENOTSUP, "no DHCP client for IPv6");
        if (family != VIMBRA_FAMILY_IPV4)
            throw Refusal(EINVAL, "no such address family");
    }

    // An application that was restarted asks for what runs already: it is told the lease once that
    // is renewed.
    void Start(Registry& registry, const wire::FamilyIfaceBody& body) {
        CheckFamily(body.wSinFamily);
        const std::string name = NameOf(body.achIfaceName);
        if (const auto found = clients_.find(name); found != clients_.end()) {
            if (found->second->Stopping())
                throw Refusal(EBUSY, "the client is being stopped");
            found->second->Renew();
            return;
        }
        if (!hook_)
            hook_.emplace();
        clients_.emplace(name, std::make_unique<Client>(loop_, registry, name,
                                                        hook_->Write("hook", kHook, 0700)));
    }

    void Stop(const wire::FamilyIfaceBody& body, const Answer<wire::PlainResult>& answer) {
        CheckFamily(body.wSinFamily);
        const std::string name = NameOf(body.achIfaceName);
        const auto found = clients_.find(name);
        if (found == clients_.end()) {
            answer({0});
            return;
        }
        if (found->second->Stopping())
            throw Refusal(EBUSY, "the client is being stopped");
        found->second->Stop([this, name, answer] {
            const auto ended = clients_.extract(name);
            answer({0});
        });
    }

    uv_loop_t* loop_;
    std::optional<PrivateDir> hook_;
    std::map<std::string, std::unique_ptr<Client>> clients_;
};

}  // namespace

std::unique_ptr<Service> MakeDhcpClientService(const Context& context) {
    return std::make_unique<DhcpClientService>(context);
}

}  // namespace vimbrad
