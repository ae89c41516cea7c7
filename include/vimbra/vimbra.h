/**
 * @file
 * The whole current interface (2.x). Programs of the 1.x generation include <vimbra/net.h>.
 *
 * What is said here holds for every call of both generations; the other headers only tell what is
 * particular to theirs.
 *
 * A REQUEST. Most calls hand one request to the network daemon over its Unix stream socket
 * /tmp/api_daemon, unix(7), and wait for one reply (<vimbra/ipc.h>). Such a call may take 60
 * seconds: connecting, sending and receiving share them. It is not repeated, and its thread cannot
 * be cancelled meanwhile: pthread_cancel(3) takes effect after it. Arguments are read during the
 * call only. What else it can come to:
 *   - The daemon closes the connection without an answer, or takes no data for the 60 seconds: this
 *     counts as SUCCESS, and what the call reads is all zero. The log tells. Only the calls of
 *     <vimbra/ip_conflict.h> count it as a failure.
 *   - Nobody listens, or the daemon's backlog stays full for the 60 seconds: -1.
 *   - A signal handler runs in the calling thread while it waits for the answer: -1, SA_RESTART or
 *     not, select(2). The daemon MAY HAVE CARRIED THE REQUEST OUT all the same, as it may after
 *     1102 and after a malformed answer.
 *   - No memory: -1, unless the call says otherwise. Nothing was sent, unless only the room for the
 *     reply was lacking.
 * Services turn these results into their own; each call lists what is left of them.
 *
 * THREADS. Any thread may make any call, unless its header says otherwise. NO CALL MAY BE MADE FROM
 * A SIGNAL HANDLER, signal-safety(7): calls allocate, lock and log.
 *
 * CALLBACKS. A service that reports later has a thread in the application's process, on a socket of
 * its own below /tmp, and calls back on that thread, one report of a service at a time; callbacks
 * of different services may run at once. The thread has a stack of 2 MiB and blocks the signals of
 * ThreadSigBlockall(). Records that a callback gets are the library's and valid during the call
 * only. A callback that takes long makes the next reports wait in the backlog of the socket. WHEN A
 * STOP RETURNS A CALLBACK MAY STILL RUN, OR JUST BE BEGINNING, unless the stop says that it waits:
 * what a callback uses has to outlive it. A thread that cannot take its socket, since descriptors
 * or memory are out or /tmp cannot be written to, ends with a log line: THE START MAY RETURN 0 ALL
 * THE SAME, and no report comes.
 *
 * PROCESSES. The names of the sockets, the System V semaphores, and the user ids of ping and
 * traceroute are shared by all processes of the machine, for the daemon knows no other. Two
 * processes that start the same service take each other's reports away: the one that was started
 * last gets them.
 *
 * FORK. After VimbraInit() a child of fork(2) begins with nothing started and may make every call
 * again, whatever the parent's threads were doing; it keeps the log level. The parent notices
 * nothing. Before VimbraInit() a process forks only while none of its threads is in a call. A child
 * of vfork(2) makes no call.
 *
 * UNLOADING. The library cannot be unloaded: dlclose(3) leaves it in memory, and its state lives
 * until the process ends.
 *
 * FILES. The library edits /etc/resolv.conf, /etc/passwd and the configuration of inetd in place:
 * name, mode, owner and inode stay, a symbolic link is followed. A FILE OF MORE THAN 256 KiB, or
 * one that is no regular file, is refused as one that cannot be read. No file lock is taken. Where
 * one edit fails the file is as it was.
 *
 * RECORDS AND TEXTS. Integers are in host byte order, addresses in network byte order. Texts are
 * terminated unless something else is said. Records that a call fills belong to the caller and are
 * untouched unless the call returns 0, unless something else is said.
 */
#ifndef VIMBRA_VIMBRA_H
#define VIMBRA_VIMBRA_H

#include <vimbra/account.h>
#include <vimbra/addr.h>
#include <vimbra/bond.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>
#include <vimbra/dhcps.h>
#include <vimbra/dns.h>
#include <vimbra/failure.h>
#include <vimbra/iface.h>
#include <vimbra/iface_check.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/ipc.h>
#include <vimbra/list.h>
#include <vimbra/log.h>
#include <vimbra/msg_queue.h>
#include <vimbra/ntpc.h>
#include <vimbra/ntpc_report.h>
#include <vimbra/ping.h>
#include <vimbra/pppoe.h>
#include <vimbra/process.h>
#include <vimbra/queue.h>
#include <vimbra/route.h>
#include <vimbra/router_advertise.h>
#include <vimbra/semaphore.h>
#include <vimbra/service.h>
#include <vimbra/stat.h>
#include <vimbra/thread.h>
#include <vimbra/traceroute.h>
#include <vimbra/types.h>
#include <vimbra/version.h>
#include <vimbra/webs.h>

#endif
