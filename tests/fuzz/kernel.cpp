#include "kernel.hpp"

#include <arpa/inet.h>
#include <linux/fib_rules.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/syscall.h>
#include <sys/timex.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <vector>

namespace vimbra::tests {
namespace {

using Bytes = std::vector<u8>;

Input* g_whims;
u64 g_passedMs;

// One for each connection would be truer; but each request is answered before the next is sent.
std::deque<Bytes> g_answers;

// Sockets for announcements.
std::vector<nl_sock*> g_listeners;

struct Device {
    int index;
    const char* name;
    unsigned type;
    unsigned flags;
};

constexpr Device kDevices[] = {{1, "lo", ARPHRD_LOOPBACK, IFF_UP | IFF_LOOPBACK | IFF_RUNNING},
                               {2, "eth0", ARPHRD_ETHER, IFF_UP | IFF_RUNNING | IFF_BROADCAST},
                               {3, "eth1", ARPHRD_ETHER, IFF_BROADCAST}};

// A message of the kernel, in the making.
class Message {
 public:
    Message(u16 type, u16 flags) : bytes_(sizeof(nlmsghdr)) {
        Head().nlmsg_type = type;
        Head().nlmsg_flags = flags;
    }

    template <class Record>
    Message& Add(const Record& record) {
        return Append(&record, sizeof(record));
    }

    Message& Attribute(u16 type, const void* data, size_t size) {
        const nlattr head = {static_cast<u16>(sizeof(nlattr) + size), type};
        return Append(&head, sizeof(head)).Append(data, size);
    }
    Message& Number(u16 type, u32 value) { return Attribute(type, &value, sizeof(value)); }
    Message& Text(u16 type, const char* text) { return Attribute(type, text, strlen(text) + 1); }
    Message& Address(u16 type, int family, const char* text) {
        u8 bytes[sizeof(in6_addr)];
        inet_pton(family, text, bytes);
        return Attribute(type, bytes, family == AF_INET ? 4 : sizeof(bytes));
    }

    Message& Append(const void* data, size_t size) {
        const auto* bytes = static_cast<const u8*>(data);
        bytes_.insert(bytes_.end(), bytes, bytes + size);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
        return *this;
    }

    Bytes Finish(u32 sequence, u32 port) {
        Head().nlmsg_len = static_cast<u32>(bytes_.size());
        Head().nlmsg_seq = sequence;
        Head().nlmsg_pid = port;
        return std::move(bytes_);
    }

 private:
    nlmsghdr& Head() { return *reinterpret_cast<nlmsghdr*>(bytes_.data()); }

