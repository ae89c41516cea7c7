// Keeps pthread_cancel(3) out of a scope. Destructors do not run on cancellation, so whoever holds
// a lock, a descriptor or memory must not be cut there.
#ifndef VIMBRA_LIB_BASE_CANCEL_HPP
#define VIMBRA_LIB_BASE_CANCEL_HPP

#include <pthread.h>

#include "lib/base/thread_local.hpp"

namespace vimbra {

// Guards are counted by thread and may end in any order, as those of moved owners do: the last one
// to go puts back what the first one found. A guard belongs to the thread that made it.
class CancelGuard {
 public:
    // Not inlined: there are many scopes.
    [[gnu::noinline]] CancelGuard() {
        int state;
        // Each one anew: a callback may have changed it.
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        if (count_++ == 0) {
            state_ = state;
        }
    }
    [[gnu::noinline]] ~CancelGuard() {
        if (--count_ == 0) {
            pthread_setcancelstate(state_, nullptr);
        }
    }
    CancelGuard(const CancelGuard&) = delete;
    CancelGuard& operator=(const CancelGuard&) = delete;

 private:
    VIMBRA_THREAD_LOCAL static inline constinit thread_local int count_ = 0;
    VIMBRA_THREAD_LOCAL static inline constinit thread_local int state_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace vimbra

#endif
