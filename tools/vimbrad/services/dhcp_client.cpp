// DHCP clients: one program for each interface and family, udhcpc for IPv4 and dhclient for IPv6.
// What it is told by servers goes to a hook script, which hands it to us over the program's
// standard output; the lease is then set as an application would set it, and the application is
// told.
#include <arpa/inet.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <optional>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "child.hpp"
#include "lease_settings.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "notifier.hpp"
#include "private_dir.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

// One line for each value: a line that we read has a limited length, a list of servers has not. The
// mark tells them from what the program says itself.
constexpr char kHookIpv4[] = R"(#!/bin/sh
set -f
echo "@event $1"
echo "@ip $ip"
echo "@mask $mask"
echo "@lease $lease"
for each in $router; do echo "@router $each"; done
for each in $dns; do echo "@dns $each"; done
echo "@end"
)";

// In udhcpc's words.
constexpr char kHookIpv6[] = R"(#!/bin/sh
set -f
case $reason in
    BOUND6) event=bound ;;
    RENEW6 | REBIND6) event=renew ;;
    EXPIRE6 | RELEASE6 | STOP6) event=deconfig ;;
    *) exit 0 ;;
esac
echo "@event $event"
echo "@ip $new_ip6_address"
echo "@mask $new_ip6_prefixlen"
echo "@lease $new_max_life"
for each in $new_dhcp6_name_servers; do echo "@dns $each"; done
echo "@end"
)";

// For the message to the server that the address is free again.
constexpr u64 kReleaseMs = 2'000;
// Before a program that has ended by itself is started again; its interface may be gone.
constexpr u64 kRestartMs = 5'000;
// Between two looks whether an interface has a link-local address that may be used.
constexpr u64 kLinkLocalMs = 100;
// A program that has no lease after this time, and each time again, is a failure to tell.
constexpr u64 kAnswerMs = 10'000;
// A lease time that means for ever.
constexpr u32 kForEver = 0xffffffff;

u32 NumberOf(std::string_view text) {
    return static_cast<u32>(std::strtoul(std::string(text).c_str(), nullptr, 10));
}

// For a server that tells no netmask.
u32 PrefixOfClass(const TVimbraAddr& address) {
    const u32 word = ntohl(address.tV4Addr.s_addr);
    return IN_CLASSA(word) ? 8 : IN_CLASSB(word) ? 16 : 24;
}

// An address that is still being checked cannot be sent from.
bool HasLinkLocal(const std::string& name) {
    Netlink kernel;
    const Link link = kernel.FindLink(name);
    const auto addresses = kernel.Addresses(rtnl_link_get_ifindex(link.get()), VIMBRA_FAMILY_IPV6);
    return std::ranges::any_of(addresses, [](const IfaceAddr& each) {
        return rtnl_addr_get_scope(each.get()) == RT_SCOPE_LINK &&
               (rtnl_addr_get_flags(each.get()) & IFA_F_TENTATIVE) == 0;
    });
}

// The client of one interface and family, from its start until it has stopped. Its program renews
// its lease, or is started anew for it, at SIGUSR1, which applications send it too.
class Client {
 public:
    using Stopped = std::function<void()>;

    Client(uv_loop_t* loop, Registry& registry, std::string name, u16 family, const char* socket,
           const PrivateDir& files)
        : loop_(loop),
          name_(std::move(name)),
          family_(family),
          files_(files),
          settings_(registry, name_, family),
          notifier_(loop, (std::string(socket) + "_" + name_).c_str(), [] {}),
          timer_(MakeTimer(loop, this)) {}
    virtual ~Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Throws Refusal.
    virtual void Run() = 0;

    // A lease that is held is told again once it is renewed.
    virtual void Renew() { child_->Kill(SIGUSR1); }

    bool HasProgram() const { return child_ != nullptr; }
    bool Stopping() const { return stopped_ != nullptr; }

    // Calls when the program has ended and what it set is gone; that may destroy the client.
    void Stop(Stopped stopped) {
        stopped_ = std::move(stopped);
        if (!child_) {
            Finish();
            return;
        }
        child_->Kill(SIGTERM);
        KillLater();
    }

