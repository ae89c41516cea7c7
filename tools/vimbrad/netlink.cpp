#include "netlink.hpp"

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/errno.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vimbrad {
namespace {

// Each next hop says how long it is. The library goes by that without a look at it.
bool AreSound(const nlattr* hops) {
    const auto* bytes = static_cast<const u8*>(nla_data(hops));
    auto left = static_cast<size_t>(nla_len(hops));
    while (left >= sizeof(rtnexthop)) {
        rtnexthop hop;
        std::memcpy(&hop, bytes, sizeof(hop));
        const size_t taken = RTNH_ALIGN(size_t{hop.rtnh_len});
        if (hop.rtnh_len < sizeof(hop) || taken > left) {
            return false;
        }
        bytes += taken;
        left -= taken;
    }
    return true;
}

// That the library may read it. Of several attributes of a kind it takes the last.
bool IsSound(nlmsghdr* message) {
    if (message->nlmsg_type == RTM_NEWROUTE) {
        nlattr* each;
        int left;
        nlmsg_for_each_attr(each, message, sizeof(rtmsg), left) {
            if (nla_type(each) == RTA_MULTIPATH && !AreSound(each)) {
                return false;
            }
        }
    }
    return true;
}

// What an answer brings. The library's callbacks are C: no exception may leave them.
struct Taken {
    u16 type;
    std::vector<NlObject> objects;
    bool complete = true;
};

void TakeObject(nl_object* object, void* arg) noexcept {
    auto* taken = static_cast<Taken*>(arg);
    try {
        taken->objects.emplace_back();
    } catch (const std::bad_alloc&) {
        taken->complete = false;
        return;
    }
    nl_object_get(object);
    taken->objects.back().reset(object);
}

// A message that cannot be read is none.
int TakeMessage(nl_msg* message, void* arg) noexcept {
    nlmsghdr* head = nlmsg_hdr(message);
    if (head->nlmsg_type == static_cast<Taken*>(arg)->type && IsSound(head)) {
        nl_msg_parse(message, TakeObject, arg);
    }
    return NL_OK;
}

// New, delete, get and set follow each other in each kind.
u16 TypeOfAnswer(u16 question) {
    return static_cast<u16>(question - RTM_GETLINK + RTM_NEWLINK);
}

}  // namespace

Netlink::Netlink() : socket_(Allocated<NlSocket>(nl_socket_alloc())) {
    if (const int result = nl_connect(socket_.get(), NETLINK_ROUTE); result < 0) {
        throw Refusal(ErrnoOf(result), nl_geterror(result));
    }
    // The answer to a question is word enough.
    nl_socket_disable_auto_ack(socket_.get());
}

void Netlink::Change(NlMessage message) {
    nlmsg_hdr(message.get())->nlmsg_flags |= NLM_F_ACK;
    if (const int result = nl_send_auto(socket_.get(), message.get()); result < 0) {
        throw Refusal(ErrnoOf(result), nl_geterror(result));
    }

    // The library folds several error numbers into one of its own; the client is owed the kernel's.
    struct Outcome {
        bool known = false;
        int error = 0;
    } outcome;
    const NlCallbacks callbacks(nl_cb_alloc(NL_CB_DEFAULT));
    if (!callbacks) {
        throw std::bad_alloc();
    }
    nl_cb_err(
        callbacks.get(), NL_CB_CUSTOM,
        [](sockaddr_nl*, nlmsgerr* refusal, void* arg) {
            *static_cast<Outcome*>(arg) = {true, -refusal->error};
            return static_cast<int>(NL_STOP);
        },
        &outcome);
    nl_cb_set(
        callbacks.get(), NL_CB_ACK, NL_CB_CUSTOM,
        [](nl_msg*, void* arg) {
            *static_cast<Outcome*>(arg) = {true, 0};
            return static_cast<int>(NL_STOP);
        },
        &outcome);
    while (!outcome.known) {
        if (const int result = nl_recvmsgs(socket_.get(), callbacks.get());
            result < 0 && !outcome.known) {
            throw Refusal(ErrnoOf(result), nl_geterror(result));
        }
    }
    if (outcome.error != 0) {
        throw Refusal(outcome.error);
    }
}

// The library's own ways do not do: a cache keeps one of several routes with one destination and one
// metric, and an object that was asked for alone is lost when a second one follows.
Netlink::Answer Netlink::Ask(const NlMessage& question) {
    Taken taken{TypeOfAnswer(nlmsg_hdr(question.get())->nlmsg_type), {}};
    const auto callbacks = Allocated<NlCallbacks>(nl_cb_alloc(NL_CB_DEFAULT));
    nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, TakeMessage, &taken);
    int result = nl_send_auto(socket_.get(), question.get());
    if (result >= 0) {
        result = nl_recvmsgs(socket_.get(), callbacks.get());
    }
    if (!taken.complete) {
        throw std::bad_alloc();
    }
    return {result, std::move(taken.objects)};
}

