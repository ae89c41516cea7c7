// Refuses memory to the library. A test that includes this links the library's archive and is linked
// with -Wl,--wrap= for what the library allocates with (vimbra_refuse_memory in tests/CMakeLists.txt).
#ifndef VIMBRA_TESTS_GROUND_MEMORY_HPP
#define VIMBRA_TESTS_GROUND_MEMORY_HPP

#include <atomic>
#include <cstddef>

namespace vimbra::tests {

// Which allocation of this thread fails, counted from 1; 0: none, or it has failed.
extern thread_local int t_failAt;
// The size of allocations that fail on every thread; 0: none.
extern std::atomic<size_t> g_failSize;

}  // namespace vimbra::tests

#endif
