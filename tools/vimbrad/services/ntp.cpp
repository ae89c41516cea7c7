// NTP clients, one for each family: the server is asked how far our clock is off, at the start and
// then once in every interval; the application is told and, where the daemon was started to do
// so, the clock is set.
#include <arpa/inet.h>
#include <sys/timex.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "address_text.hpp"
#include "api/api_ntpc/ntpc_wire.hpp"
#include "log.hpp"
#include "netlink.hpp"
#include "notifier.hpp"
#include "ntp_question.hpp"
#include "record_text.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

using wire::PlainResult;

// In seconds, as RFC 5905 has it: no server is asked more often than that, and so often is usual.
constexpr u32 kIntervalMin = 16;
constexpr u32 kIntervalUsual = 64;
// What failed need not wait for a long interval: there may have been no network yet.
constexpr u32 kRetry = 64;
// An offset below it is worked off little by little, so that time neither jumps nor goes back; the
// limit is that of RFC 5905.
constexpr s64 kStepMicroseconds = 128'000;

// What a client names as its server, without what the address's family does not use.
TVimbraAddr ServerOf(const TVimbraAddr& named) {
    const TVimbraAddr server = MakeAddr(MakeNlAddr(named, FullPrefix(named.wSinFamily)).get());
    const bool multicast = server.wSinFamily == VIMBRA_FAMILY_IPV4
                               ? IN_MULTICAST(ntohl(server.tV4Addr.s_addr))
                               : IN6_IS_ADDR_MULTICAST(&server.tV6Addr);
    if (IsZero(server) || multicast) {
        throw Refusal(EINVAL, "not the address of a server");
    }
    return server;
}

// Adds to the clock. The error number when it cannot be done.
int AdjustClock(s64 microseconds) {
    const bool step = std::abs(microseconds) >= kStepMicroseconds;
    timex change{};
    // What is left of an earlier one is forgotten: it was measured again.
    change.modes = ADJ_OFFSET_SINGLESHOT;
    change.offset = step ? 0 : microseconds;
    if (adjtimex(&change) < 0) {
        return errno;
    }
    if (!step) {
        return 0;
    }
    change = {};
    change.modes = ADJ_SETOFFSET;
    change.time.tv_sec = microseconds / kMicroseconds;
    change.time.tv_usec = microseconds % kMicroseconds;
    if (change.time.tv_usec < 0) {
        --change.time.tv_sec;
        change.time.tv_usec += kMicroseconds;
    }
    return adjtimex(&change) < 0 ? errno : 0;
}

// The client of one family, from its start to its stop.
class Client {
 public:
    // Throws Refusal when chronyd cannot be run.
    Client(const Context& context, const TVimbraAddr& server, u32 interval, Notifier& notifier)
        : context_(context),
          server_(server),
          interval_(interval == 0 ? kIntervalUsual : std::max(interval, kIntervalMin)),
          notifier_(notifier),
          timer_(MakeTimer(context.loop, this)) {
        Ask();
    }

    Json Show() const {
        Json shown{{"family", FamilyKey(server_.wSinFamily)},
                   {"server", TextOf(server_)},
                   {"interval", interval_},
                   {"sets_clock", context_.setClock}};
        if (last_ && last_->error == 0) {
            shown["offset"] = last_->offset;
        } else if (last_) {
            shown["errno"] = last_->error;
        }
        return shown;
    }

 private:
    void Ask() {
        AskAgainAfter(interval_);
        if (const int error = NtpWayError(server_); error != 0) {
            Fail(error);
            return;
        }
        question_.emplace(context_, server_, [this](const NtpOutcome& outcome) {
            question_.reset();
            Take(outcome);
        });
    }

    void AskAgainAfter(u32 seconds) {
        uv_timer_start(
            timer_.get(), [](uv_timer_t* timer) { static_cast<Client*>(timer->data)->AskAgain(); },
            u64{seconds} * 1000, 0);
    }

    void AskAgain() {
        try {
            Ask();
        } catch (const Refusal& refusal) {
            Fail(refusal.Error());
        } catch (const std::exception& error) {
            LogWarning("NTP client: %s", error.what());
            Fail(EIO);
        }
    }

    void Take(const NtpOutcome& outcome) {
        int error = outcome.error;
        if (error == 0 && context_.setClock) {
            error = AdjustClock(outcome.offset);
        }
        if (error != 0) {
            Fail(error);
            return;
        }
        LogInfo("NTP server %s: the clock %s %lld us", TextOf(server_).c_str(),
                context_.setClock ? "was set by" : "lacks", static_cast<long long>(outcome.offset));
        last_ = outcome;
        TVimbraNtpcReport report = Report();
        report.llOffset = outcome.offset;
        report.bClockSet = context_.setClock;
        notifier_.Post(wire::kNtpcReport1, report);
    }

