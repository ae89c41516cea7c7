#include "network.hpp"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/icmp6.h>
#include <netinet/if_ether.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>

#include <cerrno>
#include <deque>
#include <vector>

namespace vimbra::tests {
namespace {

using Bytes = std::vector<u8>;

struct Socket {
    int fd;
    int domain;
    // Of frames; in the order of the network.
    u16 protocol = 0;
    // What was sent last, and where to.
    Bytes probe{};
    Bytes to{};
};

// In the order in which they were opened.
std::vector<Socket> g_sockets;

// What a call that receives is given.
struct Arrival {
    // Instead of all the rest.
    int error;
    Bytes from;
    Bytes content;
    Bytes control;
};

// For the socket that is being woken.
std::deque<Arrival> g_messages;
std::deque<Arrival> g_errors;

Socket* Find(int fd) {
    const auto found =
        std::ranges::find_if(g_sockets, [fd](const Socket& each) { return each.fd == fd; });
    return found == g_sockets.end() ? nullptr : &*found;
}

template <class... Records>
Bytes Join(const Records&... records) {
    Bytes bytes;
    const auto append = [&bytes](const auto& record) {
        const auto* begin = reinterpret_cast<const u8*>(&record);
        bytes.insert(bytes.end(), begin, begin + sizeof(record));
    };
    (append(records), ...);
    return bytes;
}

template <class Record>
Bytes Control(int level, int type, const Record& record) {
    cmsghdr head = {};
    head.cmsg_len = CMSG_LEN(sizeof(record));
    head.cmsg_level = level;
    head.cmsg_type = type;
    Bytes bytes = Join(head, record);
    bytes.resize(CMSG_SPACE(sizeof(record)));
    return bytes;
}

// Another host of the link of eth0.
sockaddr_ll Neighbour(u16 protocol) {
    sockaddr_ll from = {};
    from.sll_family = AF_PACKET;
    from.sll_protocol = protocol;
    from.sll_ifindex = 2;
    from.sll_hatype = ARPHRD_ETHER;
    from.sll_pkttype = PACKET_BROADCAST;
    from.sll_halen = ETH_ALEN;
    from.sll_addr[0] = 2;
    from.sll_addr[5] = 0x99;
    return from;
}

// It has an address of eth0.
Bytes ArpFrame() {
    ether_arp arp = {};
    arp.ea_hdr = {htons(ARPHRD_ETHER), htons(ETHERTYPE_IP), sizeof(arp.arp_sha),
                  sizeof(arp.arp_spa), htons(ARPOP_REPLY)};
    arp.arp_sha[0] = 2;
    arp.arp_sha[5] = 0x99;
    inet_pton(AF_INET, "192.168.1.2", arp.arp_spa);
    return Join(arp);
}

Bytes AdvertisementPacket() {
    ip6_hdr ip = {};
    ip.ip6_nxt = IPPROTO_ICMPV6;
    ip.ip6_hlim = 255;
    inet_pton(AF_INET6, "fe80::99", &ip.ip6_src);
    nd_neighbor_advert message = {};
    message.nd_na_type = ND_NEIGHBOR_ADVERT;
    inet_pton(AF_INET6, "2001:db8::2", &message.nd_na_target);
    return Join(ip, message);
}

Bytes EchoReply(const Socket& socket) {
    Bytes reply;
    if (socket.domain == AF_INET) {
        iphdr ip = {};
        ip.version = 4;
        ip.ihl = sizeof(ip) / 4;
        ip.ttl = 64;
        ip.protocol = IPPROTO_ICMP;
        reply = Join(ip);
    }
    const size_t head = reply.size();
    reply.insert(reply.end(), socket.probe.begin(), socket.probe.end());
    if (reply.size() > head) {
        reply[head] = socket.domain == AF_INET ? u8{ICMP_ECHOREPLY} : u8{ICMP6_ECHO_REPLY};
    }
    return reply;
}

// A router's word that the time to live was used up.
Bytes Account(int domain) {
    sock_extended_err error = {};
    error.ee_errno = EHOSTUNREACH;
    if (domain == AF_INET) {
        error.ee_origin = SO_EE_ORIGIN_ICMP;
        error.ee_type = ICMP_TIME_EXCEEDED;
        sockaddr_in offender = {};
        offender.sin_family = AF_INET;
        inet_pton(AF_INET, "192.168.1.1", &offender.sin_addr);
        struct {
            sock_extended_err error;
            sockaddr_in offender;
        } account = {error, offender};
        return Control(SOL_IP, IP_RECVERR, account);
    }
    error.ee_origin = SO_EE_ORIGIN_ICMP6;
    error.ee_type = ICMP6_TIME_EXCEEDED;
    sockaddr_in6 offender = {};
    offender.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "2001:db8::1", &offender.sin6_addr);
    struct {
        sock_extended_err error;
        sockaddr_in6 offender;
    } account = {error, offender};
    return Control(SOL_IPV6, IPV6_RECVERR, account);
}

Arrival UsualMessage(const Socket& socket) {
    if (socket.domain == AF_PACKET) {
        return {0,
                Join(Neighbour(socket.protocol)),
                socket.protocol == htons(ETHERTYPE_ARP) ? ArpFrame() : AdvertisementPacket(),
                {}};
    }
    const int hopLimit = 64;
    return {0, socket.to, EchoReply(socket),
            socket.domain == AF_INET ? Bytes() : Control(SOL_IPV6, IPV6_HOPLIMIT, hopLimit)};
}

Arrival UsualError(const Socket& socket) {
    return {0, socket.to, socket.probe, Account(socket.domain)};
}

// As it is, changed in a few places, cut, or something else.
void Change(Bytes& bytes, Input& input) {
    enum Way : u8 { kKeep, kAlter, kCut, kReplace, kEnd };
    switch (input.Byte() % kEnd) {
        case kAlter:
            for (u8 count = input.Byte() % 8; count > 0 && !bytes.empty(); count--) {
                const u8 at = input.Byte();
                bytes[at % bytes.size()] = input.Byte();
            }
            break;
        case kCut:
            bytes.resize(std::min<size_t>(bytes.size(), input.Byte()));
            break;
        case kReplace: {
            const std::string other = input.Block();
            bytes.assign(other.begin(), other.end());
            break;
        }
        default:
            break;
    }
}

// What the network can decide: the records of the kernel keep their form.
void ChangeRecord(Bytes& control, Input& input) {
    for (u8 count = input.Byte() % 8; count > 0 && control.size() > sizeof(cmsghdr); count--) {
        const u8 at = input.Byte();
        control[sizeof(cmsghdr) + at % (control.size() - sizeof(cmsghdr))] = input.Byte();
    }
}

void Arrive(const Socket& socket, Input& input) {
    enum Kind : u8 { kMessage, kError, kFailure, kEnd };
    const u8 kind = input.Byte() % kEnd;
    if (kind == kFailure) {
        g_messages.push_back({input.Byte() % 128 + 1, {}, {}, {}});
        return;
    }
    Arrival arrival = kind == kError ? UsualError(socket) : UsualMessage(socket);
    Change(arrival.content, input);
    if (socket.domain == AF_PACKET) {
        Change(arrival.from, input);
    } else {
        ChangeRecord(arrival.control, input);
    }
    (kind == kError ? g_errors : g_messages).push_back(std::move(arrival));
}

uv_poll_t* FindPoll(uv_loop_t* loop, int fd) {
    struct Search {
        int fd;
        uv_poll_t* found = nullptr;
    } search{fd};
    uv_walk(
        loop,
        [](uv_handle_t* each, void* arg) {
            auto* const wanted = static_cast<Search*>(arg);
            int its = -1;
            if (each->type == UV_POLL && uv_is_active(each) != 0 && uv_fileno(each, &its) == 0 &&
                its == wanted->fd) {
                wanted->found = reinterpret_cast<uv_poll_t*>(each);
            }
        },
        &search);
    return search.found;
}

// As the loop does it: what waits in the queue of errors looks like an error of the descriptor.
void Wake(uv_poll_t* poll) {
    if (g_errors.empty()) {
        poll->poll_cb(poll, 0, UV_READABLE);
    } else {
        uv_poll_stop(poll);
        poll->poll_cb(poll, UV_EBADF, 0);
    }
}

// Copies as much as there is room for.
size_t Copy(void* to, size_t room, const Bytes& from) {
    const size_t count = std::min(room, from.size());
    std::copy_n(from.begin(), count, static_cast<u8*>(to));
    return count;
}

bool TakeArrival(std::deque<Arrival>& queue, Arrival& arrival) {
    if (queue.empty()) {
        errno = EAGAIN;
        return false;
    }
    arrival = std::move(queue.front());
    queue.pop_front();
    errno = arrival.error;
    return arrival.error == 0;
}

}  // namespace

