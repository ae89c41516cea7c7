// Stands in front of any daemon that serves /tmp/api_daemon, hands everything on, and tells what
// passes.
#ifndef VIMBRA_TOOLS_VIMBRACTL_PROXY_HPP
#define VIMBRA_TOOLS_VIMBRACTL_PROXY_HPP

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "relays.hpp"
#include "stand_in.hpp"

namespace ctl {

// A request with its reply, headers included. The reply is empty where there was none.
struct Passed {
    pid_t pid;
    uid_t uid;
    std::string process;
    std::vector<std::byte> request;
    std::vector<std::byte> reply;
};

// Has the daemon's name, and its listeners' names, for as long as the object lives.
class Proxy {
 public:
    // `seen` and `told` are called from threads of the proxy. Throws CommandFailed when there is no
    // daemon, or its socket cannot be renamed.
    Proxy(std::function<void(const Passed&)> seen, Relays::Seen told);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

 private:
    struct Shared;

    void Serve() const;

    const std::shared_ptr<Shared> shared_;
    const Relays relays_;
    std::thread thread_;
};

}  // namespace ctl

#endif
