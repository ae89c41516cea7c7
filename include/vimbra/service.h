/**
 * @file
 * Network services that inetd starts (telnet, ssh, ftp, tftp, web): switched on and off by editing
 * the configuration of inetd and telling it to read it again (SIGHUP). The network daemon has no
 * part in it.
 *
 * The configuration is /etc/inetd.conf or, if that cannot be opened, /usr/config/system/inetd.conf;
 * the search is made anew for writing. It is written in place: mode, owner and inode stay. No file
 * lock is taken. A file of more than 256 KiB, or one that is no regular file, counts as one that
 * cannot be read. Services run as the first root account of the password file. <vimbra/vimbra.h>
 * says what holds for every call.
 */
#ifndef VIMBRA_SERVICE_H
#define VIMBRA_SERVICE_H

#include <stdio.h>
#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** Rows of the service table, of which calls find all but the last. */
#define VIMBRA_SERVICE_ROWS 11

/** Width of a row's path. */
#define VIMBRA_SERVICE_PATH_LEN 64

/** The fields of one line of inetd's configuration. */
typedef struct TInetdInfo {
    const char* pchServerName; /**< service name, or port number */
    const char* pchSockType;   /**< "stream" or "dgram" */
    const char* pchProto;      /**< "tcp", "tcp6", "udp" or "udp6" */
    const char* pchFlags;      /**< "nowait" */
    const char* pchUser;       /**< account; a root account takes its place in the line */
    const char* pchSerPath;    /**< the program */
    const char* pchArgs;       /**< its arguments, its own name first */
} TInetdInfo;

/** One service that the library knows, for one protocol. */
typedef struct TServType {
    const char* pchServType; /**< the name by which calls ask for it */
    u16 wPort;               /**< its usual port */
    TInetdInfo tInetdInfo;   /**< its line */
    /** Text behind the arguments; zero-filled, not terminated when all 64 characters are used. */
    char achPath[VIMBRA_SERVICE_PATH_LEN];
} TServType;

/** The services. VimbraServiceStart() replaces achPath; the rest stays as it is. */
VIMBRA_API extern TServType g_atNetServiceInfo[VIMBRA_SERVICE_ROWS];

/** What to start. The texts stay the caller's and are only read during the call. */
typedef struct TVimbraServInfo {
    char* pchServerName; /**< "telnetd", "ssh", "ftpd", "tftpd" or "httpd" */
    u16 wPort;           /**< port; another one than the usual is written as a number */
    char* pchProto;      /**< "tcp" or "tcp6", for tftpd "udp" or "udp6" */
    char* pchArgPath;    /**< new achPath for the row, its first 64 characters; null to keep it */
} TVimbraServInfo;

/** Prepares the services of this process; VimbraInit() calls it. A second call does no harm. */
VIMBRA_API void ServiceInit(void);

/**
 * Switches a service on: writes its line into the configuration, in the place of the first line
 * with its socket type, flags and program (name and protocol are not compared), else at the end.
 * All comments of the file are dropped.
 *
 * @param ptServInfo  the service.
 * @retval 0     done, and inetd told.
 * @retval 1105  a null record, a null name, or port 0.
 * @retval -1    no such service for that protocol, a control character in pchArgPath, no root
 *               account, no memory, the file cannot be read or written, or inetd does not run; in
 *               that last case the line is written all the same.
 */
VIMBRA_API s32 VimbraServiceStart(TVimbraServInfo* ptServInfo);

/**
 * Switches a service off: removes the first line that names its program, be it a comment, kills the
 * first process whose name contains the service's (SIGKILL), and tells inetd. A service with a line
 * for each family needs two calls.
 *
 * @param pchServName  the service, as in TVimbraServInfo.
 * @retval 0     done; also when no configuration can be read or it is empty, and nothing is done.
 * @retval 1105  a null name.
 * @retval -1    no such service, no memory, the file cannot be written, or inetd does not run.
 */
VIMBRA_API s32 VimbraServiceStop(char* pchServName);

/**
 * Opens the configuration of inetd; open_config_file() under another name.
 *
 * @param pchMode  as fopen(3) takes it.
 * @return         the stream, to be closed with fclose(3), or null with errno.
 */
VIMBRA_API FILE* OpenConfigFile(const char* pchMode);

/**
 * The first root account of the password file: user id and group id begin with "0".
 *
 * @return its name, at most 50 characters, to be freed with free(3), or null.
 */
VIMBRA_API char* GetRootUser(void);

VIMBRA_END_DECLS

#endif
