// What the account calls put into the password file: names, passwords and hashes that applications
// give, HOME and SHELL that the environment gives. Whatever they are, an account is one line of
// seven fields, and the lines of others stay.
#include <crypt.h>
#include <vimbra/account.h>
#include <vimbra/net_account.h>

#include "files.hpp"
#include "input.hpp"

namespace {

// What the hash function gives; null where it is to fail.
const char* g_hash;

}  // namespace

// The real one takes a millisecond, and its hashes always fit.
extern "C" char* __wrap_crypt_r(const char*, const char*, crypt_data* work) {
    if (g_hash == nullptr || strlen(g_hash) >= sizeof(work->output)) {
        return nullptr;
    }
    return strcpy(work->output, g_hash);
}

namespace vimbra::tests {
namespace {

constexpr char kPasswd[] = "/etc/passwd";
constexpr char kBefore[] = "root:x:0:0:root:/root:/bin/sh\nother:y:7:7::/:/bin/sh\n";

bool IsAccount(const std::string& line) {
    return std::count(line.begin(), line.end(), ':') == 6 &&
           std::find_if(line.begin(), line.end(),
                        [](unsigned char each) { return each < ' ' || each == 0x7f; }) ==
               line.end() - 1 &&
           line.back() == '\n';
}

// After an account was added, or was not.
void CheckAdded(s32 result, const std::string& user) {
    const std::string after = Read(kPasswd);
    if (result != VIMBRA_OK) {
        Require(after == kBefore);
        return;
    }
    Require(after.starts_with(kBefore));
    const std::string line = after.substr(sizeof(kBefore) - 1);
    Require(IsAccount(line) && line.starts_with(user + ":"));
}

void Reset() {
    Write(kPasswd, kBefore, sizeof(kBefore) - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Prepare();
    Input input(data, size);
    const std::string home = input.Text();
    const std::string shell = input.Text();
    const std::string user = input.Text();
    const std::string hash = input.Text();
    setenv("HOME", home.c_str(), 1);
    setenv("SHELL", shell.c_str(), 1);
    const ExactText name(user);
    const ExactText password(input.Text());
    const ExactText exactHash(hash);
    g_hash = hash.empty() ? nullptr : exactHash.Get();

    for (const auto add : {add_user_to_pwd_file, add_common_user_to_pwd_file}) {
        Reset();
        CheckAdded(add(name.Get(), exactHash.Get()), user);
    }
    for (const auto add : {VimbraAddNetUser, NetAddNetUser, NetAddNetCommonUser}) {
        Reset();
        const s32 result = add(name.Get(), password.Get());
        CheckAdded(result, user);
        if (result == VIMBRA_OK) {
            Require(VimbraModifyNetPwd(name.Get(), password.Get()) == VIMBRA_OK);
            CheckAdded(VIMBRA_OK, user);
        }
    }
    Reset();
    VimbraDelNetUser(name.Get());
    Require(Read(kPasswd) == kBefore || user == "other");
    return 0;
}

}  // namespace vimbra::tests
