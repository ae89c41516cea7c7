// What the wrappers of calls.inc have in common.
#ifndef VIMBRA_TESTS_TORTURE_CALLS_HPP
#define VIMBRA_TESTS_TORTURE_CALLS_HPP

#include <sys/types.h>

#include <cerrno>
#include <cstddef>

#include "inside.hpp"

namespace vimbra::tests::torture {

constexpr s64 kSecond = 1000000000;

// What a failing call returns for "nothing" or "a short count" of so many bytes.
inline ssize_t Count(int outcome, size_t size) {
    switch (outcome) {
        case kShort:
            return static_cast<ssize_t>((size + 1) / 2);
        case kEnd:
            return 0;
        default:
            return -1;
    }
}

// A call with a count: it is made for as many bytes as it is to take.
template <typename Make>
ssize_t Counted(Call call, size_t size, const Make& make, bool canEnd = true) {
    const int outcome = Meet(call, canEnd);
    if (outcome == 0) {
        return make(size);
    }
    const ssize_t count = Count(outcome, size);
    return count > 0 ? make(static_cast<size_t>(count)) : count;
}

#define TORTURE_OR(call, failure)    \
    if (Meet(Call::k_##call) != 0) { \
        return failure;              \
    }

inline int Descriptor(int fd) {
    const int error = errno;
    Opened(fd);
    errno = error;
    return fd;
}

template <typename Block>
Block* Tracked(Block* block) {
    const int error = errno;
    Allocated(block);
    errno = error;
    return block;
}

}  // namespace vimbra::tests::torture

#endif
