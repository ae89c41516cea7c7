#include "lease_client.hpp"

#include <net/if.h>

#include <csignal>
#include <ctime>
#include <nlohmann/json.hpp>

#include "address_text.hpp"
#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "record_text.hpp"

namespace vimbrad {
namespace {

// For the message to the server that the address is free again.
constexpr u64 kReleaseMs = 2'000;
// Before a program that has ended by itself is started again; its interface may be gone.
constexpr u64 kRestartMs = 5'000;

// Of a clock that also runs while the machine sleeps, as the server's does.
u64 SecondsSinceBoot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<u64>(now.tv_sec);
}

std::string SocketOf(const std::string& name, u16 family) {
    const char* socket =
        family == VIMBRA_FAMILY_IPV4 ? wire::kDhcpcSocketIpv4 : wire::kDhcpcSocketIpv6;
    return std::string(socket) + "_" + name;
}

// As no report could have been, it is none of ours.
TVimbraDhcpcAddrInfo LeaseOf(const std::string& text, u16 family) {
    const auto lease = RecordFromText<TVimbraDhcpcAddrInfo>(text);
    if (lease.tIpAddrs.wSinFamily != family || lease.tGateWay.wSinFamily != family ||
        lease.dwDnsNum > VIMBRA_DHCPC_DNS_MAX) {
        throw Refusal(EINVAL, "no lease");
    }
    return lease;
}

}  // namespace

LeaseClient::LeaseClient(const Context& context, std::string name, u16 family,
                         const PrivateDir& files)
    : context_(context),
      name_(std::move(name)),
      family_(family),
      title_((family == VIMBRA_FAMILY_IPV6 ? "DHCPv6 client on " : "DHCP client on ") + name_),
      files_(files),
      settings_(context, name_, family),
      report_(name_, family),
      notifier_(context.loop, SocketOf(name_, family).c_str(), [] {}),
      timer_(MakeTimer(context.loop, this)),
      takenUpEnd_(MakeTimer(context.loop, this)) {}

u64 LeaseClient::SecondsLeft() const {
    const u64 now = SecondsSinceBoot();
    return leaseEnd_ > now ? leaseEnd_ - now : 0;
}

Json LeaseClient::Save() const {
    Json state{{"interface", name_}, {"family", family_}, {"settings", settings_.Save()}};
    if (hasLease_) {
        state["lease"] = TextOfRecord(lease_);
        state["lease_end"] = leaseEnd_;
    }
    return state;
}

void LeaseClient::Restore(const Json& state) {
    settings_.Restore(state.at("settings"));
    if (!state.contains("lease")) {
        settings_.Remove();
        Restart();
        return;
    }
    lease_ = LeaseOf(state.at("lease").get<std::string>(), family_);
    leaseEnd_ = state.at("lease_end").get<u64>();
    hasLease_ = true;
    takenUp_ = true;
    const u64 left = SecondsLeft();
    uv_timer_start(
        takenUpEnd_.get(),
        [](uv_timer_t* timer) {
            auto* self = static_cast<LeaseClient*>(timer->data);
            if (self->takenUp_) {
                self->Lose();
            }
        },
        left * 1000, 0);
    LeaseTaken(static_cast<u32>(left));
    if (if_nametoindex(name_.c_str()) == 0) {
        Lose();
    }
    Restart();
}

Json LeaseClient::Show() const {
    Json shown{{"interface", name_},
               {"family", FamilyKey(family_)},
               {"state", Stopping()  ? "stopping"
                         : !child_   ? "waiting"
                         : hasLease_ ? "bound"
                                     : "asking"}};
    if (child_) {
        shown["pid"] = child_->Pid();
    }
    if (!hasLease_) {
        return shown;
    }
    Json& lease = shown["lease"];
    lease = {{"address", TextOf(lease_.tIpAddrs)},
             {"prefix", lease_.dwIpPrefix},
             {"dns", Json::array()},
             {"seconds", lease_.dwLeaseTime},
             {"left", SecondsLeft()}};
    if (!IsZero(lease_.tGateWay)) {
        lease["gateway"] = TextOf(lease_.tGateWay);
    }
    for (u32 i = 0; i < lease_.dwDnsNum; ++i) {
        lease["dns"].push_back(TextOf(lease_.atDnsServer[i]));
    }
    return shown;
}

void LeaseClient::TellEnd() {
    if (hasLease_) {
        TellFailure();
    }
}

void LeaseClient::Stop(Stopped stopped) {
    stopped_ = std::move(stopped);
    if (!child_) {
        Finish();
        return;
    }
    child_->End(kReleaseMs);
}

void LeaseClient::RunProgram(const Child::Program& program) {
    hasSpoken_ = false;
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
    takenUp_ = false;
    if (std::exchange(hasLease_, false) && !Stopping()) {
        TellFailure();
    }
    context_.registry.Changed();
}

void LeaseClient::TellFailure() {
    TVimbraDhcpcAddrInfo failure{};
    name_.copy(failure.achDevName, sizeof(failure.achDevName));
    notifier_.Post(wire::kDhcpcFail, failure);
}

void LeaseClient::TakeLine(std::string_view line) {
    if (!LeaseReport::Speaks(line)) {
        LogDebug("%.*s", static_cast<int>(line.size()), line.data());
        return;
    }
    hasSpoken_ = true;
    if (report_.Take(line)) {
        TakeReport();
    }
}

// A program begins without a lease; what an earlier life had stays nevertheless.
bool LeaseClient::KeepsLease(const std::string& event) {
    return takenUp_ && (event == "deconfig" || event == "leasefail");
}

void LeaseClient::TakeReport() {
    const std::string& event = report_.Event();
    LogInfo("%s: %s", Title(), event.c_str());
    if (KeepsLease(event)) {
        return;
    }
    if (event == "bound" || event == "renew") {
        TakeLease(report_.Lease());
    } else if (event == "deconfig") {
        Lose();
    } else if (takenUp_ && event == "nak") {
        Lose();
    } else if (event == "leasefail" || event == "nak") {
        TellFailure();
    }
}

void LeaseClient::TakeLease(const TVimbraDhcpcAddrInfo& lease) {
    takenUp_ = false;
    hasLease_ = settings_.Apply(lease);
    if (hasLease_) {
        lease_ = lease;
        leaseEnd_ = SecondsSinceBoot() + lease.dwLeaseTime;
        notifier_.Post(wire::kDhcpcLease, lease);
        LeaseTaken(lease.dwLeaseTime);
    } else {
        TellFailure();
    }
    context_.registry.Changed();
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
    if (!takenUp_) {
        Lose();
    }
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
