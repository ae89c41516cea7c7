#include "ctl_run.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <vimbra/bed.hpp>

namespace vimbra::tests {
namespace {

// A file rather than a pipe: it holds any amount while nobody reads.
std::string TakeFile(const std::string& path) {
    std::string text = bed::ReadFile(path);
    unlink(path.c_str());
    return text;
}

}  // namespace

nlohmann::json Outcome::Json() const {
    return nlohmann::json::parse(out, nullptr, false);
}

nlohmann::json Outcome::Error() const {
    return nlohmann::json::parse(err, nullptr, false).value("error", nlohmann::json());
}

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
    return stream << "status " << outcome.status << "\nout: " << outcome.out
                  << "\nerr: " << outcome.err;
}

Outcome CtlWords(const std::vector<std::string>& arguments, const char* stdoutPath) {
    const std::string out = "/tmp/ctl.out";
    const std::string err = "/tmp/ctl.err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO,
                                     stdoutPath != nullptr ? stdoutPath : out.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<char*> argv = {const_cast<char*>(VIMBRACTL)};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    const int error = posix_spawn(&child, VIMBRACTL, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot run " VIMBRACTL);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    Outcome outcome;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    outcome.out = stdoutPath != nullptr ? "" : TakeFile(out);
    outcome.err = TakeFile(err);
    return outcome;
}

Outcome Ctl(const std::string& words, const char* stdoutPath) {
    std::istringstream stream(words);
    std::vector<std::string> arguments;
    for (std::string word; stream >> word;) {
        arguments.push_back(word);
    }
    return CtlWords(arguments, stdoutPath);
}

}  // namespace vimbra::tests
