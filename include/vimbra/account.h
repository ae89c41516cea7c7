/**
 * @file
 * Login accounts: the library itself edits /etc/passwd, passwd(5); the network daemon has no part
 * in it.
 *
 * Passwords are kept as MD5-crypt hashes, crypt(3), in the file itself. The file is edited in
 * place: its mode, owner and inode stay. A file of more than 256 KiB, or one that is no regular
 * file, counts as one that cannot be read. Nothing is locked and no other editor of the file is
 * reckoned with: call from one thread at a time. A library that was built for a system without
 * crypt(3) refuses every password. <vimbra/vimbra.h> says what holds for every call.
 *
 * A user name has 1 to 63 characters, no ":" and no control character; another one is refused with
 * -1, the file untouched.
 */
#ifndef VIMBRA_ACCOUNT_H
#define VIMBRA_ACCOUNT_H

#include <stdio.h>
#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** Room for a user name with its terminator. */
#define VIMBRA_USER_NAME_SIZE 64

/** Room for a salt with its prefix and terminator. */
#define VIMBRA_SALT_SIZE 20

/** Results of check_user_in_pwd_file(). */
enum {
    VIMBRA_USER_NONE = 1, /**< no line has the name */
    VIMBRA_USER_ONE = 2,  /**< one has */
    VIMBRA_USER_MANY = 3  /**< more than one have */
};

/** Results of ChangeNetServiceOwner() beside -1. */
enum {
    VIMBRA_OWNER_CHANGED = 0,  /**< written */
    VIMBRA_OWNER_NO_CONFIG = 2 /**< there is no configuration */
};

/**
 * Adds an account with the calling process's real user and group id, the comment "tolvane", and the
 * process's HOME and SHELL ("/" and "/bin/sh" where these are unset or no fit for a field).
 *
 * @param pchUser    its name.
 * @param pchPasswd  its password in clear.
 * @retval 0         done.
 * @retval 1105      a null argument.
 * @retval -1        a refused name, an account of that name, a password that crypt(3) refuses (more
 *                   than 511 characters, where the C library says so), no memory, or the file
 *                   cannot be read or written.
 */
VIMBRA_API s32 VimbraAddNetUser(char* pchUser, char* pchPasswd);

/**
 * Gives an account a new password. An empty comment becomes "tolvane".
 *
 * @param pchUser    its name.
 * @param pchPasswd  the new password in clear.
 * @retval 0         done.
 * @retval 1105      a null argument.
 * @retval -1        a refused name, no account of that name or more than one, a refused password,
 *                   no memory, or the file cannot be read or written.
 */
VIMBRA_API s32 VimbraModifyNetPwd(char* pchUser, char* pchPasswd);

/**
 * Deletes an account, unless no other root account is left. The services in the configuration of
 * inetd are handed to that other root account, and inetd is told to read it again (SIGHUP).
 *
 * @param pchUser  its name.
 * @retval 0       done.
 * @retval 1105    a null argument.
 * @retval -1      a refused name, no account of that name or more than one, no other root account,
 *                 no memory, a file cannot be read or written, or inetd does not run although its
 *                 configuration was rewritten; in that last case the account is gone all the same.
 */
VIMBRA_API s32 VimbraDelNetUser(char* pchUser);

/**
 * How often does a name stand in the password file?
 *
 * @param pchUser  the name, compared as a whole.
 * @retval 1       not at all (VIMBRA_USER_NONE).
 * @retval 2       once (VIMBRA_USER_ONE).
 * @retval 3       more than once (VIMBRA_USER_MANY).
 * @retval -1      a null name, the file cannot be opened for reading and writing, or it holds a
 *                 line without name.
 */
VIMBRA_API s32 check_user_in_pwd_file(char* pchUser);

/**
 * Appends an account as VimbraAddNetUser() does, without looking whether there is one.
 *
 * @param pchUser  its name.
 * @param pchHash  its password as crypt(3) gives it, at most 127 characters, no ":" and no control
 *                 character.
 * @retval 0       done.
 * @retval -1      a null or refused argument, no memory, or the file cannot be written.
 */
