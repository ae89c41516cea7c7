#include "neighbours.hpp"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/icmp6.h>
#include <netinet/if_ether.h>
#include <netinet/ip6.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <span>

#include "log.hpp"
#include "refusal.hpp"

namespace vimbrad {
namespace {

using Frame = std::span<const u8>;

// A loaded link must not keep the loop from everything else.
constexpr int kFramesAtOnce = 64;

template <class Record>
std::optional<Record> ReadAt(Frame frame, size_t offset) {
    if (frame.size() < offset + sizeof(Record)) {
        return std::nullopt;
    }
    Record record;
    std::memcpy(&record, frame.data() + offset, sizeof(record));
    return record;
}

TVimbraAddr V4(const u8 (&bytes)[4]) {
    TVimbraAddr address{};
    address.wSinFamily = VIMBRA_FAMILY_IPV4;
    std::memcpy(&address.tV4Addr, bytes, sizeof(bytes));
    return address;
}

TVimbraAddr V6(const in6_addr& bytes) {
    TVimbraAddr address{};
    address.wSinFamily = VIMBRA_FAMILY_IPV6;
    address.tV6Addr = bytes;
    return address;
}

// Whatever a host says under an address of its own it uses; without one it only asks for the
// target.
template <class Visit>
void ReadArp(Frame frame, Statement statement, Visit visit) {
    const auto arp = ReadAt<ether_arp>(frame, 0);
    if (!arp || arp->ea_hdr.ar_hrd != htons(ARPHRD_ETHER) ||
        arp->ea_hdr.ar_pro != htons(ETHERTYPE_IP) || arp->ea_hdr.ar_hln != sizeof(arp->arp_sha) ||
        arp->ea_hdr.ar_pln != sizeof(arp->arp_spa)) {
        return;
    }
    std::copy(std::begin(arp->arp_sha), std::end(arp->arp_sha), statement.mac.begin());
    constexpr u8 kNone[4] = {};
    statement.uses = !std::equal(std::begin(kNone), std::end(kNone), arp->arp_spa);
    statement.address = statement.uses ? V4(arp->arp_spa) : V4(arp->arp_tpa);
    visit(statement);
}

template <class Visit>
void ReadNeighbourDiscovery(Frame frame, Statement statement, Visit visit) {
    const auto ip = ReadAt<ip6_hdr>(frame, 0);
    const auto icmp = ReadAt<icmp6_hdr>(frame, sizeof(ip6_hdr));
    // A message with another hop limit has passed a router and is no neighbour's.
    if (!ip || !icmp || ip->ip6_nxt != IPPROTO_ICMPV6 || ip->ip6_hlim != 255 ||
        icmp->icmp6_type < ND_ROUTER_SOLICIT || icmp->icmp6_type > ND_NEIGHBOR_ADVERT) {
        return;
    }
    statement.uses = !IN6_IS_ADDR_UNSPECIFIED(&ip->ip6_src);
    if (statement.uses) {
        statement.address = V6(ip->ip6_src);
        visit(statement);
    }
    // Advertisements and solicitations have their target at the same place.
    const auto message = ReadAt<nd_neighbor_advert>(frame, sizeof(ip6_hdr));
    if (!message) {
        return;
    }
    const bool solicits = icmp->icmp6_type == ND_NEIGHBOR_SOLICIT && !statement.uses;
    if (icmp->icmp6_type == ND_NEIGHBOR_ADVERT || solicits) {
        statement.uses = !solicits;
        statement.address = V6(message->nd_na_target);
        visit(statement);
    }
}

// Lets only neighbour discovery through, so that other traffic costs nothing.
void FilterNeighbourDiscovery(int fd) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, offsetof(ip6_hdr, ip6_nxt)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_ICMPV6, 0, 4),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, sizeof(ip6_hdr)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, ND_ROUTER_SOLICIT, 0, 2),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, ND_NEIGHBOR_ADVERT, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, 0xffff),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog filter{std::size(program), program};
    if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter)) != 0) {
        throw Refusal(errno);
    }
}

ether_arp MakeArpProbe(const Mac& mac, const TVimbraAddr& address) {
    ether_arp arp{};
    arp.ea_hdr = {htons(ARPHRD_ETHER), htons(ETHERTYPE_IP), sizeof(arp.arp_sha),
                  sizeof(arp.arp_spa), htons(ARPOP_REQUEST)};
    std::copy(mac.begin(), mac.end(), arp.arp_sha);
    std::memcpy(arp.arp_tpa, &address.tV4Addr, sizeof(arp.arp_tpa));
    return arp;
}

struct SolicitationPacket {
    ip6_hdr ip;
    nd_neighbor_solicit message;
};
static_assert(sizeof(SolicitationPacket) == 64);

