#include "state.hpp"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "child.hpp"
#include "log.hpp"
#include "plain_json.hpp"

namespace vimbrad {
namespace {

constexpr int kFormat = 1;
constexpr char kBootId[] = "/proc/sys/kernel/random/boot_id";
constexpr auto kProgramsMs = std::chrono::milliseconds(8'000);
constexpr auto kLookMs = std::chrono::milliseconds(20);

std::string ThisBoot() {
    std::string id;
    std::ifstream file(kBootId);
    std::getline(file, id);
    return id;
}

// A number is used again; together with the time at which it began it names one process.
struct ProcessId {
    pid_t pid;
    std::string start;

    bool Lives() const { return !start.empty() && StartOf(pid) == start; }

    static std::string StartOf(pid_t pid) {
        std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
        std::string text;
        std::getline(file, text);
        // Behind the name, which may hold anything.
        std::istringstream words(text.substr(std::min(text.rfind(')') + 1, text.size())));
        constexpr int kStartIndex = 20;
        std::string word;
        for (int i = 0; i < kStartIndex; ++i) {
            words >> word;
        }
        return word;
    }
};

Json ProgramsOfOurs() {
    Json list = Json::array();
    for (const pid_t pid : Child::Running()) {
        list.push_back({{"pid", pid}, {"start", ProcessId::StartOf(pid)}});
    }
    return list;
}

// They die with their daemon, which may take a moment. Those that stay are killed.
void AwaitProgramsOf(const Json& state) {
    std::vector<ProcessId> left;
    for (const Json& each : state.value("programs", Json::array())) {
        left.push_back({each.at("pid").get<pid_t>(), each.at("start").get<std::string>()});
    }
    const auto deadline = std::chrono::steady_clock::now() + kProgramsMs;
    for (;;) {
        std::erase_if(left, [](const ProcessId& each) { return !each.Lives(); });
        if (left.empty() || std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(kLookMs);
    }
    for (const ProcessId& each : left) {
        LogWarning("program %d of an earlier life does not end: killed", each.pid);
        kill(each.pid, SIGKILL);
    }
}

// Null when there is none of this boot. Throws what the JSON library does when it is not ours.
Json ReadChecked(const RunDirectory& runDir) {
    const std::string text = runDir.Read(kStateName);
    if (text.empty()) {
        return nullptr;
    }
    Json state = ParsePlainJson(text);
    if (!state.is_object() || state.value("format", 0) != kFormat) {
        LogWarning("the state of an earlier life cannot be read: forgotten");
        return nullptr;
    }
    if (state.value("boot", "") != ThisBoot()) {
        LogInfo("the state of an earlier life is from before the boot: forgotten");
        return nullptr;
    }
    return state;
}

// Once the programs of the earlier life have gone.
Json Read(const RunDirectory& runDir) {
    try {
        Json state = ReadChecked(runDir);
        if (!state.is_null()) {
            AwaitProgramsOf(state);
        }
        return state;
    } catch (const Json::exception& error) {
        LogWarning("the state of an earlier life is forgotten: %s", error.what());
        return nullptr;
    }
}

}  // namespace

void State::Restore() {
    const Json state = Read(runDir_);
    if (state.is_null()) {
        return;
    }
    LogInfo("taking up what an earlier life left");
    for (const auto& service : services_) {
        try {
            service->Restore(state);
        } catch (const std::exception& error) {
            LogWarning("some of what an earlier life left is forgotten: %s", error.what());
        }
    }
    Save();
}

void State::Forget() {
    const Json state = Read(runDir_);
    if (state.is_null()) {
        return;
    }
    for (const auto& service : services_) {
        try {
            service->Forget(state);
        } catch (const std::exception& error) {
            LogWarning("some of what an earlier life left stays: %s", error.what());
        }
    }
    Remove();
}

void State::Save() {
    Json state{{"format", kFormat}, {"boot", ThisBoot()}, {"programs", ProgramsOfOurs()}};
    for (const auto& service : services_) {
        service->Save(state);
    }
    std::string text = state.dump(1) + "\n";
    if (text == written_) {
        return;
    }
    try {
        runDir_.Replace(kStateName, text, 0600);
        written_ = std::move(text);
        failed_ = false;
    } catch (const Refusal& refusal) {
        if (!std::exchange(failed_, true)) {
            LogError("changes are not kept for a later life: %s", refusal.what());
        }
    }
}

}  // namespace vimbrad
