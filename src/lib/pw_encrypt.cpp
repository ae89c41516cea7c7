#include "lib/pw_encrypt.hpp"

#include <cstdio>

#include "lib/base/cancel.hpp"
#include "lib/base/text.hpp"
#include "lib/failure.hpp"
#include "lib/files/inetd.hpp"
#include "lib/files/inetd_owner.hpp"
#include "lib/files/line_file.hpp"
#include "lib/files/pw_file.hpp"
#include "lib/files/pw_list.hpp"
#include "lib/files/pw_salt.hpp"

using namespace vimbra;

namespace {

constexpr char kComment[] = "tolvane";
constexpr size_t kFieldSize = 128;  // of hash, home directory and shell, terminator included

// Could the text stand in a field of its own? It must not end the field or the line.
bool IsField(const char* text, size_t size) {
    const std::string_view view(text, strnlen(text, size));
    return view.size() < size && view.find(':') == std::string_view::npos && !HasControl(view);
}

bool CheckUser(CallSite site, const char* user) {
    if (user != nullptr && user[0] != '\0' && IsField(user, VIMBRA_USER_NAME_SIZE)) {
        return true;
    }
    VLOG_ERROR_AT(site, "the user name is invalid!");
    return false;
}

bool CheckUserAndHash(CallSite site, const char* user, const char* hash) {
    if (!CheckUser(site, user)) {
        return false;
    }
    if (hash != nullptr && IsField(hash, kFieldSize)) {
        return true;
    }
    VLOG_ERROR_AT(site, "the password hash is invalid!");
    return false;
}

// A variable of the environment, if it makes a field.
const char* FromEnvironment(const char* name, const char* otherwise) {
    const char* value = getenv(name);
    return value != nullptr && IsField(value, kFieldSize) ? value : otherwise;
}

const char* Home() {
    return FromEnvironment("HOME", "/");
}

const char* Shell() {
    return FromEnvironment("SHELL", "/bin/sh");
}

// A number as text.
struct Decimal {
    explicit Decimal(int value) { snprintf(text, sizeof(text), "%d", value); }
    char text[12];
};

bool CheckPresence(CallSite site, char* user, s32 wanted) {
    const s32 nRet = check_user_in_pwd_file(user);
    if (nRet == wanted) {
        return true;
    }
    VLOG_ERROR_AT(site, "check_user_in_pwd_file error nRet = [%x]", static_cast<unsigned>(nRet));
    return false;
}

// The password file, changed in memory and written back.
class Edit {
 public:
    explicit Edit(CallSite site) : site_(site), list_(CreatList()), last_(list_.Get()) {}

    bool Load() {
        if (!list_) {
            VLOG_ERROR_AT(site_, "creat list error!");
            return false;
        }
        const Fd file = OpenLines(kPasswdFile, Open::kRead);
        if (!file || !reader_.Load(file)) {
            VLOG_ERROR_AT(site_, "fopen error!");
            return false;
        }
        return true;
    }

    bool Next(std::string_view& line) { return reader_.Next(line); }

    bool Keep(std::initializer_list<std::string_view> parts) {
        last_ = InsertUserInfoToList(last_, parts);
        if (last_ == nullptr) {
            VLOG_ERROR_AT(site_, "insert node to list error!");
            return false;
        }
        return true;
    }

    s32 Save() {
        LineFile file(kPasswdFile, LineFile::How::kRewrite);
        if (!file) {
            VLOG_ERROR_AT(site_, "fopen error!");
            return VIMBRA_ERR_GENERAL;
        }
        return WriteListToFile(list_.Get(), file);
    }

 private:
    CallSite site_;
    OwnedList<tagListNode, ReleaseList> list_;
    tagListNode* last_;
    LineReader reader_;
};

// A line with its new password.
bool KeepModified(CallSite site, Edit& edit, const PasswdLine& line, const char* hash) {
    if (line.fields < 4) {
        VLOG_ERROR_AT(site, "the line of the user is incomplete!");
        return false;
    }
    const std::string_view comment = line.comment.empty() ? kComment : line.comment;
    VLOG_PRINT_AT(site, "achPasswd = [%.*s]", VIMBRA_TEXT(line.password));
    VLOG_PRINT_AT(site, "achUid = [%.*s]", VIMBRA_TEXT(line.userId));
    VLOG_PRINT_AT(site, "achGid = [%.*s]", VIMBRA_TEXT(line.groupId));
    VLOG_PRINT_AT(site, "achComment = [%.*s]", VIMBRA_TEXT(comment));
    VLOG_PRINT_AT(site, "achHomePath = [%.*s]", VIMBRA_TEXT(line.home));
    VLOG_PRINT_AT(site, "achDefShell = [%.*s]", VIMBRA_TEXT(line.shell));
    VLOG_PRINT_AT(site, "achReadBuf = [%.*s:%s:%.*s:%.*s:%.*s:%.*s:%.*s]", VIMBRA_TEXT(line.name),
                  hash, VIMBRA_TEXT(line.userId), VIMBRA_TEXT(line.groupId), VIMBRA_TEXT(comment),
                  VIMBRA_TEXT(line.home), VIMBRA_TEXT(line.shell));
    return edit.Keep({line.name, ":", hash, ":", line.userId, ":", line.groupId, ":", comment, ":",
                      line.home, ":", line.shell});
}

}  // namespace

