// The daemon's messages as an application's side of the socket sees them, without the library: what
// is asked byte by byte, and what is told.
#ifndef VIMBRA_TESTS_E2E_MESSAGES_HPP
#define VIMBRA_TESTS_E2E_MESSAGES_HPP

#include <cstdint>
#include <string>
#include <vector>
#include <vimbra/bed.hpp>

namespace vimbra::e2e {

// Sends a request; the result code of its reply.
int32_t Ask(uint32_t type, const bed::Bytes& body);

// Listens on /tmp/<name> as an application does and keeps what the daemon sends.
class Listener {
 public:
    explicit Listener(const std::string& name);

    // Waits until so many messages have come; those that have.
    std::vector<bed::Request> Wait(size_t count);
    std::vector<bed::Request> Messages() const { return socket_.Requests(); }
    void Forget() { socket_.Forget(); }

 private:
    bed::ScriptedDaemon socket_;
};

}  // namespace vimbra::e2e

#endif
