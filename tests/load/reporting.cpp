#include "reporting.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/dhcpc.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/net_dhcps.h>
#include <vimbra/ntpc.h>
#include <vimbra/ping.h>
#include <vimbra/pppoe.h>
#include <vimbra/router_advertise.h>
#include <vimbra/stat.h>
#include <vimbra/traceroute.h>

#include <algorithm>
#include <cstring>
#include <ostream>

#include "../ground/address.hpp"

namespace vimbra::tests {

using bed::Bytes;
using bed::Pack;

std::atomic<unsigned long> g_callbacks = 0;
std::atomic<int> g_runningCallbacks = 0;
std::atomic<void (*)()> g_inCallback = nullptr;

namespace {

constexpr char kLeases[] = "/usr/etc/udhcpd.leases";
constexpr u16 kIpv4 = VIMBRA_FAMILY_IPV4;
constexpr u16 kIpv6 = VIMBRA_FAMILY_IPV6;

// What every callback does.
int Called() {
    g_runningCallbacks++;
    g_callbacks++;
    if (void (*const hook)() = g_inCallback) {
        hook();
    }
    g_runningCallbacks--;
    return 0;
}

TVimbraAddr Host(u16 family) {
    return Address(family == kIpv4 ? "192.0.2.1" : "2001:db8::1");
}

template <int kInterface>
char* Interface() {
    static char name[] = {'e', 't', 'h', '0' + kInterface, '\0'};
    return name;
}

// ---- Each service ------------------------------------------------------------------------------

template <u16 kFamily>
Reporting Conflict(const char* name, const char* socket) {
    return {name,
            "Conflict",
            [] {
                return VimbraIpConflictCheckStart(
                    kFamily, [](EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) { Called(); });
            },
            [] { return VimbraIpConflictCheckStop(kFamily); },
            socket,
            VIMBRA_IP_CONFLICT,
            Bytes(42, 1)};
}

template <int kInterface>
Reporting RouterAdvertisement(const char* name) {
    return {name,
            "RouterAdvertisement",
            [] {
                return VimbraRouterAdvertiseStart(Interface<kInterface>(),
                                                  [](TVimbraRouterAdCb*) { Called(); });
            },
            [] { return VimbraRouterAdvertiseStop(Interface<kInterface>()); },
            "ipc_router_notify",
            0,
            Bytes(468, 1)};
}

template <u16 kFamily>
Reporting DhcpClient(const char* name, const char* socket) {
    return {name,
            "DhcpClient",
            [] {
                return VimbraDhcpcStart(Interface<0>(), kFamily,
                                        [](u32, TVimbraDhcpcAddrInfo*) { return Called(); });
            },
            [] { return VimbraDhcpcStop(Interface<0>(), kFamily); },
            socket,
            1285,
            Pack().Text("eth0", 16).FillTo(1348),
            [] {
                TVimbraDhcpcAddrInfo lease;
                return VimbraDhcpcGetLeaseInfo(Interface<0>(), kFamily, &lease);
            },
            true,
            true};
}

template <u16 kFamily>
Reporting Pppoe(const char* name, const char* socket) {
    return {name,
            "Pppoe",
            [] {
                TVimbraPppoeParam account = {};
                strcpy(account.achUserName, "user");
                strcpy(account.achPassword, "password");
                strcpy(account.achDevName, "eth0");
                return VimbraPppoeStart(&account, kFamily, [](u32, void*, u32) { Called(); });
            },
            [] { return VimbraPppoeStop("eth0", kFamily); },
            socket,
            VIMBRA_PPPOE_EVENT_CONNECTED,
            Bytes(80, 1)};
}

template <u16 kFamily>
Reporting Ntp(const char* name, const char* socket) {
    return {name,
            "Ntp",
            [] { return VimbraNtpcStart(Host(kFamily), 60, [](u32, void*) { return Called(); }); },
            [] { return VimbraNtpcStop(kFamily); },
            socket,
            1,
            Bytes(40, 1)};
}

template <u16 kFamily, int kUser>
Reporting Ping(const char* name) {
    return {name,
            "Ping",
            [] {
                // A real daemon goes on with it until it is stopped.
                TVimbraPingOpt options = {56, 10000, 64, 1000};
                return VimbraPingStart(Host(kFamily), &options, kUser,
                                       [](s32, TVimbraPingCBInfo*) { return Called(); });
            },
            [] { return VimbraPingStop(kUser); },
            "ipc_ping",
            0,
            Pack().U32(kUser).FillTo(20)};
}

template <int kUser>
Reporting Traceroute(const char* name) {
    return {name,
            "Traceroute",
            [] {
                TVimbraTracerouteOpt options = {30};
                return VimbraTracerouteStart(
                    Host(kIpv4), &options, kUser,
                    [](s32, TVimbraTracerouteCBInfo*) { return Called(); });
            },
            [] { return VimbraTracerouteStop(kUser); },
            "ipc_traceroute",
            101,
            Pack().Zeros(24).U32(kUser).FillTo(48),
            nullptr,
            false,
            false,
            true};
}

// Nothing but the file's end ends a watch of leases.
Reporting LeaseWatch() {
    return {"LeaseWatch",
            "LeaseWatch",
            [] {
                bed::WriteFile(kLeases, "12345678");
                TDhcpServerConfInfo pool = {};
                TDhcpServerEthInfo& eth = pool.achTDhcpServerEthInfo[0];
                eth.dwIpPoolStart = htonl(0xc0a8010a);
                eth.dwIpPoolEnd = htonl(0xc0a80114);
                eth.dwNetMask = 24;
                return NetDhcpsStart(&pool, [](u32, TNetDhcpsNotify*) { return Called(); });
            },
            [] {
                const s32 result = NetDhcpsStop();
                unlink(kLeases);
                return result;
            },
            "",
            0,
            Bytes(36, 1),
            nullptr,
            true};
}

bool AppendLease(const Bytes& lease, size_t length) {
    const int file = open(kLeases, O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    const size_t wanted = std::min(length, lease.size());
    const bool written = pwrite(file, lease.data(), wanted, 8) == static_cast<ssize_t>(wanted);
    close(file);
    return written;
}

}  // namespace

// ------------------------------------------------------------------------------------------------

void PrintTo(const Reporting& reporting, std::ostream* out) {
    *out << reporting.name;
}

const std::vector<Reporting>& AllReporting() {
    static const std::vector<Reporting> all = {
        {"Statistics", "Statistics",
         [] { return VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { Called(); }); },
         [] { return VimbraStatStop(); }, "ipc_stat", 0, Bytes(72, 1)},
        Conflict<kIpv4>("Conflict", "ipc_ip_conflict"),
        Conflict<kIpv6>("ConflictIpv6", "ipc_ipv6_conflict"),
        RouterAdvertisement<0>("RouterAdvertisement"),
        RouterAdvertisement<1>("RouterAdvertisementElsewhere"),
        DhcpClient<kIpv4>("DhcpClient", "ipc_dhcpc_eth0"),
        DhcpClient<kIpv6>("DhcpClientIpv6", "ipc_dhcpcv6_eth0"),
        Pppoe<kIpv4>("Pppoe", "ipc_pppoe"),
        Pppoe<kIpv6>("PppoeIpv6", "ipc_pppoe6"),
        Pppoe<VIMBRA_FAMILY_BOTH>("PppoeBoth", "ipc_pppoe6"),
        Ntp<kIpv4>("Ntp", "ipc_ntp"),
        Ntp<kIpv6>("NtpIpv6", "ipc_ntpv6"),
        Ping<kIpv4, 1>("Ping"),
        Ping<kIpv6, 2>("PingIpv6"),
        Traceroute<1>("Traceroute"),
        Traceroute<2>("TracerouteOfAnother"),
        LeaseWatch(),
    };
    return all;
}

std::vector<Reporting> ReportingOf(const std::string& service) {
    std::vector<Reporting> found;
    for (const Reporting& reporting : AllReporting()) {
        if (reporting.service == service) {
            found.push_back(reporting);
        }
    }
    return found;
}

std::vector<std::string> ReportingServices() {
    std::vector<std::string> services;
    for (const Reporting& reporting : AllReporting()) {
        if (services.empty() || services.back() != reporting.service) {
            services.emplace_back(reporting.service);
        }
    }
    return services;
}

bool EndCallbacks() {
    g_inCallback = nullptr;
    return bed::WaitFor([] { return g_runningCallbacks == 0; });
}

int ConnectTo(const std::string& name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/tmp/" + name;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool Report(const Reporting& reporting, size_t length) {
    if (reporting.socket.empty()) {
        return AppendLease(reporting.body, length);
    }
    const int fd = ConnectTo(reporting.socket);
    if (fd < 0) {
        return false;
    }
    const Bytes message = bed::Message(reporting.type, reporting.body);
    const size_t wanted = std::min(length, message.size());
    const bool sent =
        send(fd, message.data(), wanted, MSG_NOSIGNAL) == static_cast<ssize_t>(wanted);
    close(fd);
    return sent;
}

// Of traces and watches of advertisements several may have the same name. A DHCP client that fell
// out of the list is ended by the start of another one.
void EndAll(const std::vector<Reporting>& all) {
    constexpr int kMostOfOneName = 4;
    for (const Reporting& reporting : all) {
        for (int i = 0; i < kMostOfOneName; i++) {
            reporting.stop();
        }
    }
    for (const Reporting& reporting : all) {
        reporting.start();
        reporting.stop();
    }
}

bed::Answer NoAddresses() {
    return bed::Answer::Body(Bytes(456));
}

}  // namespace vimbra::tests
