// Sends ICMP and ICMPv6 echo requests to one host and tells what came back of each.
#ifndef VIMBRA_TOOLS_VIMBRAD_ECHO_PROBER_HPP
#define VIMBRA_TOOLS_VIMBRAD_ECHO_PROBER_HPP

#include <vimbra/addr.h>

#include <functional>
#include <map>
#include <memory>

#include "lib/base/fd.hpp"
#include "uv.hpp"

namespace vimbrad {

enum class Outcome {
    kReply,         // the host itself
    kTimeExceeded,  // a router on the way: the time to live was used up
    kUnreachable,   // a router on the way or this host: the probe cannot get there
};

// What came back of a probe.
struct Echo {
    u16 number;
    Outcome outcome;
    TVimbraAddr from;
    u32 ttl;  // of a reply; 0 otherwise
    u32 microseconds;
    u32 type;  // of the ICMP message
    u32 code;
};

class EchoProber {
 public:
    // May destroy the prober.
    using Handler = std::function<void(const Echo& echo)>;

    // Throws Refusal.
    EchoProber(uv_loop_t* loop, const TVimbraAddr& host, Handler handler);
    EchoProber(const EchoProber&) = delete;
    EchoProber& operator=(const EchoProber&) = delete;

    // Sends a probe with so many bytes of payload; a ttl of 0 is the system's own. 0, or the error
    // number with which the kernel refused.
    int Send(u16 number, int ttl, size_t payload);

    // Whatever comes back of the probe from now on is too late.
    void Forget(u16 number) { sent_.erase(number); }

 private:
    void Watch();
    void SetTtl(int ttl);
    void Read();
    bool ReadReply();
    bool ReadError();
    void Tell(Echo echo);

    bool IsV6() const { return host_.wSinFamily == VIMBRA_FAMILY_IPV6; }

    TVimbraAddr host_;
    Handler handler_;
    u16 identifier_;
    vimbra::Fd socket_;
    // When each probe was sent that is waited for, in nanoseconds.
    std::map<u16, u64> sent_;
    // Closed before the socket.
    UvHandle<uv_poll_t> poll_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>();
};

// The largest payload that fits into a packet.
size_t MaxPayload(u16 family);

}  // namespace vimbrad

#endif
