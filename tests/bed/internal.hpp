// What the bed's files share among themselves.
#ifndef VIMBRA_TESTS_BED_INTERNAL_HPP
#define VIMBRA_TESTS_BED_INTERNAL_HPP

#include <unistd.h>

#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace vimbra::bed::internal {

// An owned descriptor that OpenDescriptors leaves out.
class Descriptor {
 public:
    Descriptor() = default;
    explicit Descriptor(int number);
    // Takes what `open` gives in one step with entering it, for threads of the bed's own.
    static Descriptor Take(const std::function<int()>& open);
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { Reset(); }

    [[nodiscard]] int Get() const { return number_; }
    void Reset();

 private:
    int number_ = -1;
};

// A pipe that says "stop" to any number of poll calls once its writing end is closed.
struct StopPipe {
    StopPipe();
    [[nodiscard]] int Waiter() const { return reading.Get(); }
    void Stop() { writing.Reset(); }

    Descriptor reading;
    Descriptor writing;
};

// Starts a thread that takes no signals and that ThreadNames leaves out, from the first moment on.
std::thread StartThread(std::function<void()> body);

// A listening or datagram socket bound to `path`; throws when somebody serves the path already.
Descriptor BindSocket(int type, const std::string& path);

// A connection; without one, errno tells why.
Descriptor ConnectSocket(int type, const std::string& path);

// The next connection that waits on `listening`, if one does.
Descriptor AcceptSocket(int listening);

// Sends everything without a signal; false when the peer is gone.
bool SendAll(int descriptor, const void* bytes, size_t size);

// Waits until the peer has read all that was sent, has closed, or `stop` (-1 for none) says so.
bool AwaitRead(int descriptor, int stop);

std::string SocketPath(std::string_view name);

}  // namespace vimbra::bed::internal

#endif
