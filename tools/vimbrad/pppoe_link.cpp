#include "pppoe_link.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "address_text.hpp"
#include "api/api_pppoe/pppoe_wire.hpp"
#include "family.hpp"
#include "hooks.hpp"
#include "log.hpp"
#include "missing.hpp"
#include "netlink.hpp"
#include "pppd_options.hpp"
#include "record_text.hpp"
#include "run_dir.hpp"

namespace vimbrad {
namespace {

// What the events that have no name of their own say here.
enum : u32 {
    kLost = wire::kPppoeEvent2,     // a link that was up is down
    kNoLink = wire::kPppoeEvent3,   // nobody answered, or no agreement was found
    kRefused = wire::kPppoeEvent4,  // the user name or the password is wrong
};

// pppd's exit status when the peer did not accept us.
constexpr int kNotAuthenticated = 19;

constexpr std::string_view kUpMark = "@up ";
// pppd's log, in this order.
constexpr std::string_view kOurIpv6Mark = "local  LL address ";
constexpr std::string_view kPeerIpv6Mark = "remote LL address ";

// The least time between two dials: a dial may fail at once.
constexpr u64 kRedialMinMs = 1'000;

// The server's hang-up may come before pppd has ended for this reason, and then is its reason.
bool SaysRefused(std::string_view line) {
    return (line.starts_with("PAP ") || line.starts_with("CHAP ") || line.starts_with("EAP")) &&
           line.find("authentication failed") != line.npos;
}

// OUR PEER DNS1 DNS2, as the hook tells.
TVimbraPppoeAddr AddressesOf(const std::string& text) {
    std::istringstream words(text);
    const auto next = [&words] {
        std::string word;
        words >> word;
        return AddressOf(VIMBRA_FAMILY_IPV4, word);
    };
    TVimbraPppoeAddr addresses{};
    addresses.tOurIpaddr = next();
    addresses.tPeerIpAddr = next();
    addresses.tDnsServer1 = next();
    addresses.tDnsServer2 = next();
    return addresses;
}

TVimbraPppoeAddr AddressesOf(const std::string& our, const std::string& peer) {
    const TVimbraAddr none = AddressOf(VIMBRA_FAMILY_IPV6, "::");
    return {AddressOf(VIMBRA_FAMILY_IPV6, our), AddressOf(VIMBRA_FAMILY_IPV6, peer), none, none};
}

Json ShowAddresses(const TVimbraPppoeAddr& addresses) {
    Json shown{{"family", FamilyKey(addresses.tOurIpaddr.wSinFamily)},
               {"local", TextOf(addresses.tOurIpaddr)},
               {"peer", TextOf(addresses.tPeerIpAddr)},
               {"dns", Json::array()}};
    for (const TVimbraAddr& each : {addresses.tDnsServer1, addresses.tDnsServer2}) {
        if (!IsZero(each)) {
            shown["dns"].push_back(TextOf(each));
        }
    }
    return shown;
}

wire::PppoeStartBody StartOf(const Json& saved) {
    return RecordFromText<wire::PppoeStartBody>(saved.at("start").get<std::string>());
}

TVimbraPppoeAddr AddressesFrom(const Json& saved) {
    const auto addresses = RecordFromText<TVimbraPppoeAddr>(saved.get<std::string>());
    for (const TVimbraAddr& each : {addresses.tOurIpaddr, addresses.tPeerIpAddr,
                                    addresses.tDnsServer1, addresses.tDnsServer2}) {
        CheckOneFamily(each.wSinFamily);
    }
    return addresses;
}

const char* SocketOf(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 ? wire::kPppoeSocketIpv4 : wire::kPppoeSocketIpv6;
}

}  // namespace

PppoeLink::PppoeLink(const Context& context, u16 family, const PppoeConfig& config)
    : context_(context),
      family_(family),
      config_(config),
      files_(context.runDir),
      notifier_(context.loop, SocketOf(family), [] {}),
      timer_(MakeTimer(context.loop, this)) {
    files_.Write(
        "options",
        PppdOptions(family, config, context.runDir.PathOf(kPppdHook), files_.PathOf("ip-down")),
        0600);
    Netlink().BringUp(NameOf(config.devname));
    Dial();
}

// Applications are told anew of what goes on.
PppoeLink::PppoeLink(const Context& context, const Json& saved)
    : context_(context),
      family_(StartOf(saved).wSinFamily),
      config_(StartOf(saved).tConfig),
      files_(context.runDir, saved.at("directory").get<std::string>()),
      notifier_(context.loop, SocketOf(family_), [] {}),
      timer_(MakeTimer(context.loop, this)) {
    CheckFamily(family_);
    pppd_ = std::make_unique<KeptProgram>(context, files_, saved.at("pid").get<pid_t>(), Events());
    for (const Json& each : saved.at("addresses")) {
        TakeAddresses(AddressesFrom(each));
    }
}

Json PppoeLink::Save() const {
    wire::PppoeStartBody start{};
    start.wSinFamily = family_;
    start.tConfig = config_;
    Json saved{{"up", IsUp()}, {"start", TextOfRecord(start)}};
    if (letLive_) {
        saved["directory"] = files_.Name();
        saved["pid"] = pppd_->Pid();
        Json& addresses = saved["addresses"] = Json::array();
        for (const TVimbraPppoeAddr& each : up_) {
            addresses.push_back(TextOfRecord(each));
        }
    }
    return saved;
}

bool PppoeLink::WasLetLive(const Json& saved) {
    return saved.contains("directory");
}

Json PppoeLink::Show() const {
    Json shown{{"family", FamilyKey(family_)}, {"interface", NameOf(config_.devname)},
               {"state", StateName()},         {"user", UserOf(config_)},
               {"failures", failures_},        {"addresses", Json::array()}};
    if (pppd_ && pppd_->Pid() != 0) {
        shown["pid"] = pppd_->Pid();
    }
    for (const TVimbraPppoeAddr& each : up_) {
        shown["addresses"].push_back(ShowAddresses(each));
    }
    return shown;
}

void PppoeLink::TellLost() {
    notifier_.Post(kLost);
}

void PppoeLink::TellStopped() {
    notifier_.Post(wire::kPppoeStopped);
}

void PppoeLink::LetLive() {
    if (pppd_ && IsUp() && !Stopping()) {
        pppd_->LetLive();
        letLive_ = true;
    }
}

void PppoeLink::Stop(Stopped stopped) {
    stopped_ = std::move(stopped);
    if (!pppd_) {
        Finish();
        return;
    }
    pppd_->End();
}

const char* PppoeLink::StateName() const {
    return stopped_ ? "stopping" : over_ ? "over" : IsUp() ? "up" : pppd_ ? "dialling" : "waiting";
}

KeptProgram::Events PppoeLink::Events() {
    return {[this](std::string_view line) { TakeLine(line); },
            [this](const ChildEnd& end) { Ended(end); }};
}

void PppoeLink::Dial() {
    CheckProgram("pppd");
    refused_ = false;
    pppd_ = std::make_unique<KeptProgram>(
        context_, files_, std::vector<std::string>{"pppd", "file", files_.PathOf("options")},
        Events());
    LogInfo("PPPoE link for %s: dials on %s", FamilyTitle(family_),
            NameOf(config_.devname).c_str());
}

void PppoeLink::TakeLine(std::string_view line) {
    LogDebug("pppd: %.*s", static_cast<int>(line.size()), line.data());
    const auto behind = [line](std::string_view mark) {
        return std::string(line.substr(mark.size()));
    };
    refused_ = refused_ || SaysRefused(line);
    if (line.starts_with(kUpMark)) {
        TakeAddresses(AddressesOf(behind(kUpMark)));
    } else if (line.starts_with(kOurIpv6Mark)) {
        ourIpv6_ = behind(kOurIpv6Mark);
    } else if (line.starts_with(kPeerIpv6Mark)) {
        TakeAddresses(AddressesOf(ourIpv6_, behind(kPeerIpv6Mark)));
    }
}

void PppoeLink::TakeAddresses(const TVimbraPppoeAddr& addresses) {
    if (stopped_) {
        return;
    }
    const u16 family = addresses.tOurIpaddr.wSinFamily;
    LogInfo("PPPoE link for %s: %s is up", FamilyTitle(family_), FamilyTitle(family));
    std::erase_if(up_, [family](const auto& each) { return each.tOurIpaddr.wSinFamily == family; });
    up_.push_back(addresses);
    notifier_.Post(wire::kPppoeConnected, addresses);
    context_.registry.Changed();
}

void PppoeLink::Ended(const ChildEnd& end) {
    pppd_.reset();
    if (stopped_) {
        Finish();
        return;
    }
    LogWarning("PPPoE link for %s: pppd ended with %s", FamilyTitle(family_), end.Text().c_str());
    const bool refused = refused_ || end.status == kNotAuthenticated;
    notifier_.Post(IsUp() ? kLost : refused ? kRefused : kNoLink);
    DialAgain();
    context_.registry.Changed();
}

// Only failures in a row count: a link that was up has been worth its dial.
void PppoeLink::DialAgain() {
    failures_ = std::exchange(up_, {}).empty() ? failures_ + 1 : 0;
    if (config_.auto_dial_enable == 0 || (config_.maxfail != 0 && failures_ >= config_.maxfail)) {
        LogInfo("PPPoE link for %s: not dialled any more", FamilyTitle(family_));
        over_ = true;
        TellStopped();
        return;
    }
    uv_timer_start(
        timer_.get(), [](uv_timer_t* timer) { static_cast<PppoeLink*>(timer->data)->Redial(); },
        std::max(config_.dial_retry_seconds * u64{1000}, kRedialMinMs), 0);
}

void PppoeLink::Redial() {
    try {
        Dial();
    } catch (const std::exception& error) {
        LogWarning("PPPoE link for %s: not dialled: %s", FamilyTitle(family_), error.what());
        notifier_.Post(kNoLink);
        DialAgain();
    }
}

void PppoeLink::Finish() {
    LogInfo("PPPoE link for %s: stopped", FamilyTitle(family_));
    // The call may end this object, and the function with it.
    const Stopped stopped = std::move(stopped_);
    stopped();
}

}  // namespace vimbrad
