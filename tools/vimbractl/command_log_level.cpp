#include <vimbra/common.h>
#include <vimbra/log.h>

#include <array>
#include <charconv>

#include "commands.hpp"

namespace ctl {

namespace {

constexpr std::array kNames = {"none", "alert", "error", "warning", "info", "debug"};
constexpr const char* kAccepted =
    "0 to 5, or none, alert (silent too), error, warning, info, debug";

bool ParseLevel(const std::string& text, u32& level) {
    for (u32 i = 0; i < kNames.size(); i++) {
        if (text == kNames[i]) {
            level = i;
            return true;
        }
    }
    return ParseNumber(text, level) && level <= VIMBRA_LEVEL_DEBUG;
}

const Kind<u32> kLevel = {kAccepted, ParseLevel, "{none,alert,error,warning,info,debug}"};

}  // namespace

void AddLogLevelCommand(CLI::App& root, Tool& tool) {
    auto level = std::make_shared<u32>();
    CLI::App& command = AddCommand(
        root, tool,
        {"log-level", "Set how much the network daemon logs.", "log-level warning\nlog-level 5"},
        [&tool, level] {
            tool.Call([&level] { return VimbraLogSwitch(*level); }, kAccepted);
            tool.Done();
        });
    AddArgument(command, "level", *level, kLevel, "The level").Required();
}

}  // namespace ctl