void Deliver(uv_loop_t* loop, Input& input) {
    const u8 choice = input.Byte();
    u8 count = input.Byte() % 4;
    if (g_sockets.empty()) {
        return;
    }
    const Socket& socket = g_sockets[choice % g_sockets.size()];
    do {
        Arrive(socket, input);
    } while (count-- > 0);
    if (uv_poll_t* const poll = FindPoll(loop, socket.fd)) {
        Wake(poll);
    }
    g_messages.clear();
    g_errors.clear();
}

}  // namespace vimbra::tests

using namespace vimbra::tests;

// For the event loop to look at: nothing ever comes there.
extern "C" int __real_socket(int domain, int type, int protocol);

extern "C" int __wrap_socket(int domain, int type, int protocol) {
    if (domain != AF_PACKET && (type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) != SOCK_RAW) {
        return __real_socket(domain, type, protocol);
    }
    const int fd = __real_socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    g_sockets.push_back({fd, domain});
    return fd;
}

extern "C" int __real_close(int fd);

extern "C" int __wrap_close(int fd) {
    std::erase_if(g_sockets, [fd](const Socket& each) { return each.fd == fd; });
    return __real_close(fd);
}

extern "C" int __real_bind(int fd, const sockaddr* address, socklen_t length);

extern "C" int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
    Socket* const socket = Find(fd);
    if (socket == nullptr) {
        return __real_bind(fd, address, length);
    }
    socket->protocol = reinterpret_cast<const sockaddr_ll*>(address)->sll_protocol;
    return 0;
}

