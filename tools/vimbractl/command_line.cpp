#include "command_line.hpp"

#include <CLI/CLI.hpp>

#include "tool.hpp"

namespace ctl {

namespace {

[[noreturn]] void Refuse(const std::string& word, const std::vector<const CLI::App*>& meant) {
    std::string message = "\"" + word + "\" is short for several commands";
    const char* separator = ": ";
    for (const CLI::App* command : meant) {
        message += separator + command->get_name();
        separator = ", ";
    }
    throw CommandFailed(ExitStatus::kUsage, message);
}

}  // namespace

std::vector<const CLI::App*> CommandsBelow(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); });
}

std::vector<const CLI::App*> CommandsMeant(const CLI::App& parent, const std::string& word) {
    std::vector<const CLI::App*> meant;
    for (const CLI::App* command : CommandsBelow(parent)) {
        if (command->get_name() == word) {
            return {command};
        }
        if (command->get_name().starts_with(word)) {
            meant.push_back(command);
        }
    }
    return meant;
}

Words WrittenOut(const CLI::App& root, const Words& words) {
    const CLI::App* command = &root;
    Words commands;
    Words options;
    auto word = words.begin();
    for (; word != words.end() && !CommandsBelow(*command).empty(); ++word) {
        if (word->starts_with('-')) {
            options.push_back(*word);
            continue;
        }
        const auto meant = CommandsMeant(*command, *word);
        if (meant.size() > 1) {
            Refuse(*word, meant);
        }
        if (meant.empty()) {
            break;
        }
        command = meant.front();
        commands.push_back(command->get_name());
    }
    // Before commands that do not follow, the root takes them.
    commands.insert(CommandsBelow(*command).empty() ? commands.end() : commands.begin(),
                    options.begin(), options.end());
    commands.insert(commands.end(), word, words.end());
    return commands;
}

}  // namespace ctl
