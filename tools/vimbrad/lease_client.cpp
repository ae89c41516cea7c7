#include "lease_client.hpp"

#include <csignal>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "log.hpp"

namespace vimbrad {
namespace {

// For the message to the server that the address is free again.
constexpr u64 kReleaseMs = 2'000;
// Before a program that has ended by itself is started again; its interface may be gone.
constexpr u64 kRestartMs = 5'000;

std::string SocketOf(const std::string& name, u16 family) {
    const char* socket =
        family == VIMBRA_FAMILY_IPV4 ? wire::kDhcpcSocketIpv4 : wire::kDhcpcSocketIpv6;
    return std::string(socket) + "_" + name;
}

}  // namespace

LeaseClient::LeaseClient(const Context& context, Registry& registry, std::string name, u16 family,
                         const PrivateDir& files)
    : context_(context),
      name_(std::move(name)),
      title_((family == VIMBRA_FAMILY_IPV6 ? "DHCPv6 client on " : "DHCP client on ") + name_),
      files_(files),
      settings_(registry, name_, family),
      report_(name_, family),
      notifier_(context.loop, SocketOf(name_, family).c_str(), [] {}),
      timer_(MakeTimer(context.loop, this)) {}

void LeaseClient::Stop(Stopped stopped) {
    stopped_ = std::move(stopped);
    if (!child_) {
        Finish();
        return;
    }
    child_->End(kReleaseMs);
}

void LeaseClient::RunProgram(const Child::Program& program) {
    child_ =
        std::make_unique<Child>(context_.loop, program,
                                Child::Events{[this](std::string_view line) { TakeLine(line); },
                                              [this](const ChildEnd& end) { Ended(end); }});
}

void LeaseClient::EndsSoon() {
    child_->EndsWithin(kReleaseMs);
}

void LeaseClient::RestartAfter(u64 milliseconds) {
    uv_timer_start(
        timer_.get(), [](uv_timer_t* timer) { static_cast<LeaseClient*>(timer->data)->Restart(); },
        milliseconds, 0);
}

void LeaseClient::Restart() {
    try {
        Run();
    } catch (const std::exception& error) {
        LogInfo("%s: not started: %s", Title(), error.what());
        RestartAfter(kRestartMs);
    }
}

void LeaseClient::Lose() {
    settings_.Remove();
    if (std::exchange(has_lease_, false) && !Stopping()) {
        TellFailure();
    }
}

void LeaseClient::TellFailure() {
    TVimbraDhcpcAddrInfo failure{};
    name_.copy(failure.achDevName, sizeof(failure.achDevName));
    notifier_.Post(wire::kDhcpcFail, failure);
}

void LeaseClient::TakeLine(std::string_view line) {
    if (!LeaseReport::Speaks(line)) {
        LogDebug("%.*s", static_cast<int>(line.size()), line.data());
    } else if (report_.Take(line)) {
        TakeReport();
    }
}

void LeaseClient::TakeReport() {
    const std::string& event = report_.Event();
    LogInfo("%s: %s", Title(), event.c_str());
    if (event == "bound" || event == "renew") {
        has_lease_ = settings_.Apply(report_.Lease());
        if (has_lease_) {
            notifier_.Post(wire::kDhcpcLease, report_.Lease());
            LeaseTaken(report_.Lease().dwLeaseTime);
        } else {
            TellFailure();
        }
    } else if (event == "deconfig") {
        Lose();
    } else if (event == "leasefail" || event == "nak") {
        TellFailure();
    }
}

void LeaseClient::Ended(const ChildEnd& end) {
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

void LeaseClient::Finish() {
    settings_.Remove();
    LogInfo("%s: stopped", Title());
    // The call may end this object, and the function with it.
    const Stopped stopped = std::move(stopped_);
    stopped();
}

}  // namespace vimbrad
