// Who asks: a process at the other end of a socket, or a part of the daemon itself.
#ifndef VIMBRA_TOOLS_VIMBRAD_PEER_HPP
#define VIMBRA_TOOLS_VIMBRAD_PEER_HPP

#include <sys/types.h>

#include <string>

namespace vimbrad {

struct Peer {
    std::string name;
    // 0 for a part of the daemon.
    pid_t pid = 0;
    uid_t uid = 0;

    // "vimbractl, pid 123, uid 0".
    std::string Text() const;
};

// As the kernel noted it when the peer connected; its name is that of the process that now has the
// number.
Peer PeerOf(int socket);

}  // namespace vimbrad

#endif
