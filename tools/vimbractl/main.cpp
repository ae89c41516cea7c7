// vimbractl: every operation of the library from a command line.
#include <unistd.h>
#include <vimbra/log.h>
#include <vimbra/version.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <sstream>

#include "command_line.hpp"
#include "commands.hpp"
#include "completion.hpp"
#include "exit_status.hpp"
#include "interfaces.hpp"
#include "status_socket.hpp"
#include "tool.hpp"

namespace {

using namespace ctl;

constexpr const char* kAbout =
    "Shows and sets the networking of this device, through the Vimbra library.";

// Help for a console of 80 columns.
class HelpFormat : public CLI::Formatter {
 public:
    HelpFormat() {
        label("Positionals", "Arguments");
        label("OPTIONS", "options");
        label("SUBCOMMAND", "COMMAND");
    }

    std::string make_option(const CLI::Option* option, bool isPositional) const override {
        std::string name = isPositional ? option->get_name(true) : option->get_name(false, true);
        const size_t comma = name.find(',');
        if (comma != std::string::npos) {
            name.insert(comma + 1, " ");
        }
        const bool takesValue = option->get_items_expected_max() > 0;
        if (!isPositional && takesValue) {
            name += " " + Upper(name.substr(name.find_first_not_of('-')));
        }
        return Entry(name, option->get_description());
    }

    std::string make_subcommand(const CLI::App* command) const override {
        return Entry(command->get_name(), command->get_description());
    }

 private:
    static constexpr size_t kNameWidth = 22;
    static constexpr size_t kWidth = 79;

    static std::string Upper(std::string text) {
        for (char& c : text) {
            c = c == '-' ? '_' : static_cast<char>(toupper(static_cast<unsigned char>(c)));
        }
        return text;
    }

    // A name, and beside it what it means in as many lines as it takes.
    static std::string Entry(const std::string& name, const std::string& about) {
        std::string text = "  " + name;
        size_t column = text.size();
        std::istringstream words(about);
        std::string word;
        bool isFirst = true;
        while (words >> word) {
            if (isFirst && column < kNameWidth) {
                text.append(kNameWidth - column, ' ');
                column = kNameWidth;
            } else if (isFirst || column + 1 + word.size() > kWidth) {
                text += "\n" + std::string(kNameWidth, ' ');
                column = kNameWidth;
            } else {
                text += ' ';
                column++;
            }
            text += word;
            column += word.size();
            isFirst = false;
        }
        return text + "\n";
    }
};

// The command that the line got to, such as "addr add".
const CLI::App& Deepest(const CLI::App& root) {
    const CLI::App* app = &root;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
    }
    return *app;
}

std::string CommandName(const CLI::App& app) {
    std::string name;
    for (const CLI::App* at = &app; at->get_parent() != nullptr; at = at->get_parent()) {
        name = at->get_name() + (name.empty() ? "" : " ") + name;
    }
    return name;
}

std::string Joined(const std::string& program, const std::string& command) {
    return command.empty() ? program : program + " " + command;
}

Failure UsageFailure(const CLI::App& root, const CLI::ParseError& error) {
    const CLI::App& command = Deepest(root);
    const auto following = CommandsBelow(command);
    std::string message = error.what();
    if (!following.empty() && error.get_name() != "ValidationError") {
        const std::vector<std::string> rest = command.remaining();
        message =
            rest.empty() ? "a command is missing" : "\"" + rest.front() + "\" is not a command";
        const char* separator = "; accepted: ";
        for (const CLI::App* one : following) {
            message += separator + one->get_name();
            separator = ", ";
        }
    }
    return {ExitStatus::kUsage, message, std::nullopt, std::nullopt};
}

// An interface of the command line that does not exist; empty if all do.
std::string MissingInterface(const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_type_name() != kInterfaceType) {
            continue;
        }
        for (const std::string& name : option->results()) {
            if (name != "-" && !InterfaceExists(name)) {
                return name;
            }
        }
    }
    return "";
}

// What is refused about an interface that does not exist is refused for that, whoever found it out:
// scripts see one status.
Failure ForInterface(Failure failure, const CLI::App& command) {
    const bool mayBe =
        failure.status == ExitStatus::kRefused || failure.status == ExitStatus::kNotSo;
    const std::string missing = mayBe ? MissingInterface(command) : "";
    if (!missing.empty()) {
        failure.status = ExitStatus::kNotSo;
        failure.message = "interface: \"" + missing + "\" does not exist: " + failure.message;
    }
    return failure;
}