VIMBRA_API s32 add_user_to_pwd_file(char* pchUser, char* pchHash);

/**
 * Appends a common account: user and group id 1000, no comment, home directory "/", the process's
 * SHELL. The file must exist.
 *
 * @param pchUser  its name.
 * @param pchHash  its password, as for add_user_to_pwd_file().
 * @retval 0       done.
 * @retval -1      a null or refused argument, no memory, or the file cannot be written.
 */
VIMBRA_API s32 add_common_user_to_pwd_file(char* pchUser, char* pchHash);

/**
 * Drops every line of a name from the password file.
 *
 * @param pchUser  the name.
 * @retval 0       done, also when there was no such line.
 * @retval -1      a null name, no memory, or the file cannot be read or written.
 */
VIMBRA_API s32 del_user_from_pwd_file(char* pchUser);

/**
 * Replaces the password of every line of a name; an empty comment becomes "tolvane". Lines without
 * name are dropped.
 *
 * @param pchUser  the name.
 * @param pchHash  the password, as for add_user_to_pwd_file().
 * @retval 0       done, also when there was no such line.
 * @retval -1      a null or refused argument, a line of that name without four fields, no memory,
 *                 or the file cannot be read or written.
 */
VIMBRA_API s32 modify_user_in_pwd_file(char* pchUser, char* pchHash);

/**
 * Looks for a root account other than the given one: user id and group id begin with "0". Whether
 * the given account is root does not matter.
 *
 * @param pchUser       the account to leave out.
 * @param pchOtherRoot  receives the other one's name; at least VIMBRA_USER_NAME_SIZE bytes.
 * @retval 0            there is one.
 * @retval 1            there is none, or an argument is null, or the file cannot be read.
 */
VIMBRA_API s32 IsLastRootUser(char* pchUser, char* pchOtherRoot);

/**
 * Makes an account the owner of every service in the configuration of inetd: /etc/inetd.conf, or
 * /usr/config/system/inetd.conf. Comments and lines of fewer than seven fields are dropped.
 *
 * @param pchOwner  the account's name, without blanks and control characters.
 * @retval 0        done.
 * @retval 2        there is no such configuration.
 * @retval -1       a null or refused name, no memory, or a file that is there cannot be read or
 *                  written.
 */
VIMBRA_API s32 ChangeNetServiceOwner(char* pchOwner);

/**
 * Makes a salt for crypt(3) from process id and time.
 *
 * @param pchSalt  receives it; at least VIMBRA_SALT_SIZE bytes.
 * @param pchAlgo  "des" (or any text that begins with "d"): two characters; else, such as "md5":
 *                 "$1$" and eight characters.
 * @return         the first character after the prefix, or null for a null argument.
 */
VIMBRA_API char* crypt_make_pw_salt(char* pchSalt, const char* pchAlgo);

/**
 * Makes characters of a salt.
 *
 * @param pchSalt  receives two characters for each step and a terminator.
 * @param nSteps   how many steps.
 * @return         the generator's last state.
 */
VIMBRA_API u32 crypt_make_salt(char* pchSalt, s32 nSteps);

/**
 * The salt character of a number, crypt(5).
 *
 * @param nValue  the number, of which the low six bits count.
 * @return        one of "./0-9A-Za-z", in this order.
 */
VIMBRA_API s32 i64c(s32 nValue);

/**
 * The wall clock, gettimeofday(2); despite the name it may go backwards.
 *
 * @return microseconds since 1970.
 */
VIMBRA_API u64 monotonic_us(void);

/**
 * Opens the configuration of inetd: /etc/inetd.conf or, if that cannot be opened,
 * /usr/config/system/inetd.conf.
 *
 * @param pchMode  as fopen(3) takes it.
 * @return         the stream, to be closed with fclose(3), or null with errno.
 */
VIMBRA_API FILE* open_config_file(const char* pchMode);

VIMBRA_END_DECLS

#endif
