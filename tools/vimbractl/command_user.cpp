#include <vimbra/account.h>

#include <algorithm>

#include "commands.hpp"
#include "password.hpp"

namespace ctl {

namespace {

bool ParseUser(const std::string& text, std::string& name) {
    name = text;
    return !text.empty() && text.size() < VIMBRA_USER_NAME_SIZE &&
           std::none_of(text.begin(), text.end(),
                        [](unsigned char c) { return c < ' ' || c == ':' || c == 0x7f; });
}

const Kind<std::string> kUser = {"a name of 1 to 63 characters without a colon", ParseUser};

enum class Wanted { kNone, kOne };

// VIMBRA_USER_NONE, ONE or MANY; or a failure of which the change itself will tell.
s32 AccountsCalled(Tool& tool, std::string& name) {
    s32 found = VIMBRA_ERR_GENERAL;
    tool.Try([&] {
        found = check_user_in_pwd_file(name.data());
        return VIMBRA_OK;
    });
    return found;
}

// How many accounts have the name is what the library's refusal does not say in words; after a
// change that went half way it is too late to ask.
void Expect(Tool& tool, std::string& name, Wanted wanted) {
    const s32 found = AccountsCalled(tool, name);
    if (found == VIMBRA_USER_MANY) {
        throw CommandFailed(ExitStatus::kFailed, "several accounts are called " + name);
    }
    if (found == VIMBRA_USER_ONE && wanted == Wanted::kNone) {
        throw CommandFailed(ExitStatus::kFailed, "there is an account called " + name + " already");
    }
    if (found == VIMBRA_USER_NONE && wanted == Wanted::kOne) {
        throw CommandFailed(ExitStatus::kNotSo, "there is no account called " + name);
    }
}

void Add(Tool& tool, std::string& name) {
    Expect(tool, name, Wanted::kNone);
    std::string password = ReadNewPassword();
    tool.Call([&] { return VimbraAddNetUser(name.data(), password.data()); });
    tool.Done();
}

void SetPassword(Tool& tool, std::string& name) {
    Expect(tool, name, Wanted::kOne);
    std::string password = ReadNewPassword();
    tool.Call([&] { return VimbraModifyNetPwd(name.data(), password.data()); });
    tool.Done();
}

void Delete(Tool& tool, std::string& name) {
    Expect(tool, name, Wanted::kOne);
    auto failure = tool.Try([&] { return VimbraDelNetUser(name.data()); });
    if (failure && AccountsCalled(tool, name) == VIMBRA_USER_NONE) {
        failure->message =
            "the account is deleted, but inetd's services are not in order: " + failure->message;
    }
    if (failure) {
        throw CommandFailed(*failure);
    }
    tool.Done();
}

}  // namespace

void AddUserCommands(CLI::App& root, Tool& tool) {
    CLI::App& group = AddGroupCommand(root, "user", "Login accounts of the system.");
    auto name = std::make_shared<std::string>();
    const auto command = [&](const char* word, const std::string& about, const char* example,
                             void (*run)(Tool&, std::string&)) {
        CLI::App& added = AddCommand(group, tool, {word, about.c_str(), example},
                                     [&tool, name, run] { run(tool, *name); });
        AddArgument(added, "name", *name, kUser, "The account").Required();
    };
    command("add",
            std::string("Add an account with the user and group id of whoever runs this.") +
                kPasswordText,
            "user add operator\nuser add operator <password-file", Add);
    command("passwd", std::string("Give an account a new password.") + kPasswordText,
            "user passwd operator\nuser passwd operator <password-file", SetPassword);
    command("delete",
            "Delete an account. Another account with user id 0 has to remain; it takes over\n"
            "the services of inetd.",
            "user delete operator", Delete);
}

}  // namespace ctl
