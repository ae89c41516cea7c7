// System V semaphores as the library's own starts use them.
#ifndef VIMBRA_LIB_IPC_SEMAPHORE_HPP
#define VIMBRA_LIB_IPC_SEMAPHORE_HPP

namespace vimbra {

// Keeps the starts of a service apart, those of all processes of the machine: a start takes the
// semaphore, its listener gives it back when it has bound, the start takes it once more and gives it
// back. A call that fails leaves the start unguarded and the count right: what was not taken is not
// given back, which would let two starts pass at a time, and what could not be given back is not
// taken again, since its starter would wait for itself.
//
// With the service's lock held; by the listener while its starter waits with that lock.
class StartSemaphore {
 public:
    explicit constexpr StartSemaphore(const int& id) : id_(id) {}

    // Waits for who has it, whatever signals the application handles meanwhile.
    void Take();
    void Give();
    // It stays as it is and is this service's no more.
    void Forget() { isHeld_ = false; }

 private:
    const int& id_;
    bool isHeld_ = false;
};

}  // namespace vimbra

#endif
