#include <vimbra/failure.h>

#include "commands.hpp"

namespace ctl {

namespace {

// In ascending order.
constexpr s32 kCodes[] = {-1,   0,    1101, 1102, 1103, 1105, 1106, 1108, 1109,
                          1111, 1201, 1301, 1302, 1303, 1304, 1305, 1403};

void ShowCodes(Tool& tool) {
    std::string text;
    Json codes = Json::Array();
    for (const s32 code : kCodes) {
        const char* const meaning = VimbraResultText(code);
        char line[128];
        snprintf(line, sizeof(line), "%6d  %s\n", code, meaning);
        text += line;
        codes.Append({{"code", code}, {"meaning", meaning}});
    }
    tool.Show(text, Json{{"codes", codes}});
}

}  // namespace

void AddCodesCommand(CLI::App& root, Tool& tool) {
    AddCommand(root, tool,
               {"codes", "Show the library's result codes and what they mean.", "codes"},
               [&tool] { ShowCodes(tool); });
}

}  // namespace ctl
