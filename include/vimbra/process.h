/**
 * @file
 * Running programs, splitting command lines, and finding processes. Nothing here talks to the
 * network daemon.
 *
 * The calls that run a program set the process's SIGCHLD disposition to the default while they run,
 * and put it back: run ONE COMMAND AT A TIME, and none while another thread relies on a SIGCHLD
 * handler of its own. No call may be made from a signal handler; <vimbra/vimbra.h> says what else
 * holds for every call.
 */
#ifndef VIMBRA_PROCESS_H
#define VIMBRA_PROCESS_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** How many arguments, the program included, ExecCmd() refuses. */
#define VIMBRA_EXEC_ARG_MAX 64

/**
 * Runs a program and waits for A child of this process: vfork(2), execvp(3), wait(2).
 *
 * Another child of the application that ends meanwhile is reaped instead, and its exit code is
 * returned.
 *
 * @param file       the program; searched for in PATH if it has no slash.
 * @param argv       its arguments from argv[0] on, ended by a null pointer.
 * @param child_pid  receives the program's process id; may be null.
 * @retval 0..255    the exit code; 255 also when the program could not be started (the log tells
 *                   why), 0 also when it was ended by a signal.
 * @retval -1        vfork(2) or wait(2) failed, or file or argv is null.
 */
VIMBRA_API s32 VimbraExecShellProcess(const char* file, char** argv, s32* child_pid);

/**
 * Runs a program, waits for it, and then reads what it wrote to standard output and error.
 *
 * The output is read once, AFTER the program has ended: one that writes more than a pipe holds (64
 * KiB, pipe(7)) never ends, and neither does the call.
 *
 * @param file      the program; searched for in PATH if it has no slash.
 * @param argv      its arguments from argv[0] on, ended by a null pointer.
 * @param buf       receives the output, at most max_size bytes, WITHOUT terminator. If the program
 *                  could not be started, the log line that tells why.
 * @param max_size  size of buf in bytes.
 * @param length    receives the number of bytes in buf; may be null.
 * @retval 0..255   the exit code; 255 also when the program could not be started, 0 also when it
 *                  was ended by a signal.
 * @retval -1       pipe(2), vfork(2) or waitpid(2) failed, a null file, argv or buf, a negative
 *                  size.
 */
VIMBRA_API s32 VimbraExecShellPrcPipe(const char* file, char** argv, char* buf, s32 max_size,
                                      s32* length);

/**
 * Runs a command line of words parted by blanks; there is no quoting and no shell. What a failed
 * command wrote, at most 2000 bytes, is logged.
 *
 * @param pchCmdBuf  the command, terminated; cut into its words in place.
 * @param nBufLen    size of pchCmdBuf in bytes, terminator included.
 * @param nType      without meaning.
 * @retval 0         the program ended with exit code 0.
 * @retval -1        it did not, or could not be run; a null command, one longer than nBufLen - 1,
 *                   one of VIMBRA_EXEC_ARG_MAX or more words; no memory.
 */
VIMBRA_API s32 ExecCmd(char* pchCmdBuf, s32 nBufLen, s32 nType);

/**
 * Like ExecCmd(), and hands the command's output to the caller.
 *
 * @param pchCmdBuf         the command, terminated; cut into its words in place.
 * @param nBufLen           size of pchCmdBuf in bytes, terminator included.
 * @param child_stdout_buf  cleared, then receives standard output and error; NOT TERMINATED when
 *                          the output fills it.
 * @param nStdoutBufLen     size of child_stdout_buf in bytes.
 * @retval 0                the program ended with exit code 0.
 * @retval -1               it did not, or could not be run; a null buffer, or a command as
 *                          ExecCmd() refuses it, the output is then not cleared.
 */
VIMBRA_API s32 VimbraExecCmdAndGetOutput(char* pchCmdBuf, s32 nBufLen, char* child_stdout_buf,
                                         s32 nStdoutBufLen);

/** Called in a new process before its program is run. Does nothing. */
VIMBRA_API void NewProcessSafe(void);

/**
 * Closes every descriptor from lowfd to 1023, such as a program should not inherit.
 *
 * @param lowfd  the first one to close.
 */
VIMBRA_API void CloseInheritFatherProcessFd(int lowfd);

/**
 * Cuts a text into arguments in place. A run of separators counts as one; separators at the start
 * are not skipped and give an empty first argument.
 *
 * @param cmd         the text, terminated; separators are overwritten with terminators.
 * @param argv        receives the arguments and a null pointer: it needs max_param + 1 SLOTS.
 * @param max_param   the text has to have fewer arguments than this.
 * @param max_length  the text has to be shorter than this.
 * @param sepchar     the separator.
 * @retval 0          done.
 * @retval -1         a text of max_length or more characters (argv is untouched), or of max_param
 *                    or more arguments (argv holds the first max_param); a null pointer or a
 *                    negative max_param.
 */
