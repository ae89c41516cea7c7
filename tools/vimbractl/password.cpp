#include "password.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "tool.hpp"

namespace ctl {

namespace {

std::string Ask(const char* prompt) {
    // No echo, and the terminal is as before when it returns; its memory is its own.
    char* typed = getpass(prompt);
    if (typed == nullptr) {
        throw CommandFailed(ExitStatus::kFailed,
                            std::string("the password cannot be read: ") + strerror(errno));
    }
    std::string password = typed;
    explicit_bzero(typed, password.size());
    return password;
}

std::string AskTwice() {
    std::string password = Ask("New password: ");
    if (Ask("Again: ") != password) {
        throw CommandFailed(ExitStatus::kUsage, "password: the two are not the same");
    }
    return password;
}

std::string FirstLine() {
    std::string line;
    std::getline(std::cin, line);
    return line;
}

std::string Read(std::string (*ask)()) {
    std::string password = isatty(STDIN_FILENO) != 0 ? ask() : FirstLine();
    if (password.empty() || password.find('\0') != std::string::npos) {
        throw CommandFailed(ExitStatus::kUsage,
                            "password: refused; accepted: a line of text that is not empty, "
                            "on standard input or at the prompt");
    }
    return password;
}

}  // namespace

std::string ReadPassword() {
    return Read([] { return Ask("Password: "); });
}

std::string ReadNewPassword() {
    return Read(AskTwice);
}

}  // namespace ctl