// The daemon's number with its own words for the reason, where it can be asked for them.
Failure WithReason(Failure failure) {
    const std::string why = failure.daemon ? StatusSocket("").WhyRefused() : "";
    // The kernel's reason may be all that it knows.
    if (failure.message.find(why) == std::string::npos) {
        failure.message += ": " + why;
    }
    return failure;
}

void Report(const Failure& failure, const std::string& command, bool json) {
    if (!json) {
        const Painter colours(ShowsColours(STDERR_FILENO));
        fprintf(stderr, "%s: %s\n", colours.Bad(Joined("vimbractl", command)).c_str(),
                failure.message.c_str());
        return;
    }
    Json error = {{"command", command},
                  {"status", static_cast<int>(failure.status)},
                  {"message", failure.message}};
    if (failure.result) {
        error.Set("result", *failure.result);
    }
    if (failure.daemon) {
        error.Set("daemon", *failure.daemon);
    }
    fprintf(stderr, "%s\n", Json{{"error", error}}.Text().c_str());
}

void Describe(CLI::App& root, Tool& tool) {
    root.formatter(std::make_shared<HelpFormat>());
    root.set_help_flag("-h,--help", "Print this help");
    root.set_version_flag("-V,--version", VIMBRA_VERSION_TEXT, "Print the version");
    root.add_flag("-j,--json", tool.json, "Print JSON, errors included");
    root.add_flag("-v,--verbose", tool.verbose, "Show the library's log on standard error");
    for (const AddGroup add : Groups()) {
        add(root, tool);
    }
    root.require_subcommand(1);
    for (CLI::App* group : root.get_subcommands([](const CLI::App*) { return true; })) {
        if (!CommandsBelow(*group).empty()) {
            group->require_subcommand(1);
        }
    }
    root.footer(
        "A command may be abbreviated as long as one is meant.\n"
        "'vimbractl COMMAND --help' explains a command, with an example.\n\n" +
        ExitStatusHelp());
}

// Throws what the parser and the commands throw.
void Parse(CLI::App& root, Tool& tool, const Words& words) {
    if (!words.empty() && words.front() == kCompleteCommand) {
        tool.ShowText(Completions(root, Words(words.begin() + 1, words.end())));
        tool.Finish();
        return;
    }
    tool.json = std::ranges::any_of(
        words, [](const std::string& word) { return word == "-j" || word == "--json"; });
    Words whole = WrittenOut(root, words);
    std::ranges::reverse(whole);  // as the parser wants them
    try {
        root.parse(whole);
    } catch (const CLI::CallForHelp&) {
        tool.ShowText(root.help());
    } catch (const CLI::CallForVersion&) {
        tool.Show("vimbractl " VIMBRA_VERSION_TEXT, Json{{"version", VIMBRA_VERSION_TEXT}});
    }
    tool.Finish();
}

int Run(const Words& words, LibraryOutput& library) {
    Tool tool(library);
    CLI::App root(kAbout, "vimbractl");
    Describe(root, tool);
    try {
        Parse(root, tool, words);
        return static_cast<int>(ExitStatus::kDone);
    } catch (const CLI::ParseError& error) {
        const Failure failure = UsageFailure(root, error);
        const std::string command = CommandName(Deepest(root));
        Report(failure, command, tool.json);
        if (!tool.json) {
            fprintf(stderr, "Try '%s --help'.\n", Joined("vimbractl", command).c_str());
        }
        return static_cast<int>(failure.status);
    } catch (const CommandFailed& failed) {
        const Failure failure = ForInterface(WithReason(failed.Why()), Deepest(root));
        Report(failure, CommandName(Deepest(root)), tool.json);
        return static_cast<int>(failure.status);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // The library logs everything from the start. This is about this process alone; the daemon's
    // level is left as it is.
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    try {
        static LibraryOutput library;
        return Run(Words(argv + 1, argv + argc), library);
    } catch (const std::exception& error) {
        fprintf(stderr, "vimbractl: %s\n", error.what());
        return static_cast<int>(ExitStatus::kFailed);
    }
}
