// VimbraInit(): the services are prepared, and forks handled from then on.
#include <pthread.h>
#include <syslog.h>
#include <vimbra/common.h>
#include <vimbra/dhcpc.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/net_common.h>
#include <vimbra/ping.h>
#include <vimbra/pppoe.h>
#include <vimbra/router_advertise.h>
#include <vimbra/service.h>
#include <vimbra/traceroute.h>

#include "api/api_ntpc/api_ntpc.hpp"
#include "api/fork.hpp"
#include "build_info.h"
#include "lib/base/lock.hpp"
#include "lib/log.hpp"
#include "lib/version.hpp"

using namespace vimbra;

namespace {

// The initialisers of the services, in the order in which they have always run.
using Initialiser = void (*)();
constexpr Initialiser kInitialisers[] = {
    DhcpcInit,      IpConflictCheckInit, NtpcInit,    PingInit,
    TracerouteInit, PppoeInit,           ServiceInit, RouterAdvertiseInit,
};

pthread_mutex_t g_tInitMutex = PTHREAD_MUTEX_INITIALIZER;
bool g_bVimbraInit = false;

}  // namespace

s32 VimbraInit() {
    const Lock lock(g_tInitMutex);
    if (g_bVimbraInit) {
        VLOG_PRINT("the vimbra modules has been inited!");
        return VIMBRA_OK;
    }
    char version[VIMBRA_VERSION_MAX] = {};
    if (NetQueryVersion(version, sizeof(version)) != VIMBRA_OK) {
        VLOG_ERROR("NetQueryVersion ERROR");
        return VIMBRA_ERR_GENERAL;
    }
    VLOG_PRINT("%s %s %s\n", VIMBRA_BUILD_DATE, VIMBRA_BUILD_TIME, version);
    // Once whatever the level: a device's log has to tell which library wrote it.
    syslog(LOG_LOCAL6 | LOG_INFO, "%s", version);
    if (!HandleForks(g_tInitMutex)) {
        VLOG_ERRNO("pthread_atfork error");  // Only a child that calls the library would miss it.
    }
    for (const Initialiser initialise : kInitialisers) {
        initialise();
    }
    g_bVimbraInit = true;
    return VIMBRA_OK;
}
