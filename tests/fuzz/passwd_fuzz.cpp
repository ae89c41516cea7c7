// The password file: an account is added, changed and taken out again, and all others stay what
// they were.
#include <vimbra/account.h>
#include <vimbra/service.h>

#include <cstring>

#include "files.hpp"

namespace vimbra::tests {
namespace {

constexpr char kPasswd[] = "/etc/passwd";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Prepare();
    setenv("HOME", "/h", 1);
    setenv("SHELL", "/s", 1);
    Write(kPasswd, data, size);
    const std::string before = Read(kPasswd);
    char name[] = "fuzz";
    char root[] = "root";
    char hash[] = "hash";
    char other[VIMBRA_USER_NAME_SIZE];
    if (IsLastRootUser(name, other) == 0) {
        Require(strnlen(other, sizeof(other)) < sizeof(other) && strcmp(other, name) != 0);
    }
    free(GetRootUser());
    const s32 present = check_user_in_pwd_file(name);
    Require(present == -1 || (present >= 1 && present <= 3));

    Require(del_user_from_pwd_file(name) == 0);
    const std::string without = Read(kPasswd);
    Require(present != VIMBRA_USER_NONE || without == before);
    Require(add_user_to_pwd_file(name, hash) == 0);
    const std::string with = Read(kPasswd);
    Require(with.starts_with(without) && with.ends_with(":tolvane:/h:/s\n"));
    if (present != -1) {
        Require(check_user_in_pwd_file(name) == VIMBRA_USER_ONE);
        char changed[] = "changed";
        Require(modify_user_in_pwd_file(name, changed) == 0);
        const std::string text = Read(kPasswd);
        Require(text.size() == with.size() + 3 && text.starts_with(without));
    }
    Require(del_user_from_pwd_file(name) == 0);
    std::string after = Read(kPasswd);
    Require(after == without || after == without + "\n");

    Write(kPasswd, data, size);
    if (modify_user_in_pwd_file(root, hash) != 0) {
        Require(Read(kPasswd) == before);
    }
    return 0;
}

}  // namespace vimbra::tests
