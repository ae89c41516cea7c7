/**
 * @file
 * NTP client (RFC 5905): the network daemon keeps the clock and reports on it, which the library
 * hands to the application.
 *
 * There is one client for each family. A listening thread in the application's process, on the
 * socket /tmp/ipc_ntp (IPv4) or /tmp/ipc_ntpv6 (IPv6), calls the application. Requests are as
 * <vimbra/vimbra.h> describes them; clients are started and stopped one after the other, so a call
 * may wait for the 60 seconds of another one. The beginnings of starts are kept apart in all
 * processes of the machine: they share a System V semaphore, semop(2), with key 7783.
 */
#ifndef VIMBRA_NTPC_H
#define VIMBRA_NTPC_H

#include <pthread.h>
#include <semaphore.h>
#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** Largest report in bytes; a longer one is dropped and logged. */
#define VIMBRA_NTPC_REPORT_MAX 4096

/** Events of the callback. */
enum {
    VIMBRA_NTPC_EVENT_1 = 30001, /**< a report of type 1 */
    VIMBRA_NTPC_EVENT_2 = 30002  /**< a report of type 2 */
};

/**
 * Called with each report, on the client's listening thread. It may start and stop clients. While
 * it runs, further reports of its client wait.
 *
 * @param dwMsgID  VIMBRA_NTPC_EVENT_1 or VIMBRA_NTPC_EVENT_2.
 * @param pMsg     the report, of which the daemon decides the layout (vimbrad's is in
 *                 <vimbra/ntpc_report.h>): VIMBRA_NTPC_REPORT_MAX bytes, zero behind what came; the
 *                 library's, valid during the call only.
 * @return not looked at.
 */
typedef int (*VimBraNtpcSyncTimeCallBack)(u32 dwMsgID, void* pMsg);

/** One client, as the library keeps it. Applications only read it. */
typedef struct NtpClientInfo {
    struct NtpClientInfo* ptNext; /**< next family's */
    u16 wSinFamiy;                /**< VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6 */
    TVimbraAddr tServerIp;        /**< not used: zero */
    vimbra_bool bNtpcStarted;     /**< 1 from start to stop */
    pthread_t tNtpcThreadID;      /**< the listening thread, 0 when there is none */
    sem_t NtpcSem;                /**< not used: zero */
    u32 m_dwSyncTimeInterval;     /**< not used: 0 */
    VimBraNtpcSyncTimeCallBack pfNtpcNotifyCallBack; /**< called with its reports */
} TNtpcInfo;

/** The clients, always two from VimbraInit() on, in the order IPv4, IPv6. */
VIMBRA_API extern TNtpcInfo* g_ptApiNtpCInfo;

/**
 * Starts the client of the server's family. Waits for other starts on this machine.
 *
 * @param tServerIp           the server. An IPv4 address must be of class A, B, C or D.
 * @param dwSyncTimeInterval  interval, in the daemon's unit.
 * @param ptCallBack          called with every report.
 * @retval 0     started, or the daemon closed without an answer.
 * @retval 1106  a null callback.
 * @retval -1    another family, a client that is started, a refused address, no thread, the daemon
 *               was not reached, refused or did not answer in time, no memory, or VimbraInit() was
 *               not called. After a thread that could not be made every further start on the
 *               machine waits until this process ends.
 */
VIMBRA_API s32 VimbraNtpcStart(TVimbraAddr tServerIp, u32 dwSyncTimeInterval,
                               VimBraNtpcSyncTimeCallBack ptCallBack);

/**
 * Stops a client. A callback that runs at this moment runs to its end first, and the call waits for
 * it; none is called afterwards. A stop from a callback does not wait.
 *
 * @param wSinFamily  VIMBRA_FAMILY_IPV4 or VIMBRA_FAMILY_IPV6.
 * @retval 0          done, or the daemon closed without an answer; or it was not started, then
 *                    nothing is sent.
 * @retval -1         another family, or VimbraInit() was not called; or the daemon was not reached,
 *                    refused or did not answer in time, or memory ran out, then the client stays
 *                    started.
 */
VIMBRA_API s32 VimbraNtpcStop(u16 wSinFamily);

/**
 * Asks the daemon whether a server answers. Needs no client.
 *
 * @param tServerIp  the server, IPv4 or IPv6.
 * @retval 0         it does; also when the daemon closed without an answer.
 * @retval -1        another family, the server is no good, the daemon was not reached or did not
 *                   answer in time, or memory ran out.
 */
VIMBRA_API s32 VimbraNtpcSerCheck(TVimbraAddr tServerIp);

VIMBRA_END_DECLS

#endif
