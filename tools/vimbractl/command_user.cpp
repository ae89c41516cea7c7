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

// How many accounts have the name is what the library's refusal does not say in words.
void Change(Tool& tool, std::string& name, Wanted wanted, const std::function<s32()>& call) {
    auto failure = tool.Try(call);
    if (!failure) {
        tool.Done();
        return;
    }
    s32 found = VIMBRA_USER_ONE;
    tool.Try([&] {
        found = check_user_in_pwd_file(name.data());
        return VIMBRA_OK;
    });
    if (found == VIMBRA_USER_MANY) {
        failure->message = "several accounts are called " + name;
    } else if (found == VIMBRA_USER_ONE && wanted == Wanted::kNone) {
        failure->message = "there is an account called " + name + " already";
    } else if (found == VIMBRA_USER_NONE && wanted == Wanted::kOne) {
        failure->message = "there is no account called " + name;
        failure->status = ExitStatus::kNotSo;
    }
    throw CommandFailed(*failure);
}

void Add(Tool& tool, std::string& name) {
    std::string password = ReadNewPassword();
    Change(tool, name, Wanted::kNone,
           [&] { return VimbraAddNetUser(name.data(), password.data()); });
}

void SetPassword(Tool& tool, std::string& name) {
    std::string password = ReadNewPassword();
    Change(tool, name, Wanted::kOne,
           [&] { return VimbraModifyNetPwd(name.data(), password.data()); });
}

void Delete(Tool& tool, std::string& name) {
    Change(tool, name, Wanted::kOne, [&] { return VimbraDelNetUser(name.data()); });
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
