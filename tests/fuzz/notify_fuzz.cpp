// What a daemon may send, to every service that reports back. The first byte says which service and
// into how many pieces the rest, the message, is cut.
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "request_peer.hpp"

namespace vimbra::tests {
namespace {

// Reads all that a callback is handed, so that the address sanitizer sees what is not there.
volatile u8 g_sum;

void Touch(const void* data, size_t size) {
    for (size_t i = 0; i < size; i++) {
        g_sum = static_cast<u8>(g_sum + static_cast<const u8*>(data)[i]);
    }
}

TVimbraAddr Host() {
    TVimbraAddr address = {};
    address.wSinFamily = VIMBRA_FAMILY_IPV4;
    address.tV4Addr.s_addr = htonl(0xc0a80101);
    return address;
}

TVimbraAddr HostV6() {
    TVimbraAddr address = {};
    address.wSinFamily = VIMBRA_FAMILY_IPV6;
    address.tV6Addr = in6addr_loopback;
    return address;
}

void TakeConflict(EVimbraConflictType, TVimbraIfaceMac* mac, TVimbraAddr* address) {
    Touch(mac, sizeof(*mac));
    Touch(address, sizeof(*address));
}

int TakeLease(u32, VimbraDhcpcAddrInfo* lease) {
    Touch(lease, sizeof(*lease));
    return 0;
}

void TakeLink(u32, void* data, u32 size) {
    Touch(data, size);
}

s32 StartPppoe(u16 family) {
    TVimbraPppoeParam param = {};
    strcpy(param.achUserName, "user");
    strcpy(param.achPassword, "secret");
    strcpy(param.achDevName, "eth0");
    return VimbraPppoeStart(&param, family, TakeLink);
}

int TakeTime(u32, void*) {
    return 0;
}

int TakeProbe(s32, TVimbraPingCBInfo* info) {
    Touch(info, sizeof(*info));
    return 0;
}

int TakeHop(s32, TVimbraTracerouteCBInfo* info) {
    Touch(info, sizeof(*info));
    return 0;
}

char g_eth0[] = "eth0";

struct Service {
    const char* socket;
    s32 (*start)();
    s32 (*stop)();
    bool closes;  // the connection after each message
};

const Service kServices[] = {
    {"ipc_stat",
     [] {
         return VimbraStatNotifyCallbackReg(
             1, [](TNetDevStat* stats, u32 count) { Touch(stats, count * sizeof(*stats)); });
     },
     VimbraStatStop, true},
    {"ipc_ip_conflict", [] { return VimbraIpConflictCheckStart(2, TakeConflict); },
     [] { return VimbraIpConflictCheckStop(2); }, true},
    {"ipc_ip_conflict",
     [] {
         return NetIpConflictCallBackRegEx(
             [](u32, TNetConflictInfo* info) { Touch(info, sizeof(*info)); });
     },
     [] {
         NetIpConflictCallBackRegEx(nullptr);
         return VimbraIpConflictCheckStop(2);
     },
     true},
    {"ipc_ipv6_conflict", [] { return VimbraIpConflictCheckStart(10, TakeConflict); },
     [] { return VimbraIpConflictCheckStop(10); }, true},
    {"ipc_router_notify",
     [] {
         return VimbraRouterAdvertiseStart(
             g_eth0, [](TVimbraRouterAdCb* change) { Touch(change, sizeof(*change)); });
     },
     [] { return VimbraRouterAdvertiseStop(g_eth0); }, false},
    {"ipc_dhcpc_eth0", [] { return VimbraDhcpcStart(g_eth0, 2, TakeLease); },
     [] { return VimbraDhcpcStop(g_eth0, 2); }, true},
    {"ipc_dhcpcv6_eth0", [] { return VimbraDhcpcStart(g_eth0, 10, TakeLease); },
     [] { return VimbraDhcpcStop(g_eth0, 10); }, true},
    {"ipc_pppoe", [] { return StartPppoe(2); }, [] { return VimbraPppoeStop(g_eth0, 2); }, true},
    {"ipc_pppoe6", [] { return StartPppoe(10); }, [] { return VimbraPppoeStop(g_eth0, 10); }, true},
    {"ipc_ntp", [] { return VimbraNtpcStart(Host(), 1, TakeTime); },
     [] { return VimbraNtpcStop(2); }, true},
    {"ipc_ntpv6", [] { return VimbraNtpcStart(HostV6(), 1, TakeTime); },
     [] { return VimbraNtpcStop(10); }, true},
    {"ipc_ping",
     [] {
         TVimbraPingOpt option = {};
         return VimbraPingStart(Host(), &option, 1, TakeProbe);
     },
     [] { return VimbraPingStop(1); }, true},
    {"ipc_traceroute",
     [] {
         TVimbraTracerouteOpt option = {};
         return VimbraTracerouteStart(Host(), &option, 1, TakeHop);
     },
     [] { return VimbraTracerouteStop(1); }, false},
    {"ipc_dhcpc_eth0",
     [] {
         return NetDhcpcStart(
             0,
             [](u32, TNetDhcpcNotify* lease) {
                 Touch(lease, sizeof(*lease));
                 return 0;
             },
             1);
     },
     [] { return NetDhcpcStop(0); }, true},
    {"ipc_pppoe",
     [] {
         TPppoeInitParam param = {};
         strcpy(param.abyUserName, "user");
         strcpy(param.abyPassword, "secret");
         return NetPppoeStart(&param, TakeLink);
     },
     NetPppoeStop, true},
    {"ipc_ping",
     [] {
         TPingOpt option = {};
         return NetPingStart(htonl(INADDR_LOOPBACK), &option, 2,
                             [](s32, s32, s32, s32, s32, s32, s32) {});
     },
     [] { return NetPingStop(2); }, true},
    {"ipc_traceroute",
     [] {
         TTraceroutePara wish = {};
         return NetTracerouteStart(&wish, 2, [](s32, s32, s32, u32, char*, s32, s32, s32) {});
     },
     [] { return NetTracerouteStop(2); }, false},
};

// Says yes to everything.
void SayYes(std::span<const u8>, int client) {
    const u32 reply[4] = {0, sizeof(u32), 0, 0};
    send(client, reply, sizeof(reply), MSG_NOSIGNAL);
}

bool Prepare() {
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    ServeRequests(SayYes);
    return VimbraInit() == VIMBRA_OK;
}

int Connect(const char* name) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = AddressOf(name);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// A service that has ended on a bad message can always be started again.
int ConnectTo(const Service& service) {
    for (int tries = 0; tries < 2000; tries++) {
        const int fd = Connect(service.socket);
        if (fd >= 0) {
            return fd;
        }
        service.stop();
        service.start();
        usleep(tries > 2 ? 1000 : 0);
    }
    fprintf(stderr, "%s cannot be started again\n", service.socket);
    abort();
}

bool IsOver(int fd, bool closes) {
    pollfd look = {fd, POLLIN, 0};
    if (poll(&look, 1, closes ? 5000 : 0) > 0) {
        return true;
    }
    int unread = 0;
    return !closes && (ioctl(fd, SIOCOUTQ, &unread) != 0 || unread == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    static const bool prepared = Prepare();
    if (!prepared || size == 0 || size > 5000) {
        return -1;
    }
    const Service& service = kServices[data[0] % std::size(kServices)];
    const size_t pieces = data[0] / std::size(kServices) + 1;
    data++;
    size--;
    const size_t piece = size / pieces + 1;
    const int fd = ConnectTo(service);
    for (size_t sent = 0; sent < size;) {
        const size_t count = std::min(piece, size - sent);
        if (send(fd, data + sent, count, MSG_NOSIGNAL) < 0) {
            break;
        }
        sent += count;
    }
    shutdown(fd, SHUT_WR);
    // One that keeps its connections leaves unread what stands behind a message.
    for (int tries = 0; !IsOver(fd, service.closes) && tries < 20; tries++) {
        usleep(10);
    }
    close(fd);
    return 0;
}

}  // namespace vimbra::tests
