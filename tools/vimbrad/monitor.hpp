// What passes between applications and the daemon, told live to operators who look on.
#ifndef VIMBRA_TOOLS_VIMBRAD_MONITOR_HPP
#define VIMBRA_TOOLS_VIMBRAD_MONITOR_HPP

#include <vimbra/types.h>

#include <cstddef>
#include <functional>
#include <list>
#include <span>
#include <string>
#include <string_view>

#include "peer.hpp"

namespace vimbrad {

// The daemon's one. Costs nothing while nobody looks on. Passwords are told as "***".
class Monitor {
 public:
    // Takes one line of JSON, without its end.
    using Sink = std::function<void(const std::string& line)>;
    using Watcher = std::list<Sink>::iterator;

    static Monitor& Instance();

    Watcher Add(Sink sink) { return sinks_.insert(sinks_.end(), std::move(sink)); }
    void Remove(Watcher watcher) { sinks_.erase(watcher); }

    void SawRequest(const Peer& peer, u32 type, std::span<const std::byte> body,
                    std::span<const std::byte> reply) const;
    // One that a listener has taken. `path` is its socket's.
    void SawNotification(std::string_view path, u32 type, std::span<const std::byte> body) const;

 private:
    std::list<Sink> sinks_;
};

}  // namespace vimbrad

#endif