Link Netlink::FindLink(const std::string& name) {
    if (name.empty() || name.size() >= IFNAMSIZ) {
        throw Refusal(ENODEV, "no interface " + name);
    }
    Answer answer = Ask(Build<NlMessage>([&name](nl_msg** question) {
        return rtnl_link_build_get_request(0, name.c_str(), question);
    }));
    // No error and no interface is what an answer that tells of neither becomes.
    if (answer.result < 0 || answer.objects.empty()) {
        throw Refusal(ENODEV, "no interface " + name);
    }
    return Link(reinterpret_cast<rtnl_link*>(answer.objects.front().release()));
}

void Netlink::BringUp(const std::string& name) {
    const Link link = FindLink(name);
    const auto changes = Allocated<Link>(rtnl_link_alloc());
    rtnl_link_set_flags(changes.get(), IFF_UP);
    Change(Build<NlMessage>([&](nl_msg** message) {
        return rtnl_link_build_change_request(link.get(), changes.get(), 0, message);
    }));
}

std::vector<IfaceAddr> Netlink::Addresses(int iface, u16 family) {
    const NlCache all = Dump(rtnl_addr_alloc_cache);
    std::vector<IfaceAddr> found;
    ForEach<rtnl_addr>(all, [&](rtnl_addr* each) {
        if (rtnl_addr_get_ifindex(each) == iface && Covers(family, rtnl_addr_get_family(each))) {
            nl_object_get(OBJ_CAST(each));
            found.emplace_back(each);
        }
    });
    std::stable_sort(found.begin(), found.end(), [](const auto& one, const auto& other) {
        return rtnl_addr_get_family(one.get()) < rtnl_addr_get_family(other.get());
    });
    return found;
}

int Netlink::ErrnoOf(int libraryError) {
    switch (-libraryError) {
        case NLE_NOMEM:
            return ENOMEM;
        case NLE_PERM:
            return EPERM;
        case NLE_NODEV:
            return ENODEV;
        case NLE_OBJ_NOTFOUND:
            return ENOENT;
        case NLE_EXIST:
            return EEXIST;
        case NLE_BUSY:
            return EBUSY;
        case NLE_OPNOTSUPP:
        case NLE_AF_NOSUPPORT:
            return EOPNOTSUPP;
        case NLE_INVAL:
        case NLE_RANGE:
            return EINVAL;
        default:
            return EIO;
    }
}

std::string NameOf(const char (&field)[VIMBRA_IFACE_NAME_LEN]) {
    return {field, strnlen(field, sizeof(field))};
}

std::span<const u8> BytesOf(const TVimbraAddr& address) {
    CheckOneFamily(address.wSinFamily);
    return {address.tV6Addr.s6_addr, address.wSinFamily == VIMBRA_FAMILY_IPV4
                                         ? sizeof(address.tV4Addr)
                                         : sizeof(address.tV6Addr)};
}

u32 FullPrefix(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 ? 32 : 128;
}

bool IsZero(const TVimbraAddr& address) {
    return std::ranges::all_of(BytesOf(address), [](u8 byte) { return byte == 0; });
}

bool Same(const TVimbraAddr& one, const TVimbraAddr& other) {
    return one.wSinFamily == other.wSinFamily && std::ranges::equal(BytesOf(one), BytesOf(other));
}

NlAddr MakeNlAddr(const TVimbraAddr& address, u32 prefix) {
    const std::span<const u8> bytes = BytesOf(address);
    if (prefix > bytes.size() * 8) {
        throw Refusal(EINVAL, "prefix longer than the address");
    }
    auto made = Allocated<NlAddr>(nl_addr_build(address.wSinFamily, bytes.data(), bytes.size()));
    nl_addr_set_prefixlen(made.get(), static_cast<int>(prefix));
    return made;
}

TVimbraAddr MakeAddr(const nl_addr* address) {
    TVimbraAddr made{};
    if (address == nullptr) {
        return made;
    }
    made.wSinFamily = static_cast<u16>(nl_addr_get_family(address));
    std::memcpy(&made.tV6Addr, nl_addr_get_binary_addr(address),
                std::min<size_t>(nl_addr_get_len(address), sizeof(made.tV6Addr)));
    return made;
}

}  // namespace vimbrad
