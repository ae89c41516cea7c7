#include "commands.hpp"
#include "record_text.hpp"
#include "status_socket.hpp"

namespace ctl {

namespace {

struct Arguments {
    std::string runDir;
};

void ShowStatus(Tool& tool, Arguments& arguments) {
    const Json answer = StatusSocket(arguments.runDir).Ask("status");
    std::string text;
    for (const std::string& name : answer.Names()) {
        const Json member = answer.At(name.c_str());
        text += WordsOf(name) + ":";
        if (member.IsObject() || member.Items().empty()) {
            const std::string record = RecordText(member);
            text += " " + (record.empty() || member.IsList() ? "none" : record);
        }
        for (const Json& item : member.Items()) {
            text += "\n  " + RecordText(item);
        }
        text += "\n";
    }
    tool.Show(text, answer);
}

}  // namespace

void AddStatusCommand(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(root, tool);
    CLI::App& status = commands.Add(
        {"status", "Show what the companion daemon does and knows, at a glance; it lets root ask.",
         "status\nstatus --json"},
        ShowStatus);
    AddRunDirArgument(status, commands->runDir);
}

}  // namespace ctl
