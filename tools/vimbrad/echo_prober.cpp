#include "echo_prober.hpp"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <linux/icmp.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "netlink.hpp"

namespace vimbrad {
namespace {

// A flood of answers must not keep the loop from everything else.
constexpr int kMessagesAtOnce = 64;

// Echo messages of both families look alike.
struct EchoHead {
    u8 type;
    u8 code;
    u16 checksum;
    u16 identifier;
    u16 number;
};
static_assert(sizeof(EchoHead) == 8);

// The kernel may have no random numbers for a while after it has started; nobody waits for them.
u16 FirstIdentifier() {
    u16 first;
    return getrandom(&first, sizeof(first), GRND_NONBLOCK) == sizeof(first)
               ? first
               : static_cast<u16>(static_cast<u64>(getpid()) ^ uv_hrtime());
}

// Tells the probes of several probers, and those of other programs, from each other.
u16 NewIdentifier() {
    static u16 next = FirstIdentifier();
    return next++;
}

u16 Checksum(const std::vector<u8>& bytes) {
    u32 sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        u8 pair[2] = {bytes[i], i + 1 < bytes.size() ? bytes[i + 1] : u8{0}};
        u16 word;
        std::memcpy(&word, pair, sizeof(word));
        sum += word;
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<u16>(~sum);
}

// Room for a socket address of either family.
union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

SocketAddress MakeSocketAddress(const TVimbraAddr& address) {
    SocketAddress made{};
    if (address.wSinFamily == VIMBRA_FAMILY_IPV6) {
        made.v6.sin6_family = AF_INET6;
        made.v6.sin6_addr = address.tV6Addr;
    } else {
        made.v4.sin_family = AF_INET;
        made.v4.sin_addr = address.tV4Addr;
    }
    return made;
}

TVimbraAddr MakeAddress(const SocketAddress& address) {
    TVimbraAddr made{};
    made.wSinFamily = static_cast<u16>(address.any.sa_family);
    if (address.any.sa_family == AF_INET6) {
        made.tV6Addr = address.v6.sin6_addr;
    } else if (address.any.sa_family == AF_INET) {
        made.tV4Addr = address.v4.sin_addr;
    }
    return made;
}

// A message and what the kernel says about it.
struct Received {
    SocketAddress from{};
    std::array<u8, 256> bytes{};
    size_t size = 0;
    alignas(cmsghdr) std::array<u8, 512> control{};
    msghdr head{};

    bool Read(int fd, int flags) {
        iovec buffer{bytes.data(), bytes.size()};
        head.msg_name = &from;
        head.msg_namelen = sizeof(from);
        head.msg_iov = &buffer;
        head.msg_iovlen = 1;
        head.msg_control = control.data();
        head.msg_controllen = control.size();
        const ssize_t count = recvmsg(fd, &head, flags | MSG_DONTWAIT);
        size = count < 0 ? 0 : static_cast<size_t>(count);
        return count >= 0;
    }

    // The kernel's record of this kind, if it is there and at least so long.
    const u8* Control(int level, int type, size_t length) {
        for (cmsghdr* each = CMSG_FIRSTHDR(&head); each != nullptr;
             each = CMSG_NXTHDR(&head, each)) {
            if (each->cmsg_level == level && each->cmsg_type == type &&
                each->cmsg_len >= CMSG_LEN(length)) {
                return CMSG_DATA(each);
            }
        }
        return nullptr;
    }

    std::optional<EchoHead> EchoAt(size_t offset) const {
        if (size < offset + sizeof(EchoHead)) {
            return std::nullopt;
        }
        EchoHead echo;
        std::memcpy(&echo, bytes.data() + offset, sizeof(echo));
        return echo;
    }
};

template <class Value>
void SetOption(int fd, int level, int option, const Value& value) {
    if (setsockopt(fd, level, option, &value, sizeof(value)) != 0) {
        throw Refusal(errno);
    }
}

vimbra::Fd OpenV4() {
    vimbra::Fd fd(socket, AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMP);
    if (!fd) {
        throw Refusal(errno);
    }
    SetOption(fd.Get(), SOL_RAW, ICMP_FILTER, icmp_filter{~(1U << ICMP_ECHOREPLY)});
    SetOption(fd.Get(), SOL_IP, IP_RECVERR, 1);
    return fd;
}

vimbra::Fd OpenV6() {
    vimbra::Fd fd(socket, AF_INET6, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMPV6);
    if (!fd) {
        throw Refusal(errno);
    }
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ICMP6_ECHO_REPLY, &filter);
    SetOption(fd.Get(), SOL_ICMPV6, ICMP6_FILTER, filter);
    SetOption(fd.Get(), SOL_IPV6, IPV6_RECVERR, 1);
    SetOption(fd.Get(), SOL_IPV6, IPV6_RECVHOPLIMIT, 1);
    return fd;
}

vimbra::Fd Open(u16 family) {
    CheckOneFamily(family);
    return family == VIMBRA_FAMILY_IPV4 ? OpenV4() : OpenV6();
}

}  // namespace

size_t MaxPayload(u16 family) {
    constexpr size_t kPacketMax = 65535;
    // IPv6 does not count its own header.
    return kPacketMax - sizeof(EchoHead) - (family == VIMBRA_FAMILY_IPV4 ? sizeof(iphdr) : 0);
}

EchoProber::EchoProber(uv_loop_t* loop, const TVimbraAddr& host, Handler handler)
    : host_(host),
      handler_(std::move(handler)),
      identifier_(NewIdentifier()),
      socket_(Open(host.wSinFamily)),
      poll_(MakePoll(loop, socket_.Get(), this)) {
    Watch();
}

