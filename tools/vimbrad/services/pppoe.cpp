// PPPoE: one pppd for each link, and for each dial of it: why a dial has ended is told by the exit
// status alone. The addresses of IPv4 come from a hook that pppd runs, those of IPv6 from its log:
// it has no option for a hook of ours there.
#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "address_text.hpp"
#include "api/api_pppoe/pppoe_wire.hpp"
#include "child.hpp"
#include "hooks.hpp"
#include "lib/base/fd.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "notifier.hpp"
#include "private_dir.hpp"
#include "record_text.hpp"
#include "run_dir.hpp"
#include "services/services.hpp"

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

constexpr char kDevice[] = "/dev/ppp";

constexpr std::string_view kUpMark = "@up ";
// pppd's log, in this order.
constexpr std::string_view kOurIpv6Mark = "local  LL address ";
constexpr std::string_view kPeerIpv6Mark = "remote LL address ";

// The server's hang-up may come before pppd has ended for this reason, and then is its reason.
bool SaysRefused(std::string_view line) {
    return (line.starts_with("PAP ") || line.starts_with("CHAP ") || line.starts_with("EAP")) &&
           line.find("authentication failed") != line.npos;
}

// Longer than pppd asks a silent peer to end the link.
constexpr u64 kHangUpMs = 8'000;
// The least time between two dials: a dial may fail at once.
constexpr u64 kRedialMinMs = 1'000;
constexpr u32 kEchoMax = 255;

bool Overlap(u16 one, u16 other) {
    return one == other || one == VIMBRA_FAMILY_BOTH || other == VIMBRA_FAMILY_BOTH;
}

// What of a link is not spoken of by a request; 0 for nothing.
u16 OtherHalf(u16 link, u16 request) {
    if (link != VIMBRA_FAMILY_BOTH || request == VIMBRA_FAMILY_BOTH) {
        return 0;
    }
    return request == VIMBRA_FAMILY_IPV4 ? VIMBRA_FAMILY_IPV6 : VIMBRA_FAMILY_IPV4;
}

// A word of an options file, whatever it holds.
std::string Quoted(std::string_view word) {
    std::string text = "\"";
    for (const char each : word) {
        if (each == '"' || each == '\\') {
            text += '\\';
        }
        text += each;
    }
    return text + '"';
}

// A text field. No name and no password has control characters.
template <size_t N>
std::string FieldOf(const char (&field)[N], const char* what) {
    const std::string text(field, strnlen(field, N));
    if (text.empty() ||
        std::ranges::any_of(text, [](unsigned char each) { return iscntrl(each); })) {
        throw Refusal(EINVAL, std::string("no such ") + what);
    }
    return text;
}

// An options file of pppd. The plug-in comes first: it knows what the interface is.
std::string OptionsOf(u16 family, const PppoeConfig& config, const std::string& hook,
                      const std::string& noHook) {
    if (config.lcp_echo_interval > kEchoMax || config.lcp_echo_failure > kEchoMax) {
        throw Refusal(EINVAL, "no such echo interval or count");
    }
    std::string text;
    const auto add = [&text](const std::string& option) { text += option + "\n"; };
    add("plugin pppoe.so");
    add(Quoted("nic-" + NameOf(config.devname)));
    add("user " + Quoted(FieldOf(config.username, "user name")));
    add("password " + Quoted(FieldOf(config.password, "password")));
    for (const char* each : {"hide-password", "noauth", "nodetach", "nopersist", "logfd 1"}) {
        add(each);
    }
    add("ip-up-script " + Quoted(hook));
    add("ip-down-script " + Quoted(noHook));
    add("lcp-echo-interval " + std::to_string(config.lcp_echo_interval));
    add("lcp-echo-failure " + std::to_string(config.lcp_echo_failure));
    const std::string no = config.default_route_enable != 0 ? "" : "no";
    if (Covers(family, VIMBRA_FAMILY_IPV4)) {
        add("noipdefault");
        add("usepeerdns");
        add(no + "defaultroute");
    } else {
        add("noip");
    }
    if (Covers(family, VIMBRA_FAMILY_IPV6)) {
        add("+ipv6");
        add(no + "defaultroute6");
    } else {
        add("noipv6");
    }
    if (config.debug != 0) {
        add("debug");
    }
    return text;
}

