// The daemon's messages as an application's side of the socket sees them, without the library: what
// is asked byte by byte, and what is told.
#ifndef VIMBRA_TESTS_E2E_MESSAGES_HPP
#define VIMBRA_TESTS_E2E_MESSAGES_HPP

#include <vimbra/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::tests {

// Sends a request; the result code of its reply.
s32 Ask(u32 type, const bed::Bytes& body);

// A notification.
struct Told {
    u32 type = 0;
    u32 size = 0;  // as the header says
    bed::Bytes body;
};

std::vector<u32> Types(const std::vector<Told>& messages);

// Listens on /tmp/<name> as an application does, one connection after the other, and keeps what the
// daemon sends in the order in which it was sent.
class Listener {
 public:
    explicit Listener(const std::string& name);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Waits until so many messages have come; those that have.
    std::vector<Told> Wait(size_t count) const;
    std::vector<Told> Messages() const;
    void Forget();

 private:
    void Run();

    int socket_;
    mutable std::mutex mutex_;
    std::vector<Told> messages_;
    std::atomic<bool> over_ = false;
    std::thread thread_;
};

}  // namespace vimbra::tests

#endif
