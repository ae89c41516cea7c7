// The watches of the DHCP server's leases.
#ifndef VIMBRA_TESTS_GROUND_LEASE_WATCHES_HPP
#define VIMBRA_TESTS_GROUND_LEASE_WATCHES_HPP

#include <algorithm>
#include <string>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// How many of this process have begun. A start only starts a thread: until that has told the kernel
// of the file, what happens to the file is not seen, and it may still be another.
inline size_t LeaseWatches() {
    const auto open = bed::OpenDescriptors();
    return static_cast<size_t>(std::count_if(open.begin(), open.end(), [](const auto& one) {
        const std::string info = bed::ReadFile("/proc/self/fdinfo/" + std::to_string(one.first));
        return info.find("inotify wd:") != std::string::npos;
    }));
}

}  // namespace vimbra::tests

#endif
