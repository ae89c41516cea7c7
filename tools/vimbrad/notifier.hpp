// Tells an application what happened: one message, one connection to the socket on which the
// application listens.
#ifndef VIMBRA_TOOLS_VIMBRAD_NOTIFIER_HPP
#define VIMBRA_TOOLS_VIMBRAD_NOTIFIER_HPP

#include <deque>
#include <functional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

// Messages to one socket, in order and without ever waiting for the application. An application
// that asked for messages may need a moment before it listens: until then they are kept, a limited
// number of them. When nobody listens for a second, or nobody takes what was sent for a while, all
// are dropped and the service is told.
class Notifier {
 public:
    // `name` is the socket's in /tmp. `on_nobody` is called from the loop, never from Post(); it
    // may post again, and it may destroy the notifier.
    Notifier(uv_loop_t* loop, const char* name, std::function<void()> onNobody);
    ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    template <class Body>
    void Post(u32 type, const Body& body) {
        static_assert(std::is_trivially_copyable_v<Body>);
        Enqueue(type, std::as_bytes(std::span(&body, 1)));
    }

    // One without a body.
    void Post(u32 type) { Enqueue(type, {}); }

    // A client that has just asked is about to listen: it has its second from now on.
    void AwaitListener() { failingSince_ = 0; }

    // Forgets what has not been sent.
    void Clear();

    // How many messages of all notifiers have not been delivered and not been given up.
    static size_t Pending() { return pending_; }

 private:
    struct Attempt;

    void Enqueue(u32 type, Bytes body);
    void Deliver();
    void Finished(int status);
    void TryLater(int status);
    void Show(const std::vector<char>& message) const;

    static inline size_t pending_ = 0;

    uv_loop_t* loop_;
    std::string path_;
    std::function<void()> onNobody_;
    std::deque<std::vector<char>> queue_;
    UvHandle<uv_timer_t> timer_;
    UvHandle<uv_pipe_t> pipe_;
    Attempt* attempt_ = nullptr;
    u64 failingSince_ = 0;
};

}  // namespace vimbrad

#endif
