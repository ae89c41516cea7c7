// The DHCP client program for IPv6: dhclient.
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <csignal>

#include "hooks.hpp"
#include "lease_client.hpp"
#include "log.hpp"
#include "missing.hpp"
#include "netlink.hpp"

namespace vimbrad {
namespace {

// Between two looks whether an interface has a link-local address that may be used.
constexpr u64 kLinkLocalMs = 100;
// A program that has no lease after this time, and each time again, is a failure to tell.
constexpr u64 kAnswerMs = 10'000;
// A lease time that means for ever.
constexpr u32 kForEver = 0xffffffff;

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

// dhclient knows no signal for a renewal: it ends by it, and is started anew without its lease,
// which makes it ask for one. The address stays meanwhile.
class DhclientClient : public LeaseClient {
 public:
    DhclientClient(const Context& context, const std::string& name, const PrivateDir& files,
                   std::function<void()> signalled)
        : LeaseClient(context, name, VIMBRA_FAMILY_IPV6, files),
          signalled_(std::move(signalled)),
          leaseTimer_(MakeTimer(context.loop, this)) {
        Expect(kAnswerMs);
    }

    void Run() override {
        CheckProgram("dhclient");
        Netlink().BringUp(Name());
        if (!HasLinkLocal(Name())) {
            RestartAfter(kLinkLocalMs);
            return;
        }
        Files().Write(Leases(), "", 0600);
        asked_ = false;
        RunProgram({CommandWith({"-d"}), "udhcpc6"});
        LogInfo("%s: started", Title());
    }

    void Renew() override {
        asked_ = true;
        LeaseClient::Renew();
    }

 private:
    std::string Leases() const { return "leases." + Name(); }

    // Everything that it reads and writes is ours. An identifier that is made of the hardware
    // address stays the same without a file that keeps it.
    std::vector<std::string> CommandWith(const std::vector<std::string>& options) const {
        std::vector<std::string> command = {"dhclient", "-6"};
        command.insert(command.end(), options.begin(), options.end());
        for (const std::string& each :
             {std::string("-D"), std::string("LL"), std::string("--no-pid"), std::string("-lf"),
              Files().PathOf(Leases()), std::string("-cf"), std::string("/dev/null"),
              std::string("-sf"), HookOf(kDhclientHook), Name()}) {
            command.push_back(each);
        }
        return command;
    }

    // A lease that was not renewed ends; without one the failure is told again and again.
    void Expect(u64 milliseconds) {
        uv_timer_start(
            leaseTimer_.get(),
            [](uv_timer_t* timer) {
                auto* self = static_cast<DhclientClient*>(timer->data);
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
            uv_timer_stop(leaseTimer_.get());
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
            RunProgram({CommandWith({"-d", "-r"})});
        } catch (const std::exception& error) {
            LogInfo("%s: the lease is not given back: %s", Title(), error.what());
            return false;
        }
        EndsSoon();
        return true;
    }

    std::function<void()> signalled_;
    UvHandle<uv_timer_t> leaseTimer_;
    bool asked_ = false;
    bool releasing_ = false;
};

}  // namespace

std::unique_ptr<LeaseClient> MakeDhclientClient(const Context& context, const std::string& name,
                                                const PrivateDir& files,
                                                std::function<void()> signalled) {
    return std::make_unique<DhclientClient>(context, name, files, std::move(signalled));
}

}  // namespace vimbrad