// An error message that waits ends the watch, as an error of the descriptor would: it begins anew
// once the message has been read.
void EchoProber::Watch() {
    UvCheck(uv_poll_start(poll_.get(), UV_READABLE,
                          [](uv_poll_t* poll, int status, int) {
                              auto* self = static_cast<EchoProber*>(poll->data);
                              const std::weak_ptr<bool> alive = self->alive_;
                              self->Read();
                              if (status < 0 && !alive.expired()) {
                                  self->Watch();
                              }
                          }),
            "poll");
}

void EchoProber::SetTtl(int ttl) {
    // -1 is the system's own.
    const int value = ttl == 0 ? -1 : ttl;
    if (IsV6()) {
        SetOption(socket_.Get(), SOL_IPV6, IPV6_UNICAST_HOPS, value);
    } else {
        SetOption(socket_.Get(), SOL_IP, IP_TTL, value);
    }
}

int EchoProber::Send(u16 number, int ttl, size_t payload) {
    std::vector<u8> packet(sizeof(EchoHead) + payload);
    for (size_t i = sizeof(EchoHead); i < packet.size(); ++i) {
        packet[i] = static_cast<u8>(i);
    }
    EchoHead echo{static_cast<u8>(IsV6() ? ICMP6_ECHO_REQUEST : ICMP_ECHO), 0, 0,
                  htons(identifier_), htons(number)};
    std::memcpy(packet.data(), &echo, sizeof(echo));
    if (!IsV6()) {
        echo.checksum = Checksum(packet);
        std::memcpy(packet.data(), &echo, sizeof(echo));
    }
    SetTtl(ttl);
    const SocketAddress to = MakeSocketAddress(host_);
    // An error message about an earlier probe makes one call fail that has nothing to do with it.
    int pending = 0;
    socklen_t length = sizeof(pending);
    getsockopt(socket_.Get(), SOL_SOCKET, SO_ERROR, &pending, &length);
    sent_[number] = uv_hrtime();
    if (sendto(socket_.Get(), packet.data(), packet.size(), 0, &to.any,
               IsV6() ? sizeof(to.v6) : sizeof(to.v4)) >= 0) {
        return 0;
    }
    const int error = errno;
    sent_.erase(number);
    return error;
}

void EchoProber::Read() {
    const std::weak_ptr<bool> alive = alive_;
    for (int i = 0; i < kMessagesAtOnce && !alive.expired(); ++i) {
        // Both are asked each time: an error in the queue hides no reply.
        const bool error = ReadError();
        if (alive.expired() || (!ReadReply() && !error)) {
            return;
        }
    }
}

bool EchoProber::ReadReply() {
    Received received;
    if (!received.Read(socket_.Get(), 0)) {
        // The error of a message that is in the other queue.
        return errno != EAGAIN && errno != EWOULDBLOCK;
    }
    Echo echo{};
    size_t offset = 0;
    if (IsV6()) {
        if (const u8* limit = received.Control(SOL_IPV6, IPV6_HOPLIMIT, sizeof(int))) {
            int value;
            std::memcpy(&value, limit, sizeof(value));
            echo.ttl = static_cast<u32>(value);
        }
    } else {
        if (received.size < sizeof(iphdr)) {
            return true;
        }
        iphdr ip;
        std::memcpy(&ip, received.bytes.data(), sizeof(ip));
        echo.ttl = ip.ttl;
        offset = size_t{ip.ihl} * 4;
    }
    const auto head = received.EchoAt(offset);
    echo.from = MakeAddress(received.from);
    if (!head || head->identifier != htons(identifier_) || !Same(echo.from, host_)) {
        return true;
    }
    echo.number = ntohs(head->number);
    echo.outcome = Outcome::kReply;
    echo.type = head->type;
    echo.code = head->code;
    Tell(echo);
    return true;
}

bool EchoProber::ReadError() {
    Received received;
    if (!received.Read(socket_.Get(), MSG_ERRQUEUE)) {
        return false;
    }
    // The kernel's account of the error and, behind it, who sent it.
    struct {
        sock_extended_err error;
        SocketAddress offender;
    } account{};
    const size_t length =
        sizeof(account.error) + (IsV6() ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
    const u8* control = IsV6() ? received.Control(SOL_IPV6, IPV6_RECVERR, length)
                               : received.Control(SOL_IP, IP_RECVERR, length);
    // What comes back is the probe.
    const auto head = received.EchoAt(0);
    if (control == nullptr || !head || head->identifier != htons(identifier_)) {
        return true;
    }
    std::memcpy(&account.error, control, sizeof(account.error));
    std::memcpy(&account.offender, control + sizeof(account.error), length - sizeof(account.error));

    Echo echo{};
    echo.number = ntohs(head->number);
    echo.from = MakeAddress(account.offender);
    echo.type = account.error.ee_type;
    echo.code = account.error.ee_code;
    const bool exceeded =
        (account.error.ee_origin == SO_EE_ORIGIN_ICMP && echo.type == ICMP_TIME_EXCEEDED) ||
        (account.error.ee_origin == SO_EE_ORIGIN_ICMP6 && echo.type == ICMP6_TIME_EXCEEDED);
    echo.outcome = exceeded ? Outcome::kTimeExceeded : Outcome::kUnreachable;
    Tell(echo);
    return true;
}

void EchoProber::Tell(Echo echo) {
    const auto sent = sent_.find(echo.number);
    if (sent == sent_.end()) {
        return;
    }
    echo.microseconds = static_cast<u32>((uv_hrtime() - sent->second) / 1000);
    sent_.erase(sent);
    // The handler may go with the prober.
    const Handler handler = handler_;
    handler(echo);
}

}  // namespace vimbrad
