// The kernel that a daemon under a fuzzer speaks to: its answers over routing netlink, and its clock.
// Nothing of the machine is asked or changed.
#ifndef VIMBRA_TESTS_FUZZ_KERNEL_HPP
#define VIMBRA_TESTS_FUZZ_KERNEL_HPP

#include "input.hpp"

namespace vimbra::tests {

// Without whims the kernel has lo, eth0 and eth1 with a few addresses, routes and rules, and every
// change is done. With them each answer may be an error, be changed, or be made of the input; when
// nothing is left of it, all is as without. The input has to stay where it is.
void SetKernelWhims(Input* whims);

// An announcement of the kernel, made of the input, to all who listen.
void Announce(Input& input);

// For every clock but that of the day.
void PassTime(u64 milliseconds);

}  // namespace vimbra::tests

#endif