// pppd would find out, too, but nobody would be told why.
void CheckKernel() {
    if (vimbra::Fd(open, kDevice, O_RDWR | O_CLOEXEC)) {
        return;
    }
    const int error = errno;
    const bool none = error == ENOENT || error == ENODEV || error == ENXIO;
    throw Refusal(none ? EOPNOTSUPP : error, std::string(kDevice) + ": " + std::strerror(error));
}

// The link of one family, from its start until it has been stopped, whether it is up or not.
class PppoeLink {
 public:
    using Stopped = std::function<void()>;

    // Throws Refusal.
    PppoeLink(const Context& context, u16 family, const PppoeConfig& config)
        : loop_(context.loop),
          registry_(context.registry),
          family_(family),
          config_(config),
          files_(context.runDir),
          options_(files_.Write(
              "options",
              OptionsOf(family, config, context.runDir.PathOf(kPppdHook), files_.PathOf("ip-down")),
              0600)),
          notifier_(loop_,
                    family == VIMBRA_FAMILY_IPV4 ? wire::kPppoeSocketIpv4 : wire::kPppoeSocketIpv6,
                    [] {}),
          timer_(MakeTimer(loop_, this)) {
        Netlink().BringUp(NameOf(config.devname));
        Dial();
    }

    const PppoeConfig& Config() const { return config_; }
    // Nothing will be dialled any more.
    bool IsOver() const { return over_; }
    bool IsUp() const { return wasUp_; }
    bool Stopping() const { return stopped_ != nullptr; }

    // To an application that did not ask for it.
    void TellLost() { notifier_.Post(kLost); }
    void TellStopped() { notifier_.Post(wire::kPppoeStopped); }

    Json Show() const {
        Json shown{{"family", FamilyKey(family_)}, {"interface", NameOf(config_.devname)},
                   {"state", StateName()},         {"user", FieldOf(config_.username, "user name")},
                   {"failures", failures_},        {"addresses", addresses_}};
        if (child_) {
            shown["pid"] = child_->Pid();
        }
        return shown;
    }

    // Calls when pppd has ended, which may be at once; that may destroy the link.
    void Stop(Stopped stopped) {
        stopped_ = std::move(stopped);
        if (!child_) {
            Finish();
            return;
        }
        child_->End(kHangUpMs);
    }

 private:
    const char* StateName() const {
        return stopped_ ? "stopping"
               : over_  ? "over"
               : wasUp_ ? "up"
               : child_ ? "dialling"
                        : "waiting";
    }

