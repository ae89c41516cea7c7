// The network that a daemon under a fuzzer hears by sockets of its own: frames of other hosts, and
// ICMP of both families. What it sends there goes nowhere.
#ifndef VIMBRA_TESTS_FUZZ_NETWORK_HPP
#define VIMBRA_TESTS_FUZZ_NETWORK_HPP

#include <uv.h>

#include "input.hpp"

namespace vimbra::tests {

// A few messages to one of the daemon's sockets, with what the kernel says of them. Where the input
// does not say otherwise they are what the socket is there for: another host's claim to an address
// of ours, or an answer to the probe that was sent last.
void Deliver(uv_loop_t* loop, Input& input);

}  // namespace vimbra::tests

#endif
