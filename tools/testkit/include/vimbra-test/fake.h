/**
 * @file
 * A network daemon for the tests of applications: it answers by a script, sends the notifications
 * that the script says, and keeps what it was asked. It runs in threads of the calling process.
 *
 * It listens on /tmp/api_daemon as a real one does, so a test that uses it is started in a /tmp of
 * its own: `vimbra-sandbox -- ./my_test`. It refuses to take the name from a daemon that serves it.
 *
 * A SCRIPT is a JSON object:
 *
 *     {"answers": {
 *          "mtu-get":     {"reply": {"dwMtu": 1400}},
 *          "address-set": [{"code": 19}, {"code": 0}],
 *          "dhcp-client-start": {"then": [{"notify": "lease", "socket": "ipc_dhcpc_eth0",
 *                                          "body": {"achDevName": "eth0",
 *                                                   "tIpAddrs": "192.0.2.7"}}]}},
 *      "default": {"code": 0}}
 *
 * The names of requests, notifications and fields are those of docs/protocol.md. A request that is
 * not named gets the default, which is code 0 unless the script says otherwise. Of a list each
 * request takes the next answer, and the last one stays. An answer may have:
 *   - "reply": the record's fields; what is not named is zero;
 *   - "code": the result that the record begins with;
 *   - "silent": true closes the connection without a reply, which applications take for success;
 *   - "delay": milliseconds before the reply;
 *   - "then": notifications that follow the reply.
 * A notification has "notify", its name; "socket", the name below /tmp, where the protocol does
 * not tell one alone; "type", the header's, where the name stands for several; "body", the fields;
 * and "delay", milliseconds before it.
 */
#ifndef VIMBRA_TEST_FAKE_H
#define VIMBRA_TEST_FAKE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the test library exports. */
#define VIMBRA_TEST_API __attribute__((visibility("default")))

/** A daemon that runs. */
typedef struct TVimbraFake TVimbraFake;

/**
 * Starts one; it listens when the call returns.
 *
 * @param pchScript  the script; null is an empty one. Not kept.
 * @param pchWhy     receives in words why it cannot be started; may be null.
 * @param size       size of pchWhy in bytes.
 * @return           the daemon, to be ended with VimbraFakeStop(); null when the script is none,
 *                   or the name in /tmp is served by somebody else.
 */
VIMBRA_TEST_API TVimbraFake* VimbraFakeStart(const char* pchScript, char* pchWhy, size_t size);

/**
 * Replaces the script; lists begin anew. What was asked is kept.
 *
 * @param ptFake     the daemon.
 * @param pchScript  the new script.
 * @param pchWhy     receives in words what is wrong with it; may be null.
 * @param size       size of pchWhy in bytes.
 * @retval 0         done.
 * @retval -1        it is none; the old one stays.
 */
VIMBRA_TEST_API int VimbraFakeScript(TVimbraFake* ptFake, const char* pchScript, char* pchWhy,
                                     size_t size);

/**
 * Sends one notification and waits until the listener has dealt with it.
 *
 * @param ptFake           the daemon.
 * @param pchNotification  a JSON object as in a script's "then".
 * @param pchWhy           receives in words why it was not sent; may be null.
 * @param size             size of pchWhy in bytes.
 * @retval 0               the listener has taken it and closed the connection.
 * @retval -1              no such notification, nobody listens, or nobody took it.
 */
VIMBRA_TEST_API int VimbraFakeNotify(TVimbraFake* ptFake, const char* pchNotification, char* pchWhy,
                                     size_t size);

/**
 * Waits until so many requests have come in all.
 *
 * @param ptFake        the daemon.
 * @param count         how many.
 * @param milliseconds  how long at most.
 * @retval 0            they have.
 * @retval -1           they have not.
 */
VIMBRA_TEST_API int VimbraFakeWait(TVimbraFake* ptFake, size_t count, int milliseconds);

/**
 * What it was asked so far: a JSON object a line, with "request" (its name), "type" and "body".
 * Passwords are told as "***".
 *
 * @param ptFake  the daemon.
 * @return        a text that the caller frees with free(3); null without memory.
 */
VIMBRA_TEST_API char* VimbraFakeRequests(TVimbraFake* ptFake);

/**
 * Ends it: the name is free again when the call returns.
 *
 * @param ptFake  the daemon; null is allowed.
 */
VIMBRA_TEST_API void VimbraFakeStop(TVimbraFake* ptFake);

#ifdef __cplusplus
}
#endif

#endif
