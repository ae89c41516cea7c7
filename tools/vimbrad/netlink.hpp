// The kernel's routing netlink, as the services use it: owned objects of the netlink library, and
// requests whose refusal carries the kernel's own error number.
#ifndef VIMBRA_TOOLS_VIMBRAD_NETLINK_HPP
#define VIMBRA_TOOLS_VIMBRAD_NETLINK_HPP

#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/object.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <vimbra/addr.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "family.hpp"
#include "refusal.hpp"

namespace vimbrad {

template <auto Free>
struct FreeWith {
    template <class Object>
    void operator()(Object* object) const {
        Free(object);
    }
};

using NlSocket = std::unique_ptr<nl_sock, FreeWith<nl_socket_free>>;
using NlCallbacks = std::unique_ptr<nl_cb, FreeWith<nl_cb_put>>;
using NlMessage = std::unique_ptr<nl_msg, FreeWith<nlmsg_free>>;
using NlCache = std::unique_ptr<nl_cache, FreeWith<nl_cache_free>>;
using NlObject = std::unique_ptr<nl_object, FreeWith<nl_object_put>>;
using NlAddr = std::unique_ptr<nl_addr, FreeWith<nl_addr_put>>;
using Link = std::unique_ptr<rtnl_link, FreeWith<rtnl_link_put>>;
using IfaceAddr = std::unique_ptr<rtnl_addr, FreeWith<rtnl_addr_put>>;

// For the library's builders: they fill in a pointer and return a negative number of their own.
template <class Owner, class Builder>
Owner Build(Builder build) {
    typename Owner::pointer raw = nullptr;
    const int result = build(&raw);
    if (result < 0 || raw == nullptr) {
        throw Refusal(result == -NLE_NOMEM ? ENOMEM : EINVAL, nl_geterror(result));
    }
    return Owner(raw);
}

// For its allocators.
template <class Owner>
Owner Allocated(typename Owner::pointer raw) {
    if (raw == nullptr) {
        throw std::bad_alloc();
    }
    return Owner(raw);
}

// A connection to the kernel. Each request uses one of its own: nothing that went wrong with one
// can be taken for the answer to the next.
class Netlink {
 public:
    Netlink();

    // Carries out a change and waits for the kernel's word. Throws Refusal.
    void Change(NlMessage message);

    struct Answer {
        // The library's.
        int result = 0;
        std::vector<NlObject> objects;
    };
    // What the kernel says to a question for one or for all: objects of the kind that is asked for,
    // in its order.
    Answer Ask(const NlMessage& question);

    // The interface of this name. Throws Refusal(ENODEV).
    Link FindLink(const std::string& name);

    // Throws Refusal.
    void BringUp(const std::string& name);

    // What an interface has of a family (2, 10, or 11 for both), IPv4 first, each in the kernel's
    // order.
    std::vector<IfaceAddr> Addresses(int iface, u16 family);

    // Dump of a kind of object, as the library's cache of it.
    template <class Alloc>
    NlCache Dump(Alloc alloc) {
        nl_cache* raw = nullptr;
        const int result = alloc(socket_.get(), &raw);
        if (result < 0) {
            throw Refusal(ErrnoOf(result), nl_geterror(result));
        }
        return NlCache(raw);
    }

    nl_sock* Socket() const { return socket_.get(); }

    // The error number behind one of the library's own.
    static int ErrnoOf(int libraryError);

 private:
    NlSocket socket_;
};

// Calls visit(Object*) for every object of a cache.
template <class Object, class Visit>
void ForEach(const NlCache& cache, Visit visit) {
    for (nl_object* each = nl_cache_get_first(cache.get()); each != nullptr;
         each = nl_cache_get_next(each)) {
        visit(reinterpret_cast<Object*>(each));
    }
}

// Text of a name field; it need not be terminated.
std::string NameOf(const char (&field)[VIMBRA_IFACE_NAME_LEN]);

// The bytes of an address that its family uses; what a client leaves in the others has no meaning.
// Throws Refusal(EINVAL) for another family than 2 and 10.
std::span<const u8> BytesOf(const TVimbraAddr& address);
// The prefix length of a single address.
u32 FullPrefix(u16 family);
bool IsZero(const TVimbraAddr& address);
bool Same(const TVimbraAddr& one, const TVimbraAddr& other);

// An address as the netlink library wants it. Throws Refusal(EINVAL) for another family than 2 and
// 10 and for a prefix beyond the address.
NlAddr MakeNlAddr(const TVimbraAddr& address, u32 prefix);

// The other way round; zero for no address.
TVimbraAddr MakeAddr(const nl_addr* address);

}  // namespace vimbrad

#endif
