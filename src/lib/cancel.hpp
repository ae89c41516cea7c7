// Keeps pthread_cancel(3) out of a scope. Destructors do not run on cancellation, so whoever holds
// a lock, a descriptor or memory must not be cut there.
#ifndef VIMBRA_LIB_CANCEL_HPP
#define VIMBRA_LIB_CANCEL_HPP

#include <pthread.h>

namespace vimbra {

class CancelGuard {
 public:
    CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
    ~CancelGuard() { pthread_setcancelstate(state_, nullptr); }
    CancelGuard(const CancelGuard&) = delete;
    CancelGuard& operator=(const CancelGuard&) = delete;

 private:
    int state_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace vimbra

#endif