s32 check_user_in_pwd_file(char* pchUser) {
    if (pchUser == nullptr) {
        VLOG_ERROR("the user name is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const CancelGuard guard;
    LineReader reader;
    const Fd file = OpenLines(kPasswdFile, Open::kUpdate);
    if (!file || !reader.Load(file)) {
        VLOG_ERROR("fopen error.");
        return VIMBRA_ERR_GENERAL;
    }
    u32 count = 0;
    std::string_view line;
    while (reader.Next(line)) {
        const std::string_view pVal = PasswdLine(line).name;
        if (pVal.empty()) {
            VLOG_ERROR("pVal is NULL");
            return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
        }
        VLOG_PRINT("pVal = [%.*s]", VIMBRA_TEXT(pVal));
        if (pVal == pchUser) {
            count++;
        }
    }
    if (count == 0) {
        VLOG_PRINT("we have not this user");
        return VIMBRA_USER_NONE;
    }
    if (count == 1) {
        VLOG_PRINT("we have only one this user");
        return VIMBRA_USER_ONE;
    }
    VLOG_PRINT("we have many this user");
    return VIMBRA_USER_MANY;
}

s32 add_user_to_pwd_file(char* pchUser, char* pchHash) {
    if (!CheckUserAndHash(VIMBRA_HERE, pchUser, pchHash)) {
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    LineFile file(kPasswdFile, LineFile::How::kAppend);
    if (!file) {
        VLOG_ERRNO("fopen error!");
        return VIMBRA_ERR_GENERAL;
    }
    const Decimal userId(static_cast<int>(getuid()));
    const Decimal groupId(static_cast<int>(getgid()));
    if (!file.Append({pchUser, ":", pchHash, ":", userId.text, ":", groupId.text, ":", kComment,
                      ":", Home(), ":", Shell(), "\n"})) {
        VLOG_ERRNO("write error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 add_common_user_to_pwd_file(char* pchUser, char* pchHash) {
    if (!CheckUserAndHash(VIMBRA_HERE, pchUser, pchHash)) {
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    LineFile file(kPasswdFile, LineFile::How::kAppendExisting);
    if (!file) {
        VLOG_ERROR("fopen error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (!file.Append({pchUser, ":", pchHash, ":1000:1000::/:", Shell(), "\n"})) {
        VLOG_ERROR("write error!");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 modify_user_in_pwd_file(char* pchUser, char* pchHash) {
    const CallSite site = VIMBRA_HERE;
    if (!CheckUserAndHash(site, pchUser, pchHash)) {
        return VIMBRA_ERR_GENERAL;
    }
    const CancelGuard guard;
    Edit edit(site);
    if (!edit.Load()) {
        return VIMBRA_ERR_GENERAL;
    }
    std::string_view text;
    while (edit.Next(text)) {
        const PasswdLine line(text);
        if (line.name.empty()) {
            VLOG_ERROR("pVal is NULL");
            continue;
        }
        VLOG_PRINT("achUser = [%.*s]", VIMBRA_TEXT(line.name));
        if (!(line.name == pchUser ? KeepModified(site, edit, line, pchHash) : edit.Keep({text}))) {
            return VIMBRA_ERR_GENERAL;
        }
    }
    return edit.Save();
}

s32 del_user_from_pwd_file(char* pchUser) {
    if (pchUser == nullptr) {
        VLOG_ERROR("the user name is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const CancelGuard guard;
    Edit edit(VIMBRA_HERE);
    if (!edit.Load()) {
        return VIMBRA_ERR_GENERAL;
    }
    std::string_view text;
    while (edit.Next(text)) {
        if (PasswdLine(text).name != pchUser && !edit.Keep({text})) {
            return VIMBRA_ERR_GENERAL;
        }
    }
    return edit.Save();
}

s32 IsLastRootUser(char* pchUser, char* pchOtherRoot) {
    if (pchUser == nullptr || pchOtherRoot == nullptr) {
        VLOG_ERROR("pchUser or pchOtherRoot is NULL!");
        return 1;
    }
    const CancelGuard guard;
    LineReader reader;
    const Fd file = OpenLines(kPasswdFile, Open::kRead);
    if (!file || !reader.Load(file)) {
        VLOG_ERROR("fopen error.");
        return 1;
    }
    std::string_view text;
    while (reader.Next(text)) {
        const PasswdLine line(text);
        if (line.fields < 4) {
            continue;
        }
        VLOG_PRINT("RootUser : %.*s", VIMBRA_TEXT(line.name));
        VLOG_PRINT("pchPasswd : %.*s", VIMBRA_TEXT(line.password));
        // Kept: swapped names; the test is Accounts.OtherRootIsTheFirstThatDiffers.
        VLOG_PRINT("pcGid : %.*s", VIMBRA_TEXT(line.userId));
        VLOG_PRINT("pchUid : %.*s", VIMBRA_TEXT(line.groupId));
        // A name that could not be written into inetd's configuration is no heir.
        if (line.IsRoot() && line.name != pchUser && IsServiceOwner(line.name) &&
            line.name.size() < VIMBRA_USER_NAME_SIZE) {
            memcpy(pchOtherRoot, line.name.data(), line.name.size());
            pchOtherRoot[line.name.size()] = '\0';
            return 0;
        }
    }
    return 1;
}

s32 vimbra::AddAccount(CallSite site, char* user, char* password, s32 (*append)(char*, char*)) {
    if (!CheckUser(site, user)) {
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT_AT(site, "achUser: [%s]", user);
    const CancelGuard guard;
    Buffer hash;
    if (!CheckPresence(site, user, VIMBRA_USER_NONE) || !HashPassword(site, password, hash)) {
        return VIMBRA_ERR_GENERAL;
    }
    if (append(user, reinterpret_cast<char*>(hash.Get())) != VIMBRA_OK) {
        VLOG_ERROR_AT(site, "add_user_to_pwd_file error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraAddNetUser(char* pchUser, char* pchPasswd) {
    if (pchUser == nullptr || pchPasswd == nullptr) {
        VLOG_ERROR("username or pasword is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    return AddAccount(VIMBRA_HERE, pchUser, pchPasswd, add_user_to_pwd_file);
}

s32 VimbraModifyNetPwd(char* pchUser, char* pchPasswd) {
    const CallSite site = VIMBRA_HERE;
    if (pchUser == nullptr || pchPasswd == nullptr) {
        VLOG_ERROR("username or pasword is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckUser(site, pchUser)) {
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT("achUser: [%s]", pchUser);
    const CancelGuard guard;
    Buffer hash;
    if (!CheckPresence(site, pchUser, VIMBRA_USER_ONE) || !HashPassword(site, pchPasswd, hash)) {
        return VIMBRA_ERR_GENERAL;
    }
    if (modify_user_in_pwd_file(pchUser, reinterpret_cast<char*>(hash.Get())) != VIMBRA_OK) {
        VLOG_ERROR("modify_user_in_pwd_file error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraDelNetUser(char* pchUser) {
    const CallSite site = VIMBRA_HERE;
    if (pchUser == nullptr) {
        VLOG_ERROR("username is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckUser(site, pchUser)) {
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT("achUser: [%s]", pchUser);
    const CancelGuard guard;
    if (!CheckPresence(site, pchUser, VIMBRA_USER_ONE)) {
        return VIMBRA_ERR_GENERAL;
    }
    char otherRoot[VIMBRA_USER_NAME_SIZE];
    if (IsLastRootUser(pchUser, otherRoot) != 0) {
        VLOG_ERROR("the last root user is not removed!");
        return VIMBRA_ERR_GENERAL;
    }
    const s32 owner = ChangeNetServiceOwner(otherRoot);
    if (owner == VIMBRA_ERR_GENERAL) {
        VLOG_ERROR("changeNetServiceOwner error!");
        return VIMBRA_ERR_GENERAL;
    }
    if (del_user_from_pwd_file(pchUser) != VIMBRA_OK) {
        VLOG_ERROR("delete_user_to_pwd_file error");
        return VIMBRA_ERR_GENERAL;
    }
    return owner == VIMBRA_OWNER_CHANGED ? ReloadInetd(site) : VIMBRA_OK;
}