extern "C" int __real_setsockopt(int fd, int level, int option, const void* value,
                                 socklen_t length);

extern "C" int __wrap_setsockopt(int fd, int level, int option, const void* value,
                                 socklen_t length) {
    return Find(fd) == nullptr ? __real_setsockopt(fd, level, option, value, length) : 0;
}

extern "C" ssize_t __real_sendto(int fd, const void* bytes, size_t size, int flags,
                                 const sockaddr* to, socklen_t length);

extern "C" ssize_t __wrap_sendto(int fd, const void* bytes, size_t size, int flags,
                                 const sockaddr* to, socklen_t length) {
    Socket* const socket = Find(fd);
    if (socket == nullptr) {
        return __real_sendto(fd, bytes, size, flags, to, length);
    }
    const auto* begin = static_cast<const u8*>(bytes);
    socket->probe.assign(begin, begin + size);
    const auto* address = reinterpret_cast<const u8*>(to);
    socket->to.assign(address, address + length);
    return static_cast<ssize_t>(size);
}

extern "C" ssize_t __wrap_recvfrom(int, void* bytes, size_t size, int flags, sockaddr* from,
                                   socklen_t* length) {
    Arrival arrival;
    if (!TakeArrival(g_messages, arrival)) {
        return -1;
    }
    *length = static_cast<socklen_t>(Copy(from, *length, arrival.from));
    const size_t copied = Copy(bytes, size, arrival.content);
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? arrival.content.size() : copied);
}

extern "C" ssize_t __wrap_recvmsg(int, msghdr* message, int flags) {
    Arrival arrival;
    if (!TakeArrival((flags & MSG_ERRQUEUE) != 0 ? g_errors : g_messages, arrival)) {
        return -1;
    }
    message->msg_namelen =
        static_cast<socklen_t>(Copy(message->msg_name, message->msg_namelen, arrival.from));
    message->msg_controllen = Copy(message->msg_control, message->msg_controllen, arrival.control);
    return static_cast<ssize_t>(
        Copy(message->msg_iov->iov_base, message->msg_iov->iov_len, arrival.content));
}