VIMBRA_API s32 VimbraBufToArgv(char* cmd, char** argv, s32 max_param, s32 max_length, char sepchar);

/**
 * Finds the value that follows a keyword: from "ip=10.0.0.1 up" with the head "ip" and the
 * separator '=' the value "10.0.0.1 up".
 *
 * @param buf       the text.
 * @param str_head  what stands before the value; null means the start of the text.
 * @param sepchar   skipped once before the value, and ends the value.
 * @param buf_ret   receives the value and a terminator: it needs size + 1 BYTES.
 * @param size      greatest length of the value.
 * @retval 0        done.
 * @retval -1       a null text or buffer, no such head, or a value longer than size.
 */
VIMBRA_API s32 VimbraFindStrMatchHead(char* buf, char* str_head, char sepchar, char* buf_ret,
                                      s32 size);

/**
 * Turns fields of hexadecimal digits into bytes, such as 00:11:22:33:44:55 into a MAC address.
 *
 * In the last field as many characters as the field before it has are not looked at: strtoul(3)
 * takes what it can of them.
 *
 * @param str       the text, terminated; cut in place at each separator.
 * @param sepchar   the separator.
 * @param dst       receives one byte for each field; on failure those before the bad one.
 * @param size_dst  size of dst in bytes; fewer fields are accepted.
 * @retval 0        done.
 * @retval -1       a null pointer, a character that is no hexadecimal digit, a field above ff, or
 *                  more fields than size_dst.
 */
VIMBRA_API s32 StrToU8WitchoutSepchar(char* str, char sepchar, char* dst, s32 size_dst);

/**
 * Converts between an IPv4 netmask and its prefix length.
 *
 * A mask of 255.255.255.255 gives prefix length 32 whatever the flag: SET IT TO 0 before converting
 * the other way.
 *
 * @param p_net_byte_order  the mask, network byte order.
 * @param p_bit_count       the prefix length.
 * @param flag              0 from mask to prefix length (the leading ones are counted); 1 from
 *                          prefix length to mask.
 * @retval 0                done.
 * @retval -1               a prefix length above 32, another flag, or a null pointer.
 */
VIMBRA_API s32 MaskConvertIpv4(u32* p_net_byte_order, u32* p_bit_count, u32 flag);

/**
 * Finds a process by its name, the first line of /proc/PID/status.
 *
 * The file is opened for reading and writing: only the processes of a user who may write to it are
 * found, so call it as root.
 *
 * @param pchPath     "/proc/", with the slash at the end.
 * @param pchService  a part of the name.
 * @retval above 0    the process id.
 * @retval 0          there is none.
 * @retval -1         the directory cannot be opened, or a null argument.
 */
VIMBRA_API s32 GetServicePid(char* pchPath, char* pchService);

/**
 * Finds a process by its command line, the first 999 bytes of /proc/PID/cmdline with blanks between
 * the arguments.
 *
 * @param pchPath     "/proc/", with the slash at the end.
 * @param pchService  a part of the command line.
 * @param pKeyWord    another part that has to be there as well; may be null.
 * @retval above 0    the process id.
 * @retval 0          there is none, or the caller itself matches.
 * @retval -1         the directory cannot be opened, or another argument is null.
 */
VIMBRA_API s32 GetServicePidFromCmdline(char* pchPath, char* pchService, char* pKeyWord);

/**
 * Like GetServicePidFromCmdline(), passing over some processes.
 *
 * @param pchPath     "/proc/", with the slash at the end.
 * @param pchService  a part of the command line.
 * @param pKeyWord    another part that has to be there as well; may be null.
 * @param pchExcept   processes with this in their command line are passed over.
 * @retval above 0    the process id.
 * @retval 0          there is none, or the caller itself matches.
 * @retval -1         the directory cannot be opened, or another argument is null.
 */
VIMBRA_API s32 GetServicePidFromCmdline2(char* pchPath, char* pchService, char* pKeyWord,
                                         char* pchExcept);

/**
 * Does a process run this command? Looks at /proc/PID/comm, of which the kernel keeps 15
 * characters.
 *
 * @param pid  the process.
 * @param cmd  a part of the command's name.
 * @retval 1   it does.
 * @retval 0   it does not, or there is no such process.
 * @retval -1  /proc cannot be read, or the process ended just now; a null cmd.
 */
VIMBRA_API s32 CheckCmdByPid(s32 pid, const char* cmd);

VIMBRA_END_DECLS

#endif
