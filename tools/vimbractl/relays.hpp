// Hands on what a daemon tells listeners, one relay for each.
#ifndef VIMBRA_TOOLS_VIMBRACTL_RELAYS_HPP
#define VIMBRA_TOOLS_VIMBRACTL_RELAYS_HPP

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "lib/base/fd.hpp"

namespace ctl {

class Relay;

// Stands in front of the sockets of all listeners below /tmp, of those that come later too, as far
// as they may be moved. An application that takes its name anew is found again.
class Relays {
 public:
    // A notification that a listener has taken, with its header; `socket` is the name below /tmp.
    using Seen =
        std::function<void(const std::string& socket, const std::vector<std::byte>& message)>;

    // `seen` is called from threads of the relays.
    explicit Relays(Seen seen);
    // Whatever was sent before is handed on.
    ~Relays();
    Relays(const Relays&) = delete;
    Relays& operator=(const Relays&) = delete;

 private:
    void Watch();
    void ReadNames();
    void LookAtAll();
    void LookAt(const std::string& name);

    const Seen seen_;
    vimbra::Fd changes_;
    vimbra::Fd end_;
    std::map<std::string, std::unique_ptr<Relay>> relays_;
    // Names whose sockets do not listen yet, and how often they will be looked at.
    std::map<std::string, int> early_;
    std::thread thread_;
};

}  // namespace ctl

#endif