    Bytes bytes_;
};

Message LinkMessage(const Device& device, u16 flags) {
    ifinfomsg head = {};
    head.ifi_type = static_cast<u16>(device.type);
    head.ifi_index = device.index;
    head.ifi_flags = device.flags;
    const u8 mac[6] = {2, 0, 0, 0, 0, static_cast<u8>(device.index)};
    rtnl_link_stats64 counters = {};
    counters.rx_bytes = 1000;
    return std::move(Message(RTM_NEWLINK, flags)
                         .Add(head)
                         .Text(IFLA_IFNAME, device.name)
                         .Number(IFLA_MTU, 1500)
                         .Attribute(IFLA_ADDRESS, mac, sizeof(mac))
                         .Attribute(IFLA_STATS64, &counters, sizeof(counters)));
}

Message AddressMessage(int index, u8 family, u8 prefix, const char* address) {
    const ifaddrmsg head = {family, prefix, IFA_F_PERMANENT, RT_SCOPE_UNIVERSE,
                            static_cast<u32>(index)};
    return std::move(Message(RTM_NEWADDR, NLM_F_MULTI)
                         .Add(head)
                         .Address(IFA_ADDRESS, family, address)
                         .Address(IFA_LOCAL, family, address)
                         .Number(IFA_FLAGS, IFA_F_PERMANENT));
}

Message RouteMessage(u8 family, u16 flags, const char* gateway) {
    rtmsg head = {};
    head.rtm_family = family;
    head.rtm_table = RT_TABLE_MAIN;
    head.rtm_protocol = RTPROT_STATIC;
    head.rtm_type = RTN_UNICAST;
    return std::move(Message(RTM_NEWROUTE, flags)
                         .Add(head)
                         .Number(RTA_TABLE, RT_TABLE_MAIN)
                         .Number(RTA_OIF, 2)
                         .Address(RTA_GATEWAY, family, gateway));
}

Message RuleMessage(u8 family, u32 priority, u8 table) {
    fib_rule_hdr head = {};
    head.family = family;
    head.table = table;
    head.action = FR_ACT_TO_TBL;
    return std::move(Message(RTM_NEWRULE, NLM_F_MULTI)
                         .Add(head)
                         .Number(FRA_TABLE, table)
                         .Number(FRA_PRIORITY, priority));
}

Message Verdict(const nlmsghdr& request, int error) {
    nlmsgerr record = {};
    record.error = -error;
    record.msg = request;
    return std::move(Message(NLMSG_ERROR, 0).Add(record));
}

bool IsDump(const nlmsghdr& request) {
    return (request.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
}

// The interface that a question names, if there is one.
const Device* DeviceOf(const nlmsghdr& request) {
    const auto* head = static_cast<const ifinfomsg*>(nlmsg_data(&request));
    nlattr* name = nlmsg_find_attr(const_cast<nlmsghdr*>(&request), sizeof(*head), IFLA_IFNAME);
    const auto* found = std::ranges::find_if(kDevices, [&](const Device& each) {
        return name != nullptr ? strcmp(each.name, nla_get_string(name)) == 0
                               : each.index == head->ifi_index;
    });
    return found == std::end(kDevices) ? nullptr : found;
}

std::vector<Message> Links(const nlmsghdr& request) {
    std::vector<Message> answer;
    if (IsDump(request)) {
        for (const Device& each : kDevices) {
            answer.push_back(LinkMessage(each, NLM_F_MULTI));
        }
    } else if (const Device* const device = DeviceOf(request)) {
        answer.push_back(LinkMessage(*device, 0));
        answer.push_back(Verdict(request, 0));
    } else {
        answer.push_back(Verdict(request, ENODEV));
    }
    return answer;
}

// The first is the way to any one destination.
std::vector<Message> Routes(const nlmsghdr& request) {
    const u8 family = *static_cast<const u8*>(nlmsg_data(&request));
    const u16 flags = IsDump(request) ? NLM_F_MULTI : 0;
    std::vector<Message> answer;
    answer.push_back(RouteMessage(family, flags, family == AF_INET ? "192.168.1.1" : "fe80::1"));
    if (IsDump(request)) {
        answer.push_back(
            RouteMessage(family, flags, family == AF_INET ? "192.168.1.3" : "fe80::3"));
    }
    return answer;
}

// What a machine answers that is well.
std::vector<Message> UsualAnswer(const nlmsghdr& request) {
    std::vector<Message> answer;
    switch (request.nlmsg_type) {
        case RTM_GETLINK:
            answer = Links(request);
            break;
        case RTM_GETADDR:
            answer.push_back(AddressMessage(1, AF_INET, 8, "127.0.0.1"));
            answer.push_back(AddressMessage(2, AF_INET, 24, "192.168.1.2"));
            answer.push_back(AddressMessage(2, AF_INET6, 64, "fe80::ff:fe00:2"));
            answer.push_back(AddressMessage(2, AF_INET6, 64, "2001:db8::2"));
            break;
        case RTM_GETROUTE:
            answer = Routes(request);
            break;
        case RTM_GETRULE:
            answer.push_back(RuleMessage(AF_INET, 32766, RT_TABLE_MAIN));
            answer.push_back(RuleMessage(AF_INET, 100, 7));
            break;
        default:
            answer.push_back(Verdict(request, 0));
            break;
    }
    if (IsDump(request)) {
        answer.push_back(std::move(Message(NLMSG_DONE, NLM_F_MULTI).Add(0)));
    }
    return answer;
}

// An answer of the right kind that holds what the input likes.
std::vector<Message> MadeAnswer(const nlmsghdr& request) {
    const u16 type = request.nlmsg_type >= RTM_BASE ? static_cast<u16>(request.nlmsg_type & ~3)
                                                    : u16{RTM_NEWLINK};
    const u8 count = g_whims->Byte() % 8;
    // Of several that are not marked as belonging together only the first is read.
    const u16 flags = IsDump(request) || count > 1 ? NLM_F_MULTI : 0;
    std::vector<Message> answer;
    for (u8 i = 0; i < count; i++) {
        const std::string content = g_whims->Block();
        answer.push_back(std::move(Message(type, flags).Append(content.data(), content.size())));
    }
    answer.push_back(flags != 0 ? std::move(Message(NLMSG_DONE, NLM_F_MULTI).Add(0))
                                : Verdict(request, 0));
    return answer;
}

// Something else in a few places, headers included.
void Alter(Bytes& message) {
    for (u8 count = g_whims->Byte() % 4; count > 0; count--) {
        const u16 at = g_whims->Word();
        message[at % message.size()] = g_whims->Byte();
    }
}

void Answer(const nlmsghdr& request) {
    enum Way : u8 { kUsual, kRefused, kMade, kAltered, kEnd };
    const u8 way = g_whims == nullptr || g_whims->AtEnd() ? u8{kUsual} : g_whims->Byte() % kEnd;
    std::vector<Message> messages;
    if (way == kRefused) {
        messages.push_back(Verdict(request, g_whims->Byte()));
    } else {
        messages = way == kMade ? MadeAnswer(request) : UsualAnswer(request);
    }
    for (Message& each : messages) {
        Bytes bytes = each.Finish(request.nlmsg_seq, request.nlmsg_pid);
        if (way == kAltered) {
            Alter(bytes);
        }
        g_answers.push_back(std::move(bytes));
    }
}

int TakeRequest(nl_sock*, nl_msg* message) {
    g_answers.clear();
    Answer(*nlmsg_hdr(message));
    return static_cast<int>(nlmsg_hdr(message)->nlmsg_len);
}

int GiveAnswer(nl_sock*, sockaddr_nl* from, unsigned char** bytes, ucred**) {
    if (g_answers.empty()) {
        return -NLE_AGAIN;
    }
    const Bytes answer = std::move(g_answers.front());
    g_answers.pop_front();
    *from = {};
    from->nl_family = AF_NETLINK;
    *bytes = static_cast<unsigned char*>(malloc(answer.size()));
    memcpy(*bytes, answer.data(), answer.size());
    return static_cast<int>(answer.size());
}

}  // namespace

void SetKernelWhims(Input* whims) {
    g_whims = whims;
}

void Announce(Input& input) {
    Message message(static_cast<u16>(RTM_NEWLINK + input.Byte() % (RTM_MAX - RTM_NEWLINK)), 0);
    const std::string content = input.Block();
    const Bytes bytes = message.Append(content.data(), content.size()).Finish(0, 0);
    for (nl_sock* const each : std::vector(g_listeners)) {
        g_answers = {bytes};
        nl_recvmsgs_default(each);
    }
}

void PassTime(u64 milliseconds) {
    g_passedMs += milliseconds;
}

}  // namespace vimbra::tests

using namespace vimbra::tests;

// A real socket, for the event loop to look at, that nothing is read from or written to.
extern "C" int __real_nl_connect(nl_sock* socket, int protocol);

extern "C" int __wrap_nl_connect(nl_sock* socket, int protocol) {
    const int result = __real_nl_connect(socket, protocol);
    nl_cb* const callbacks = nl_socket_get_cb(socket);
    nl_cb_overwrite_send(callbacks, TakeRequest);
    nl_cb_overwrite_recv(callbacks, GiveAnswer);
    nl_cb_put(callbacks);
    return result;
}

extern "C" nl_cb* __real_nl_cb_alloc(nl_cb_kind kind);

extern "C" nl_cb* __wrap_nl_cb_alloc(nl_cb_kind kind) {
    nl_cb* const callbacks = __real_nl_cb_alloc(kind);
    nl_cb_overwrite_recv(callbacks, GiveAnswer);
    return callbacks;
}

extern "C" int __real_nl_socket_add_membership(nl_sock* socket, int group);

extern "C" int __wrap_nl_socket_add_membership(nl_sock* socket, int group) {
    std::erase(g_listeners, socket);
    g_listeners.push_back(socket);
    return __real_nl_socket_add_membership(socket, group);
}

extern "C" void __real_nl_socket_free(nl_sock* socket);

extern "C" void __wrap_nl_socket_free(nl_sock* socket) {
    std::erase(g_listeners, socket);
    __real_nl_socket_free(socket);
}

// The machine's clock is not for a fuzzer to set.
extern "C" int __wrap_adjtimex(timex*) {
    return 0;
}

// Not by wrapping: the event loop asks it, too.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock != CLOCK_REALTIME && clock != CLOCK_PROCESS_CPUTIME_ID &&
        clock != CLOCK_THREAD_CPUTIME_ID) {
        now->tv_sec += static_cast<time_t>(g_passedMs / 1000);
        now->tv_nsec += static_cast<long>(g_passedMs % 1000) * 1'000'000;
        now->tv_sec += now->tv_nsec / 1'000'000'000;
        now->tv_nsec %= 1'000'000'000;
    }
    return static_cast<int>(result);
}
