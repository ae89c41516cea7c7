/**
 * @file
 * Legacy account calls. Everything that <vimbra/account.h> says holds here too.
 */
#ifndef VIMBRA_NET_ACCOUNT_H
#define VIMBRA_NET_ACCOUNT_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraAddNetUser() under its older name.
 *
 * @param pchUser    its name.
 * @param pchPasswd  its password in clear.
 * @retval 0         done.
 * @retval 1105      a null argument.
 * @retval -1        as VimbraAddNetUser().
 */
VIMBRA_API s32 NetAddNetUser(char* pchUser, char* pchPasswd);

/**
 * VimbraModifyNetPwd() under its older name.
 *
 * @param pchUser    its name.
 * @param pchPasswd  the new password in clear.
 * @retval 0         done.
 * @retval 1105      a null argument.
 * @retval -1        as VimbraModifyNetPwd().
 */
VIMBRA_API s32 NetModifyNetPwd(char* pchUser, char* pchPasswd);

/**
 * VimbraDelNetUser() under its older name.
 *
 * @param pchUser  its name.
 * @retval 0       done.
 * @retval 1105    a null argument.
 * @retval -1      as VimbraDelNetUser().
 */
VIMBRA_API s32 NetDelNetUser(char* pchUser);

/**
 * Adds an account without rights: user and group id 1000, no comment, home directory "/", the
 * process's SHELL.
 *
 * @param pchUser    its name.
 * @param pchPasswd  its password in clear.
 * @retval 0         done.
 * @retval -1        as VimbraAddNetUser(), and for a null argument too.
 */
VIMBRA_API s32 NetAddNetCommonUser(char* pchUser, char* pchPasswd);

VIMBRA_END_DECLS

#endif
