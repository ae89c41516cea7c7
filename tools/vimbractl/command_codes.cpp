#include "commands.hpp"

namespace ctl {

namespace {

void ShowCodes(Tool& tool) {
    std::string text;
    Json codes = Json::Array();
    for (const ResultCode& known : ResultCodes()) {
        char line[128];
        snprintf(line, sizeof(line), "%6d  %s\n", known.code, known.meaning);
        text += line;
        codes.Append({{"code", known.code}, {"meaning", known.meaning}});
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
