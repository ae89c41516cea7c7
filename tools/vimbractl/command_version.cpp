#include <vimbra/common.h>

#include <array>
#include <cstdio>

#include "commands.hpp"

namespace ctl {

namespace {

constexpr u32 kTextMax = 256;

void ShowVersion(Tool& tool) {
    std::array<char, kTextMax> text = {};
    tool.Call([&text] { return VimbraQueryVersion(text.data(), text.size()); });
    // "... V2.0.3.00000001 (user@host) ..."
    int version[3] = {};
    unsigned build = 0;
    if (sscanf(text.data(), "%*[^:]: V%d.%d.%d.%8x", &version[0], &version[1], &version[2],
               &build) != 4) {
        throw CommandFailed(ExitStatus::kFailed, std::string("version text: ") + text.data());
    }
    char number[40];
    snprintf(number, sizeof(number), "%d.%d.%d", version[0], version[1], version[2]);
    tool.Show(text.data(), Json{{"version", number}, {"build", build}, {"text", text.data()}});
}

}  // namespace

void AddVersionCommand(CLI::App& root, Tool& tool) {
    AddCommand(root, tool, {"version", "Show the library's version.", "version"},
               [&tool] { ShowVersion(tool); });
}

}  // namespace ctl
