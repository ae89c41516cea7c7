// What the table of threads does around fork(2).
#ifndef VIMBRA_LIB_THREADS_THREAD_HPP
#define VIMBRA_LIB_THREADS_THREAD_HPP

namespace vimbra {

void HoldThreads();
void ReleaseThreads();

// In the child, which has one thread: the others' handles are nobody's.
void ForgetThreads();

}  // namespace vimbra

#endif
