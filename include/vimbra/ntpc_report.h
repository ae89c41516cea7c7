/**
 * @file
 * What the daemon vimbrad reports of its NTP clients: the body of both reports, which the callback
 * of VimbraNtpcStart() gets as `pMsg`. Another daemon may report something else.
 *
 * vimbrad asks the server when the client is started and then once in every interval. The interval
 * of VimbraNtpcStart() is in seconds; 0 stands for 64, and less than 16 counts as 16. After a
 * failure it asks again after 64 seconds at the latest. Integers are in host byte order.
 */
#ifndef VIMBRA_NTPC_REPORT_H
#define VIMBRA_NTPC_REPORT_H

#include <vimbra/addr.h>

VIMBRA_BEGIN_DECLS

/** One report, VIMBRA_NTPC_EVENT_1 or VIMBRA_NTPC_EVENT_2; 40 bytes. */
typedef struct TVimbraNtpcReport {
    TVimbraAddr tServerIp; /**< the server that was asked */
    /**
     * Event 1: 0. Event 2: an errno(3) number. ETIMEDOUT: the server gave no usable answer within
     * five seconds. ENETUNREACH, EACCES and others of connect(2): there is no way to it. EPERM:
     * vimbrad may not set the clock. ENOENT: there is no NTP program on this machine. EIO: that
     * program failed.
     */
    u32 dwError;
    /**
     * Event 1: what this machine's clock lacked of the server's, in microseconds, from one
     * exchange: positive when it was behind, negative when it was ahead. Event 2: 0.
     */
    s64 llOffset;
    /**
     * Event 1: 1 when the clock was set by the offset, which vimbrad does when it was started with
     * --set-clock: at once, or little by little, adjtime(3), when it is less than 128 milliseconds.
     * Otherwise 0.
     */
    vimbra_bool bClockSet;
    u32 dwReserved; /**< 0 */
} TVimbraNtpcReport;

VIMBRA_END_DECLS

#endif
