#include "commands.hpp"
#include "status_socket.hpp"

namespace ctl {

namespace {

struct Arguments {
    std::string runDir;
};

std::string WordsOf(std::string name) {
    for (char& c : name) {
        c = c == '_' ? ' ' : c;
    }
    return name;
}

// "interface eth0, state bound": whatever a daemon of another version tells has a place here.
std::string RecordText(const Json& record) {
    if (!record.IsObject() && !record.IsList()) {
        return record.Plain();
    }
    std::string text;
    const char* separator = "";
    for (const std::string& name : record.Names()) {
        const Json field = record.At(name.c_str());
        const bool isRecord = field.IsObject() || field.IsList();
        text += separator + WordsOf(name) + " " +
                (isRecord ? "(" + RecordText(field) + ")" : RecordText(field));
        separator = ", ";
    }
    for (const Json& item : record.Items()) {
        text += separator + RecordText(item);
        separator = item.IsObject() ? "; " : ", ";
    }
    return text;
}

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
