// System V semaphores as the library's own starts use them.
#ifndef VIMBRA_LIB_IPC_SEMAPHORE_HPP
#define VIMBRA_LIB_IPC_SEMAPHORE_HPP

namespace vimbra {

// As semaphore_p(), whatever signals the application handles meanwhile: a start that one lets pass
// would give the semaphore back once more than it was taken.
void TakeSemaphore(int id);

}  // namespace vimbra

#endif