    void Fail(int error) {
        LogInfo("NTP server %s: %s", TextOf(server_).c_str(), std::strerror(error));
        last_ = NtpOutcome{error};
        TVimbraNtpcReport report = Report();
        report.dwError = static_cast<u32>(error);
        notifier_.Post(wire::kNtpcReport2, report);
        AskAgainAfter(std::min(interval_, kRetry));
    }

    TVimbraNtpcReport Report() const {
        TVimbraNtpcReport report{};
        report.tServerIp = server_;
        return report;
    }

    const Context& context_;
    TVimbraAddr server_;
    u32 interval_;
    Notifier& notifier_;
    UvHandle<uv_timer_t> timer_;
    std::optional<NtpOutcome> last_;
    std::optional<NtpQuestion> question_;
};

class NtpService : public Service {
 public:
    // A client goes on when nobody listens: it may keep the clock.
    explicit NtpService(const Context& context)
        : context_(context), families_([this](u16 family) {
              const bool v4 = family == VIMBRA_FAMILY_IPV4;
              return Family{
                  {context_.loop, v4 ? wire::kNtpcSocketIpv4 : wire::kNtpcSocketIpv6, [] {}},
                  {},
                  {}};
          }) {}

    void Attach(Registry& registry) override {
        registry.Change<wire::NtpcStartBody, PlainResult>(
            wire::kNtpcStart, "NTP client start",
            [this](const wire::NtpcStartBody& body) { return Start(body); });
        registry.Change<wire::NtpcStopBody, PlainResult>(
            wire::kNtpcStop, "NTP client stop", [this](const wire::NtpcStopBody& body) {
                Family& family = families_.Of(body.wSinFamily);
                family.client.reset();
                family.notifier.Clear();
                return PlainResult{0};
            });
        registry.QueryLater<TVimbraAddr, PlainResult>(
            wire::kNtpcCheck, "NTP server check",
            [this](const TVimbraAddr& server, const Answer<PlainResult>& answer) {
                Check(ServerOf(server), answer);
            });
    }

    void Save(Json& state) const override {
        Json& list = state["ntp_clients"] = Json::array();
        families_.ForEach([&list](u16, const Family& family) {
            if (family.client) {
                list.push_back(TextOfRecord(family.wish));
            }
        });
    }
    void Restore(const Json& state) override {
        for (const Json& each : state.value("ntp_clients", Json::array())) {
            Start(RecordFromText<wire::NtpcStartBody>(each.get<std::string>()));
        }
    }
    void Show(Json& answer) const override {
        Json& list = answer["ntp_clients"] = Json::array();
        families_.ForEach([&list](u16, const Family& family) {
            if (family.client) {
                list.push_back(family.client->Show());
            }
        });
    }
    void End(const Ending&) override {
        families_.ForEach([](u16, Family& family) { family.client.reset(); });
    }

 private:
    struct Family {
        Notifier notifier;
        std::unique_ptr<Client> client;
        // What it was started with.
        wire::NtpcStartBody wish{};
    };

    // A client that runs makes room for the new one, unless that cannot be had.
    PlainResult Start(const wire::NtpcStartBody& body) {
        Family& family = families_.Of(body.wSinFamily);
        const TVimbraAddr named = body.tServerIp;
        const TVimbraAddr server = ServerOf(named);
        if (server.wSinFamily != body.wSinFamily) {
            throw Refusal(EINVAL, "a server of another family");
        }
        family.notifier.Clear();
        family.client = std::make_unique<Client>(context_, server, u32{body.dwSyncTimeInterval},
                                                 family.notifier);
        family.wish = body;
        return {0};
    }

    // One question is enough for all who want to know the same.
    void Check(const TVimbraAddr& server, const Answer<PlainResult>& answer) {
        if (const int error = NtpWayError(server); error != 0) {
            throw Refusal(error);
        }
        const std::string name = TextOf(server);
        if (const auto found = checks_.find(name); found != checks_.end()) {
            found->second.answers.push_back(answer);
            return;
        }
        auto question = std::make_unique<NtpQuestion>(
            context_, server, [this, name](const NtpOutcome& outcome) { Tell(name, outcome); });
        checks_[name] = {std::move(question), {answer}};
    }

    void Tell(const std::string& name, const NtpOutcome& outcome) {
        const auto ended = checks_.extract(name);
        for (const Answer<PlainResult>& each : ended.mapped().answers) {
            if (outcome.error != 0) {
                each.Refuse(outcome.error);
            } else {
                each({0});
            }
        }
    }

    // A test of a server, and who waits for it.
    struct ServerTest {
        std::unique_ptr<NtpQuestion> question;
        std::vector<Answer<PlainResult>> answers;
    };

    Context context_;
    PerFamily<Family> families_;
    std::map<std::string, ServerTest> checks_;
};

}  // namespace

std::unique_ptr<Service> MakeNtpService(const Context& context) {
    return std::make_unique<NtpService>(context);
}

}  // namespace vimbrad