 protected:
    using Command = std::vector<std::string>;

    // Applications find the program by the name that it is called.
    void RunProgram(const Command& command, const std::string& called = {}) {
        child_ =
            std::make_unique<Child>(loop_, command,
                                    Child::Events{[this](std::string_view line) { TakeLine(line); },
                                                  [this](const ChildEnd& end) { Ended(end); }},
                                    called);
    }

    void After(u64 milliseconds, uv_timer_cb call) {
        uv_timer_start(timer_.get(), call, milliseconds, 0);
    }

    void KillLater() {
        After(kReleaseMs,
              [](uv_timer_t* timer) { static_cast<Client*>(timer->data)->child_->Kill(SIGKILL); });
    }

    void RestartAfter(u64 milliseconds) {
        After(milliseconds,
              [](uv_timer_t* timer) { static_cast<Client*>(timer->data)->Restart(); });
    }

    void Restart() {
        try {
            Run();
        } catch (const std::exception& error) {
            LogInfo("%s: not started: %s", Title(), error.what());
            RestartAfter(kRestartMs);
        }
    }

    // Also told at the start, when there is nothing to lose.
    void Lose() {
        settings_.Remove();
        if (std::exchange(has_lease_, false) && !Stopping()) {
            TellFailure();
        }
    }

    void TellFailure() {
        TVimbraDhcpcAddrInfo failure{};
        name_.copy(failure.achDevName, sizeof(failure.achDevName));
        notifier_.Post(wire::kDhcpcFail, failure);
    }

    // Once a lease has been set.
    virtual void LeaseTaken(u32) {}
    // True when the program's end is a part of its work, and the work goes on.
    virtual bool Continues(const ChildEnd&) { return false; }

    uv_loop_t* Loop() const { return loop_; }
    const std::string& Name() const { return name_; }
    const PrivateDir& Files() const { return files_; }
    const char* Title() const { return title_.c_str(); }
    bool HasLease() const { return has_lease_; }

 private:
    void TakeLine(std::string_view line) {
        if (!line.starts_with('@')) {
            LogDebug("%.*s", static_cast<int>(line.size()), line.data());
            return;
        }
        const size_t space = std::min(line.find(' '), line.size());
        const std::string_view key = line.substr(1, space - 1);
        const std::string_view value = line.substr(std::min(space + 1, line.size()));
        if (key == "event") {
            event_ = value;
            told_ = {};
            told_.tGateWay.wSinFamily = family_;
            name_.copy(told_.achDevName, sizeof(told_.achDevName));
        } else if (key == "ip") {
            told_.tIpAddrs = AddressOf(value);
        } else if (key == "mask") {
            told_.dwIpPrefix = value.empty() ? PrefixOfClass(told_.tIpAddrs) : NumberOf(value);
        } else if (key == "lease") {
            told_.dwLeaseTime = NumberOf(value);
        } else if (key == "router" && IsZero(told_.tGateWay)) {
            told_.tGateWay = AddressOf(value);
        } else if (key == "dns" && told_.dwDnsNum < VIMBRA_DHCPC_DNS_MAX) {
            if (const TVimbraAddr server = AddressOf(value); !IsZero(server)) {
                told_.atDnsServer[told_.dwDnsNum++] = server;
            }
        } else if (key == "end") {
            TakeEvent();
        }
    }

    TVimbraAddr AddressOf(std::string_view text) const {
        TVimbraAddr address{};
        address.wSinFamily = family_;
        inet_pton(family_, std::string(text).c_str(), &address.tV6Addr);
        return address;
    }

    void TakeEvent() {
        LogInfo("%s: %s", Title(), event_.c_str());
        if (event_ == "bound" || event_ == "renew") {
            has_lease_ = settings_.Apply(told_);
            if (has_lease_) {
                notifier_.Post(wire::kDhcpcLease, told_);
                LeaseTaken(told_.dwLeaseTime);
            } else {
                TellFailure();
            }
        } else if (event_ == "deconfig") {
            Lose();
        } else if (event_ == "leasefail" || event_ == "nak") {
            TellFailure();
        }
    }