u16 Checksum(const SolicitationPacket& packet) {
    struct {
        in6_addr source, destination;
        u32 length, next;
        nd_neighbor_solicit message;
    } summed = {packet.ip.ip6_src, packet.ip.ip6_dst, htonl(sizeof(packet.message)),
                htonl(IPPROTO_ICMPV6), packet.message};
    u16 words[sizeof(summed) / sizeof(u16)];
    std::memcpy(words, &summed, sizeof(summed));
    u32 sum = 0;
    for (const u16 word : words) {
        sum += word;
    }
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<u16>(~sum);
}

SolicitationPacket MakeSolicitation(const TVimbraAddr& address) {
    SolicitationPacket packet{};
    packet.ip.ip6_flow = htonl(6U << 28);
    packet.ip.ip6_plen = htons(sizeof(packet.message));
    packet.ip.ip6_nxt = IPPROTO_ICMPV6;
    packet.ip.ip6_hlim = 255;
    // The group of all hosts whose address ends as this one.
    inet_pton(AF_INET6, "ff02::1:ff00:0", &packet.ip.ip6_dst);
    std::copy_n(address.tV6Addr.s6_addr + 13, 3, packet.ip.ip6_dst.s6_addr + 13);
    packet.message.nd_ns_type = ND_NEIGHBOR_SOLICIT;
    packet.message.nd_ns_target = address.tV6Addr;
    packet.message.nd_ns_cksum = Checksum(packet);
    return packet;
}

template <class Packet>
void SendTo(int fd, int iface, u16 protocol, const Mac& to, const Packet& packet) {
    sockaddr_ll target{};
    target.sll_family = AF_PACKET;
    target.sll_protocol = htons(protocol);
    target.sll_ifindex = iface;
    target.sll_halen = static_cast<u8>(to.size());
    std::copy(to.begin(), to.end(), target.sll_addr);
    // One that is lost is followed by others.
    if (sendto(fd, &packet, sizeof(packet), MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&target), sizeof(target)) < 0) {
        LogDebug("probe on interface %d: %s", iface, std::strerror(errno));
    }
}

}  // namespace

Neighbours::Neighbours(uv_loop_t* loop, u16 family, Handler handler)
    : family_(family),
      handler_(std::move(handler)),
      // Nothing is heard before the filter is there.
      socket_(socket, AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0) {
    if (!socket_) {
        throw Refusal(errno);
    }
    const bool v6 = family_ == VIMBRA_FAMILY_IPV6;
    if (v6) {
        FilterNeighbourDiscovery(socket_.Get());
    }
    sockaddr_ll heard{};
    heard.sll_family = AF_PACKET;
    heard.sll_protocol = htons(v6 ? ETHERTYPE_IPV6 : ETHERTYPE_ARP);
    if (bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&heard), sizeof(heard)) != 0) {
        throw Refusal(errno);
    }
    poll_ = MakePoll(loop, socket_.Get(), this);
    UvCheck(uv_poll_start(
                poll_.get(), UV_READABLE,
                [](uv_poll_t* poll, int, int) { static_cast<Neighbours*>(poll->data)->Read(); }),
            "poll");
}

void Neighbours::Read() {
    for (int i = 0; i < kFramesAtOnce; ++i) {
        std::array<u8, 256> buffer;
        sockaddr_ll from{};
        socklen_t length = sizeof(from);
        const ssize_t count = recvfrom(socket_.Get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                       reinterpret_cast<sockaddr*>(&from), &length);
        if (count < 0) {
            return;
        }
        Statement statement{};
        if (from.sll_pkttype == PACKET_OUTGOING || from.sll_hatype != ARPHRD_ETHER ||
            from.sll_halen != statement.mac.size()) {
            continue;
        }
        statement.iface = from.sll_ifindex;
        std::copy_n(from.sll_addr, statement.mac.size(), statement.mac.begin());
        const Frame frame(buffer.data(), std::min(static_cast<size_t>(count), buffer.size()));
        if (family_ == VIMBRA_FAMILY_IPV6) {
            ReadNeighbourDiscovery(frame, statement, handler_);
        } else {
            ReadArp(frame, statement, handler_);
        }
    }
}

void Neighbours::Probe(int iface, const Mac& mac, const TVimbraAddr& address) {
    if (family_ == VIMBRA_FAMILY_IPV4) {
        constexpr Mac kEveryone = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
        SendTo(socket_.Get(), iface, ETHERTYPE_ARP, kEveryone, MakeArpProbe(mac, address));
        return;
    }
    const u8* end = address.tV6Addr.s6_addr + 13;
    const Mac group = {0x33, 0x33, 0xff, end[0], end[1], end[2]};
    SendTo(socket_.Get(), iface, ETHERTYPE_IPV6, group, MakeSolicitation(address));
}

}  // namespace vimbrad
