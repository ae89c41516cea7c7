// Stands in front of any daemon that serves /tmp/api_daemon, hands everything on, and tells what
// passes.
#ifndef VIMBRA_TOOLS_VIMBRACTL_PROXY_HPP
#define VIMBRA_TOOLS_VIMBRACTL_PROXY_HPP

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ctl {

// A request with its reply, headers included. The reply is empty where there was none.
struct Passed {
    pid_t pid;
    uid_t uid;
    std::string process;
    std::vector<std::byte> request;
    std::vector<std::byte> reply;
};

// The daemon's socket gets another name for as long as the object lives, which costs the daemon
// nothing: it serves the socket, not the name. The destructor gives the name back.
class Proxy {
 public:
    // `seen` is called from threads of the proxy. Throws CommandFailed when there is no daemon, or
    // its socket cannot be renamed.
    explicit Proxy(std::function<void(const Passed&)> seen);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

 private:
    void Serve();
    void Carry(int client) const;

    std::function<void(const Passed&)> seen_;
    int listener_;
};

}  // namespace ctl

#endif