    void Ended(const ChildEnd& end) {
        child_.reset();
        if (Continues(end)) {
            return;
        }
        if (Stopping()) {
            Finish();
            return;
        }
        LogWarning("%s: ended with %s", Title(), end.Text().c_str());
        Lose();
        RestartAfter(kRestartMs);
    }

    void Finish() {
        settings_.Remove();
        LogInfo("%s: stopped", Title());
        // The call may end this object, and the function with it.
        const Stopped stopped = std::move(stopped_);
        stopped();
    }

    uv_loop_t* loop_;
    std::string name_;
    u16 family_;
    std::string title_ =
        (family_ == VIMBRA_FAMILY_IPV6 ? "DHCPv6 client on " : "DHCP client on ") + name_;
    const PrivateDir& files_;
    LeaseSettings settings_;
    Notifier notifier_;
    UvHandle<uv_timer_t> timer_;
    std::unique_ptr<Child> child_;
    std::string event_;
    TVimbraDhcpcAddrInfo told_{};
    bool has_lease_ = false;
    Stopped stopped_;
};

class Ipv4Client : public Client {
 public:
    Ipv4Client(uv_loop_t* loop, Registry& registry, const std::string& name,
               const PrivateDir& files)
        : Client(loop, registry, name, VIMBRA_FAMILY_IPV4, wire::kDhcpcSocketIpv4, files) {}

    void Run() override {
        Netlink().BringUp(Name());
        RunProgram({"busybox", "udhcpc", "-f", "-R", "-i", Name(), "-s",
                    Files().Write("hook", kHookIpv4, 0700)});
        LogInfo("%s: started", Title());
    }
};

// dhclient knows no signal for a renewal: it ends by it, and is started anew without its lease,
// which makes it ask for one. The address stays meanwhile.
class Ipv6Client : public Client {
 public:
    // `signalled` is told of a renewal that was not asked for here.
    Ipv6Client(uv_loop_t* loop, Registry& registry, const std::string& name,
               const PrivateDir& files, std::function<void()> signalled)
        : Client(loop, registry, name, VIMBRA_FAMILY_IPV6, wire::kDhcpcSocketIpv6, files),
          signalled_(std::move(signalled)),
          lease_timer_(MakeTimer(loop, this)) {
        Expect(kAnswerMs);
    }

    void Run() override {
        Netlink().BringUp(Name());
        if (!HasLinkLocal(Name())) {
            RestartAfter(kLinkLocalMs);
            return;
        }
        Files().Write(Leases(), "", 0600);
        asked_ = false;
        RunProgram(CommandWith({"-d"}), "udhcpc6");
        LogInfo("%s: started", Title());
    }

    void Renew() override {
        asked_ = true;
        Client::Renew();
    }

 private:
    std::string Leases() const { return "leases." + Name(); }

    // Everything that it reads and writes is ours. An identifier that is made of the hardware
    // address stays the same without a file that keeps it.
    Command CommandWith(const Command& options) const {
        Command command = {"dhclient", "-6"};
        command.insert(command.end(), options.begin(), options.end());
        for (const std::string& each :
             {std::string("-D"), std::string("LL"), std::string("--no-pid"), std::string("-lf"),
              Files().PathOf(Leases()), std::string("-cf"), std::string("/dev/null"),
              std::string("-sf"), Files().Write("hook6", kHookIpv6, 0700), Name()}) {
            command.push_back(each);
        }
        return command;
    }

    // A lease that was not renewed ends; without one the failure is told again and again.
    void Expect(u64 milliseconds) {
        uv_timer_start(
            lease_timer_.get(),
            [](uv_timer_t* timer) {
                auto* self = static_cast<Ipv6Client*>(timer->data);
                self->Expect(kAnswerMs);
                if (self->HasLease()) {
                    self->Lose();
                } else if (!self->Stopping()) {
                    self->TellFailure();
                }
            },
            milliseconds, 0);
    }

