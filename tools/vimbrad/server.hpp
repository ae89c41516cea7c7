// Takes requests from the socket and hands them to the registry, one per connection.
#ifndef VIMBRA_TOOLS_VIMBRAD_SERVER_HPP
#define VIMBRA_TOOLS_VIMBRAD_SERVER_HPP

#include <list>
#include <memory>

#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

class Connection;

// How many requests are carried out at a time: those that are answered at once, and those whose
// reply takes its time. The one kind never takes a place of the other.
struct ServerLimits {
    size_t quick;
    size_t pending;
};

// What a process may have that may open so many descriptors.
ServerLimits LimitsFor(size_t descriptors);

// No client can hold up another: a connection has a fixed buffer and a time limit for each of its
// steps, their number is limited, and when all are taken the oldest that has not yet sent its
// request makes room.
class Server {
 public:
    // Owns the listening socket from now on. The registry must outlive the server.
    Server(uv_loop_t* loop, Registry& registry, int listeningSocket, const ServerLimits& limits);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    Registry& Requests() { return registry_; }
    // Who connects from now on finds nobody; who is connected is served.
    void StopListening();
    // Whether one more request may take its time.
    bool MayWait() const;
    size_t Connections() const { return connections_.size(); }
    void Drop(const Connection* connection);

 private:
    void Accept();
    bool MakeRoom();
    size_t Pending() const;

    uv_loop_t* loop_;
    Registry& registry_;
    ServerLimits limits_;
    std::list<std::shared_ptr<Connection>> connections_;
    UvHandle<uv_pipe_t> listener_;
    // Runs when a connection has ended and a client waits for its place.
    UvHandle<uv_idle_t> next_;
    bool clientWaits_ = false;
};

}  // namespace vimbrad

#endif
