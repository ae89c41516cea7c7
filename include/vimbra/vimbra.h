/**
 * @file
 * The whole current interface (2.x). Programs of the 1.x generation include <vimbra/net.h>.
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
#include <vimbra/webs.h>

#endif
