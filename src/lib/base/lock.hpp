// A mutex held for a scope, and no cancellation while it is.
#ifndef VIMBRA_LIB_BASE_LOCK_HPP
#define VIMBRA_LIB_BASE_LOCK_HPP

#include <pthread.h>

#include "lib/base/cancel.hpp"

namespace vimbra {

class Lock {
 public:
    explicit Lock(pthread_mutex_t& mutex) : mutex_(&mutex) { pthread_mutex_lock(mutex_); }
    ~Lock() { Unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    // Releases early; the destructor then does nothing.
    void Unlock() {
        if (mutex_ != nullptr) {
            pthread_mutex_unlock(mutex_);
            mutex_ = nullptr;
        }
    }

 private:
    CancelGuard guard_;
    pthread_mutex_t* mutex_;
};

}  // namespace vimbra

#endif
