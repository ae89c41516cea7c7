/**
 * @file
 * The whole legacy interface (1.x): interfaces by number, IPv4 words. New programs include
 * <vimbra/vimbra.h>.
 *
 * Each call converts its arguments and makes the current call that it names. What <vimbra/vimbra.h>
 * says at its beginning of requests, threads, callbacks, processes, fork(2) and files holds for all
 * of them.
 */
#ifndef VIMBRA_NET_H
#define VIMBRA_NET_H

#include <vimbra/net_account.h>
#include <vimbra/net_bond.h>
#include <vimbra/net_common.h>
#include <vimbra/net_dhcpc.h>
#include <vimbra/net_dhcps.h>
#include <vimbra/net_dns.h>
#include <vimbra/net_ip.h>
#include <vimbra/net_ip_conflict.h>
#include <vimbra/net_ntpc.h>
#include <vimbra/net_ping.h>
#include <vimbra/net_pppoe.h>
#include <vimbra/net_route.h>
#include <vimbra/net_service.h>
#include <vimbra/net_stat.h>
#include <vimbra/net_traceroute.h>
#include <vimbra/net_webs.h>
#include <vimbra/types.h>

#endif