    static Json ShowAddresses(const TVimbraPppoeAddr& addresses) {
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

    void Dial() {
        refused_ = false;
        child_ = std::make_unique<Child>(
            loop_, Child::Program{.command = {"pppd", "file", options_}, .deathSignal = SIGTERM},
            Child::Events{[this](std::string_view line) { TakeLine(line); },
                          [this](const ChildEnd& end) { Ended(end); }});
        LogInfo("PPPoE link for %s: dials on %s", FamilyTitle(family_),
                NameOf(config_.devname).c_str());
    }

    void After(u64 milliseconds, uv_timer_cb call) {
        uv_timer_start(timer_.get(), call, milliseconds, 0);
    }

    void TakeLine(std::string_view line) {
        LogDebug("pppd: %.*s", static_cast<int>(line.size()), line.data());
        const auto behind = [line](std::string_view mark) {
            return std::string(line.substr(mark.size()));
        };
        refused_ = refused_ || SaysRefused(line);
        if (line.starts_with(kUpMark)) {
            std::istringstream words(behind(kUpMark));
            std::string our, peer, dns1, dns2;
            words >> our >> peer >> dns1 >> dns2;
            const u16 family = VIMBRA_FAMILY_IPV4;
            TellConnected({AddressOf(family, our), AddressOf(family, peer), AddressOf(family, dns1),
                           AddressOf(family, dns2)});
        } else if (line.starts_with(kOurIpv6Mark)) {
            ourIpv6_ = behind(kOurIpv6Mark);
        } else if (line.starts_with(kPeerIpv6Mark)) {
            const u16 family = VIMBRA_FAMILY_IPV6;
            const TVimbraAddr none = AddressOf(family, "::");
            TellConnected({AddressOf(family, ourIpv6_), AddressOf(family, behind(kPeerIpv6Mark)),
                           none, none});
        }
    }

    void TellConnected(const TVimbraPppoeAddr& addresses) {
        if (stopped_) {
            return;
        }
        LogInfo("PPPoE link for %s: %s is up", FamilyTitle(family_),
                FamilyTitle(addresses.tOurIpaddr.wSinFamily));
        wasUp_ = true;
        addresses_.push_back(ShowAddresses(addresses));
        notifier_.Post(wire::kPppoeConnected, addresses);
        registry_.Changed();
    }

    void Ended(const ChildEnd& end) {
        child_.reset();
        addresses_.clear();
        if (stopped_) {
            Finish();
            return;
        }
        LogWarning("PPPoE link for %s: pppd ended with %s", FamilyTitle(family_),
                   end.Text().c_str());
        const bool refused = refused_ || end.status == kNotAuthenticated;
        notifier_.Post(wasUp_ ? kLost : refused ? kRefused : kNoLink);
        DialAgain();
        registry_.Changed();
    }

    // Only failures in a row count: a link that was up has been worth its dial.
    void DialAgain() {
        failures_ = std::exchange(wasUp_, false) ? 0 : failures_ + 1;
        if (config_.auto_dial_enable == 0 ||
            (config_.maxfail != 0 && failures_ >= config_.maxfail)) {
            LogInfo("PPPoE link for %s: not dialled any more", FamilyTitle(family_));
            over_ = true;
            notifier_.Post(wire::kPppoeStopped);
            return;
        }
        After(std::max(config_.dial_retry_seconds * u64{1000}, kRedialMinMs),
              [](uv_timer_t* timer) { static_cast<PppoeLink*>(timer->data)->Redial(); });
    }

    void Redial() {
        try {
            Dial();
        } catch (const std::exception& error) {
            LogWarning("PPPoE link for %s: not dialled: %s", FamilyTitle(family_), error.what());
            notifier_.Post(kNoLink);
            DialAgain();
        }
    }

    void Finish() {
        LogInfo("PPPoE link for %s: stopped", FamilyTitle(family_));
        // The call may end this object, and the function with it.
        const Stopped stopped = std::move(stopped_);
        stopped();
    }

    uv_loop_t* loop_;
    Registry& registry_;
    u16 family_;
    PppoeConfig config_;
    PrivateDir files_;
    std::string options_;
    Notifier notifier_;
    UvHandle<uv_timer_t> timer_;
    std::unique_ptr<Child> child_;
    std::string ourIpv6_;
    std::vector<Json> addresses_;
    bool wasUp_ = false;
    bool refused_ = false;
    u32 failures_ = 0;
    bool over_ = false;
    Stopped stopped_;
};

class PppoeService : public Service {
 public:
    explicit PppoeService(const Context& context) : context_(context) {}

    void Attach(Registry& registry) override {
        using wire::PlainResult, wire::PppoeStartBody, wire::PppoeStopBody;
        registry.ChangeLater<PppoeStartBody, PlainResult>(
            wire::kPppoeStart, "PPPoE start",
            [this](const PppoeStartBody& body, const Answer<PlainResult>& answer) {
                Start(body.wSinFamily, body.tConfig, answer);
            });
        registry.ChangeLater<PppoeStopBody, PlainResult>(
            wire::kPppoeStop, "PPPoE stop",
            [this](const PppoeStopBody& body, const Answer<PlainResult>& answer) {
                CheckFamily(body.wSinFamily);
                HangUpThen(body.wSinFamily, [answer] { answer({0}); });
            });
    }

