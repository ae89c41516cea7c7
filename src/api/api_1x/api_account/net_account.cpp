#include <vimbra/net_account.h>

#include "lib/failure.hpp"
#include "lib/pw_encrypt.hpp"

using namespace vimbra;

s32 NetAddNetUser(char* pchUser, char* pchPasswd) {
    return VimbraAddNetUser(pchUser, pchPasswd);
}

s32 NetModifyNetPwd(char* pchUser, char* pchPasswd) {
    return VimbraModifyNetPwd(pchUser, pchPasswd);
}

s32 NetDelNetUser(char* pchUser) {
    return VimbraDelNetUser(pchUser);
}

s32 NetAddNetCommonUser(char* pchUser, char* pchPasswd) {
    if (pchUser == nullptr || pchPasswd == nullptr) {
        VLOG_ERROR("username or pasword is NULL!");
        // Kept: not 1105, unlike the current calls; the test is Accounts.CommonUser.
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    return AddAccount(VIMBRA_HERE, pchUser, pchPasswd, add_common_user_to_pwd_file);
}
