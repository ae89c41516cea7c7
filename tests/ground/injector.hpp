// Watches the allocations and system calls of the thread at hand and makes them fail. A test that
// includes this links the library's archive and is linked with -Wl,--wrap= for each of the calls
// (vimbra_inject in tests/CMakeLists.txt).
#ifndef VIMBRA_TESTS_GROUND_INJECTOR_HPP
#define VIMBRA_TESTS_GROUND_INJECTOR_HPP

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace vimbra::tests {

// Counts from construction on, in the constructing thread alone. One at a time per thread.
class Injector {
 public:
    Injector();
    ~Injector();
    Injector(const Injector&) = delete;
    Injector& operator=(const Injector&) = delete;

    // The call of this number, counted from 1 over all calls, fails with what is usual for it; with
    // forGood all later ones do, too. A close that fails has closed all the same.
    void FailAt(size_t number, bool forGood = false);
    // What fails has this errno instead of the usual one.
    void UseError(int error) { error_ = error; }
    // All calls of this name fail.
    void FailEvery(const std::string& call) { failEvery_ = call; }
    // The process is killed at the call of this number, before it is made.
    void KillAt(size_t number) { killAt_ = number; }

    // Replaces calls; where a function returns kReal the real call is made.
    static constexpr int kReal = -1000;
    std::function<int(int)> onConnect;
    std::function<int(int, fd_set*, fd_set*, fd_set*, timeval*)> onSelect;
    std::function<ssize_t(int, const void*, size_t)> onSend;
    std::function<ssize_t(int, void*, size_t)> onRead;
    std::function<int(int, int, long)> onFcntl;
    std::function<int(int, unsigned long, void*)> onIoctl;
    std::function<int(int, int, int, const void*, socklen_t)> onSetsockopt;
    std::function<int(const char*, int)> onOpen;
    // How much of so many bytes a write to a file takes; for less than nothing it fails with errno.
    std::function<ssize_t(size_t)> onWrite;

    // Nothing is counted or injected any more; the destructor does it, too.
    void Stop();

    // The calls so far by name; freed memory is not among them.
    const std::vector<std::string>& Calls() const { return calls_; }
    // The first call that FailAt made fail; empty if there was none.
    const std::string& Failed() const { return failed_; }
    // The sizes that were allocated.
    const std::vector<size_t>& Sizes() const { return sizes_; }
    // What was allocated or opened here and not given back.
    size_t Blocks() const { return blocks_.size(); }
    const std::set<int>& Descriptors() const { return descriptors_; }

    // For the wrappers.
    static Injector* Current();
    bool Fails(const char* call);
    // errno of a call that fails: the usual one, unless the test names another.
    int Error(int usual) const { return error_ != 0 ? error_ : usual; }
    void Allocated(void* block, size_t size);
    void Freed(void* block) { blocks_.erase(block); }
    void Opened(int fd) { descriptors_.insert(fd); }
    void Closed(int fd) { descriptors_.erase(fd); }

 private:
    size_t failAt_ = 0;
    bool forGood_ = false;
    int error_ = 0;
    std::string failEvery_;
    size_t killAt_ = 0;
    std::vector<std::string> calls_;
    std::string failed_;
    std::vector<size_t> sizes_;
    std::set<void*> blocks_;
    std::set<int> descriptors_;
};

}  // namespace vimbra::tests

#endif