    void Save(Json& state) const override {
        Json& list = state["pppoe_links"] = Json::array();
        for (const auto& [family, link] : links_) {
            if (!link->IsOver() && !link->Stopping()) {
                wire::PppoeStartBody body{};
                body.wSinFamily = family;
                body.tConfig = link->Config();
                list.push_back({{"up", link->IsUp()}, {"start", TextOfRecord(body)}});
            }
        }
    }
    // The program went with the daemon that ran it, and the link with the program.
    void Restore(const Json& state) override {
        for (const Json& each : state.value("pppoe_links", Json::array())) {
            const auto body =
                RecordFromText<wire::PppoeStartBody>(each.at("start").get<std::string>());
            try {
                Run(body.wSinFamily, body.tConfig);
            } catch (const Refusal& refusal) {
                LogWarning("PPPoE link for %s: not taken up: %s", FamilyTitle(body.wSinFamily),
                           refusal.what());
                continue;
            }
            if (each.value("up", false)) {
                links_.at(body.wSinFamily)->TellLost();
            }
        }
    }
    void Show(Json& answer) const override {
        Json& list = answer["pppoe_links"] = Json::array();
        for (const auto& [_, link] : links_) {
            list.push_back(link->Show());
        }
    }
    void End(const Ending& ending) override {
        for (const auto& [_, link] : links_) {
            if (link->Stopping()) {
                continue;
            }
            if (link->IsUp()) {
                link->TellLost();
            }
            if (!link->IsOver()) {
                link->TellStopped();
            }
            link->Stop([ending] {});
        }
    }

 private:
    using Then = std::function<void()>;

    // What cannot be dialled leaves the link that runs alone.
    void Start(u16 family, const PppoeConfig& config, const Answer<wire::PlainResult>& answer) {
        CheckFamily(family);
        OptionsOf(family, config, "", "");
        Netlink().FindLink(NameOf(config.devname));
        CheckKernel();
        HangUpThen(family, [this, family, config, answer] {
            try {
                Run(family, config);
                answer({0});
            } catch (const Refusal& refusal) {
                answer.Refuse(refusal.Error(), refusal.what());
            } catch (const std::exception& error) {
                answer.Refuse(EIO, error.what());
            }
        });
    }

    void Run(u16 family, const PppoeConfig& config) {
        links_.emplace(family, std::make_unique<PppoeLink>(context_, family, config));
    }

    // Ends every link that has to do with the family, and goes on. That takes its time: requests
    // are carried out one after the other.
    void HangUpThen(u16 family, Then then) {
        waiting_.push_back({family, std::move(then)});
        if (waiting_.size() == 1) {
            Work();
        }
    }

    void Work() {
        while (!waiting_.empty()) {
            const u16 family = waiting_.front().family;
            const auto found = std::ranges::find_if(
                links_, [family](const auto& each) { return Overlap(each.first, family); });
            if (found != links_.end()) {
                found->second->Stop([this, link = found->first] { HasStopped(link); });
                return;
            }
            const Then then = std::move(waiting_.front().then);
            then();
            waiting_.pop_front();
        }
    }

    // Of a common link the other half is dialled alone.
    void HasStopped(u16 family) {
        const auto ended = links_.extract(family);
        const u16 rest = OtherHalf(family, waiting_.front().family);
        if (rest != 0 && !ended.mapped()->IsOver()) {
            try {
                Run(rest, ended.mapped()->Config());
            } catch (const std::exception& error) {
                LogWarning("PPPoE link for %s: not dialled: %s", FamilyTitle(rest), error.what());
            }
        }
        Work();
    }

    struct Waiting {
        u16 family;
        Then then;
    };

    Context context_;
    std::map<u16, std::unique_ptr<PppoeLink>> links_;
    std::deque<Waiting> waiting_;
};

}  // namespace

std::unique_ptr<Service> MakePppoeService(const Context& context) {
    return std::make_unique<PppoeService>(context);
}

}  // namespace vimbrad
