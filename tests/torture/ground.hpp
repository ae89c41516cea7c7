// What the operations share: arguments, callbacks that count, and the daemon's side of an event.
#ifndef VIMBRA_TESTS_TORTURE_GROUND_HPP
#define VIMBRA_TESTS_TORTURE_GROUND_HPP

#include <vimbra/vimbra.h>
// After the current interface.
#include <vimbra/net.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vimbra/bed.hpp>

#include "injector.hpp"
#include "operation.hpp"

namespace vimbra::tests::torture {

inline char g_eth0[] = "eth0";
inline char g_lo[] = "lo";

inline TVimbraAddr Ipv4(const char* text) {
    TVimbraAddr address;
    memcpy(&address, bed::Pack().Address(2, text).Get().data(), sizeof(address));
    return address;
}

inline TVimbraAddr Ipv6(const char* text) {
    TVimbraAddr address;
    memcpy(&address, bed::Pack().Address(10, text).Get().data(), sizeof(address));
    return address;
}

inline u32 Word(const char* text) {
    return Ipv4(text).tV4Addr.s_addr;
}

// How often the library has called back.
inline std::atomic<long> g_events = 0;

// Sends one message to the listener on /tmp/<name> and waits until it has been dealt with, or the
// listener is gone; how often the library has called back by then.
long Post(const char* name, u32 type, const bed::Bytes& body);

// For a service that is to run: an event of its arrives.
std::string Arrives(const char* name, u32 type, const bed::Bytes& body);

}  // namespace vimbra::tests::torture

#endif