    void LeaseTaken(u32 seconds) override {
        if (seconds == kForEver) {
            uv_timer_stop(lease_timer_.get());
        } else {
            Expect(u64{seconds} * 1000);
        }
    }

    bool Continues(const ChildEnd& end) override {
        if (Stopping()) {
            return HasLease() && !std::exchange(releasing_, true) && Release();
        }
        if (end.signal != SIGUSR1) {
            return false;
        }
        const bool asked = asked_;
        Restart();
        if (!asked) {
            signalled_();
        }
        return true;
    }

    bool Release() {
        try {
            RunProgram(CommandWith({"-d", "-r"}));
        } catch (const std::exception& error) {
            LogInfo("%s: the lease is not given back: %s", Title(), error.what());
            return false;
        }
        KillLater();
        return true;
    }

    std::function<void()> signalled_;
    UvHandle<uv_timer_t> lease_timer_;
    bool asked_ = false;
    bool releasing_ = false;
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
                const auto found = clients_.find(KeyOf(body));
                if (found == clients_.end()) {
                    throw Refusal(ESRCH, "no client on this interface");
                }
                if (!found->second->HasProgram()) {
                    throw Refusal(ESRCH, "the client is about to be started again");
                }
                found->second->Renew();
                return PlainResult{0};
            });
    }

 private:
    using Key = std::pair<std::string, u16>;

    static Key KeyOf(const wire::FamilyIfaceBody& body) {
        const u16 family = body.wSinFamily;
        if (family != VIMBRA_FAMILY_IPV4 && family != VIMBRA_FAMILY_IPV6) {
            throw Refusal(EINVAL, "no such address family");
        }
        return {NameOf(body.achIfaceName), family};
    }

    // An application that was restarted asks for what runs already: it is told the lease once that
    // is renewed.
    void Start(Registry& registry, const wire::FamilyIfaceBody& body) {
        const Key key = KeyOf(body);
        if (const auto found = clients_.find(key); found != clients_.end()) {
            if (found->second->Stopping()) {
                throw Refusal(EBUSY, "the client is being stopped");
            }
            RenewIfItRuns(key);
            return;
        }
        if (!files_) {
            files_.emplace();
        }
        auto client = MakeClient(registry, key);
        client->Run();
        clients_.emplace(key, std::move(client));
    }

    std::unique_ptr<Client> MakeClient(Registry& registry, const Key& key) {
        const auto& [name, family] = key;
        if (family == VIMBRA_FAMILY_IPV4) {
            return std::make_unique<Ipv4Client>(loop_, registry, name, *files_);
        }
        // Who looks for "udhcpc" finds "udhcpc6" as well: such a signal may be meant for the other.
        return std::make_unique<Ipv6Client>(loop_, registry, name, *files_, [this, name = name] {
            RenewIfItRuns({name, VIMBRA_FAMILY_IPV4});
        });
    }

    void RenewIfItRuns(const Key& key) {
        const auto found = clients_.find(key);
        if (found != clients_.end() && found->second->HasProgram() && !found->second->Stopping()) {
            found->second->Renew();
        }
    }

    void Stop(const wire::FamilyIfaceBody& body, const Answer<wire::PlainResult>& answer) {
        const Key key = KeyOf(body);
        const auto found = clients_.find(key);
        if (found == clients_.end()) {
            answer({0});
            return;
        }
        if (found->second->Stopping()) {
            throw Refusal(EBUSY, "the client is being stopped");
        }
        found->second->Stop([this, key, answer] {
            const auto ended = clients_.extract(key);
            answer({0});
        });
    }

    uv_loop_t* loop_;
    std::optional<PrivateDir> files_;
    std::map<Key, std::unique_ptr<Client>> clients_;
};

}  // namespace

std::unique_ptr<Service> MakeDhcpClientService(const Context& context) {
    return std::make_unique<DhcpClientService>(context);
}

}  // namespace vimbrad
