// What the hosts of a link say of themselves: ARP for IPv4, neighbour discovery for IPv6.
#ifndef VIMBRA_TOOLS_VIMBRAD_NEIGHBOURS_HPP
#define VIMBRA_TOOLS_VIMBRAD_NEIGHBOURS_HPP

#include <vimbra/addr.h>

#include <array>
#include <functional>

#include "lib/base/fd.hpp"
#include "uv.hpp"

namespace vimbrad {

using Mac = std::array<u8, 6>;

// One statement of another host.
struct Statement {
    int iface;
    Mac mac;
    TVimbraAddr address;
    // It uses the address; otherwise it only asks whether it may.
    bool uses;
};

// Hears the statements of one family on all interfaces, and asks who uses an address.
class Neighbours {
 public:
    using Handler = std::function<void(const Statement& statement)>;

    // Family 2 or 10. Throws Refusal.
    Neighbours(uv_loop_t* loop, u16 family, Handler handler);
    Neighbours(const Neighbours&) = delete;
    Neighbours& operator=(const Neighbours&) = delete;

    // Asks as a host does that wants to use the address (RFC 5227, RFC 4862): whoever uses it
    // already answers, and nobody learns anything from the question. `mac` is the interface's.
    void Probe(int iface, const Mac& mac, const TVimbraAddr& address);

 private:
    void Read();

    u16 family_;
    Handler handler_;
    vimbra::Fd socket_;
    // Closed before the socket.
    UvHandle<uv_poll_t> poll_;
};

}  // namespace vimbrad

#endif
