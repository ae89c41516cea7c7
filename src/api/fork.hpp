// fork(2). A child has a copy of everything but the threads: listeners that nobody serves, records
// that say "started", locks that nobody will release. So a child begins with nothing started: its
// copies of the listeners' descriptors are closed, without a shutdown, which the parent would feel,
// and every service forgets what ran. The parent notices nothing.
//
// Before the fork only locks are taken that are held for moments: the engine's, the thread table's
// and the system log's, so that what they guard is whole in the child. A service's own lock may be
// held for a request's minute. It is made new in the child instead, and what it guards is not
// looked at but set to what it was in the beginning.
//
// vfork(2) and posix_spawn(3) know no such handlers and need none.
#ifndef VIMBRA_API_FORK_HPP
#define VIMBRA_API_FORK_HPP

#include <pthread.h>

namespace vimbra {

// From now on; once for a process, with the lock of VimbraInit() held, which is also the first that
// is taken before a fork. False when memory is out, with errno.
bool HandleForks(pthread_mutex_t& init);

}  // namespace vimbra

#endif
