// PPPoE links: one of each family, or a common one of both.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>

#include "api/api_pppoe/pppoe_wire.hpp"
#include "kept_program.hpp"
#include "lib/base/fd.hpp"
#include "log.hpp"
#include "missing.hpp"
#include "netlink.hpp"
#include "pppd_options.hpp"
#include "pppoe_link.hpp"
#include "record_text.hpp"
#include "services/services.hpp"

namespace vimbrad {
namespace {

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

// pppd would find out, too, but nobody would be told why.
void CheckKernel() {
    if (vimbra::Fd(open, kPppDevice, O_RDWR | O_CLOEXEC)) {
        return;
    }
    const int error = errno;
    if (error == ENOENT || error == ENODEV || error == ENXIO) {
        RefuseFor(kPppDevice, EOPNOTSUPP);
    }
    throw Refusal(error, std::string(kPppDevice) + ": " + std::strerror(error));
}

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
        for (const auto& [_, link] : links_) {
            if (!link->IsOver() && !link->Stopping()) {
                list.push_back(link->Save());
            }
        }
    }
    // A link that was let live goes on, and a family is dialled only when its earlier link is down.
    void Restore(const Json& state) override {
        const Json saved = state.value("pppoe_links", Json::array());
        for (const Json& each : saved) {
            TakeUp(each);
        }
        KeptProgram::EndOthers(context_.runDir);
        for (const Json& each : saved) {
            DialLost(each);
        }
    }
    void Show(Json& answer) const override {
        Json& list = answer["pppoe_links"] = Json::array();
        for (const auto& [_, link] : links_) {
            list.push_back(link->Show());
        }
    }
    void Keep() override {
        for (const auto& [_, link] : links_) {
            link->LetLive();
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

    void TakeUp(const Json& saved) {
        if (!PppoeLink::WasLetLive(saved)) {
            return;
        }
        try {
            auto link = std::make_unique<PppoeLink>(context_, saved);
            const u16 family = link->Family();
            LogInfo("PPPoE link for %s: is taken up", FamilyTitle(family));
            links_.emplace(family, std::move(link));
        } catch (const std::exception& error) {
            LogWarning("PPPoE link is not taken up: %s", error.what());
        }
    }

    void DialLost(const Json& saved) {
        const auto body =
            RecordFromText<wire::PppoeStartBody>(saved.at("start").get<std::string>());
        const u16 family = body.wSinFamily;
        CheckFamily(family);
        if (std::ranges::any_of(
                links_, [family](const auto& each) { return Overlap(each.first, family); })) {
            return;
        }
        try {
            Run(family, body.tConfig);
        } catch (const Refusal& refusal) {
            LogWarning("PPPoE link for %s: not taken up: %s", FamilyTitle(family), refusal.what());
            return;
        }
        if (saved.value("up", false)) {
            links_.at(family)->TellLost();
        }
    }

    // What cannot be dialled leaves the link that runs alone.
    void Start(u16 family, const PppoeConfig& config, const Answer<wire::PlainResult>& answer) {
        CheckFamily(family);
        PppdOptions(family, config, "", "");
        Netlink().FindLink(NameOf(config.devname));
        CheckKernel();
        CheckProgram("pppd");
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
