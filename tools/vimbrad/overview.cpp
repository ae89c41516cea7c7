#include "overview.hpp"

#include <unistd.h>
#include <vimbra/version.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "log.hpp"
#include "missing.hpp"

namespace vimbrad {
namespace {

u64 Seconds() {
    return uv_hrtime() / 1'000'000'000;
}

}  // namespace

Overview::Overview(const State::Services& services, const Registry& registry, const Server& server)
    : services_(services), registry_(registry), server_(server), start_(Seconds()) {}

// All is looked at for one part of it: nobody asks often, and there is one way to tell.
Json Overview::Answer(const Json& question) const {
    const std::string what = question.value("ask", "");
    if (what == "refusal") {
        return {{what, LastRefusal(question.value("pid", 0))}};
    }
    Json all{{"daemon", Daemon()}, {"watches", Json::array()}};
    for (const auto& service : services_) {
        service->Show(all);
    }
    if (what == "status") {
        return all;
    }
    if (!all.contains(what)) {
        throw Refusal(EINVAL, "no such question");
    }
    return {{what, std::move(all[what])}};
}

Json Overview::Daemon() const {
    Json missing = Json::array();
    for (const MissingThing& each : MissingThings()) {
        missing.push_back({{"thing", each.thing}, {"needed_for", each.neededFor}});
    }
    return {{"version", VIMBRA_VERSION_TEXT},
            {"pid", getpid()},
            {"uptime", Seconds() - start_},
            {"log_level", static_cast<unsigned>(CurrentLogLevel())},
            {"requests", server_.Connections()},
            {"lost_log_lines", LostLogLines()},
            {"missing", std::move(missing)}};
}

Json Overview::LastRefusal(pid_t pid) const {
    const auto& refusals = registry_.Refusals();
    const auto found = std::find_if(refusals.rbegin(), refusals.rend(),
                                    [pid](const auto& each) { return each.peer.pid == pid; });
    if (found == refusals.rend()) {
        return Json::object();
    }
    return {{"request", found->what}, {"errno", found->error}, {"why", found->why}};
}

}  // namespace vimbrad
