// The services that report back, as one list: what a test of all of them needs to know of each.
#ifndef VIMBRA_TESTS_NOTIFY_SERVICES_HPP
#define VIMBRA_TESTS_NOTIFY_SERVICES_HPP

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/ip_conflict.h>
#include <vimbra/router_advertise.h>
#include <vimbra/stat.h>

#include <atomic>
#include <cstring>
#include <ostream>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

inline std::atomic<int> g_calls = 0;

struct NotifyService {
    const char* name;
    const char* socket;
    int (*start)();
    int (*stop)();
    u32 type;                 // of a good message
    size_t bodySize;          // of every message
    bool survivesBadMessage;  // else it ends and its place is free again
};

inline void PrintTo(const NotifyService& service, std::ostream* out) {
    *out << service.name;
}

inline char g_eth0[] = "eth0";

inline const NotifyService kServices[] = {
    {"Stat", "ipc_stat",
     [] { return VimbraStatNotifyCallbackReg(1, [](TNetDevStat*, u32) { g_calls++; }); },
     [] { return VimbraStatStop(); }, 0, 72, true},
    {"Conflict", "ipc_ip_conflict",
     [] {
         return VimbraIpConflictCheckStart(
             2, [](EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) { g_calls++; });
     },
     [] { return VimbraIpConflictCheckStop(2); }, 1, 42, true},
    {"ConflictV6", "ipc_ipv6_conflict",
     [] {
         return VimbraIpConflictCheckStart(
             10, [](EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) { g_calls++; });
     },
     [] { return VimbraIpConflictCheckStop(10); }, 2, 42, true},
    {"RouterAdvertise", "ipc_router_notify",
     [] { return VimbraRouterAdvertiseStart(g_eth0, [](TVimbraRouterAdCb*) { g_calls++; }); },
     [] { return VimbraRouterAdvertiseStop(g_eth0); }, 0, 468, false},
};

// A message that makes the service call back.
inline bed::Bytes GoodMessage(const NotifyService& service) {
    bed::Bytes body(service.bodySize, 1);
    return bed::Message(service.type, body);
}

// A connection without the bed's care, for thousands of them; -1 when it was refused.
inline int Connect(const char* name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = std::string("/tmp/") + name;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

inline bool SendTo(int fd, const bed::Bytes& bytes, size_t from, size_t count) {
    return send(fd, bytes.data() + from, count, MSG_NOSIGNAL) == static_cast<ssize_t>(count);
}

// Connect, write, close.
inline bool Post(const char* name, const bed::Bytes& bytes) {
    const int fd = Connect(name);
    if (fd < 0) {
        return false;
    }
    const bool sent = SendTo(fd, bytes, 0, bytes.size());
    close(fd);
    return sent;
}

}  // namespace vimbra::tests

#endif
