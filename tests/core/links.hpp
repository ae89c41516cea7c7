// Interfaces of a test's own network namespace.
#ifndef VIMBRA_TESTS_CORE_LINKS_HPP
#define VIMBRA_TESTS_CORE_LINKS_HPP

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace vimbra::tests {

// Runs a command that has to succeed.
inline void Shell(const std::string& command) {
    ASSERT_EQ(0, system(("PATH=$PATH:/usr/sbin:/sbin; " + command).c_str())) << command;
}

// A pair of Ethernet interfaces joined by a cable, both down.
inline void MakeLink(const std::string& name, const std::string& peer) {
    Shell("ip link add " + name + " type veth peer name " + peer);
}

}  // namespace vimbra::tests

#endif
