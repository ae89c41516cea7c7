#include "peer.hpp"

#include <sys/socket.h>

#include <fstream>

namespace vimbrad {

std::string Peer::Text() const {
    return pid == 0 ? name : name + ", pid " + std::to_string(pid) + ", uid " + std::to_string(uid);
}

Peer PeerOf(int socket) {
    ucred credentials{};
    socklen_t length = sizeof(credentials);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        return {"somebody"};
    }
    Peer peer{"", credentials.pid, credentials.uid};
    std::ifstream file("/proc/" + std::to_string(peer.pid) + "/comm");
    if (!std::getline(file, peer.name)) {
        peer.name = "somebody";
    }
    return peer;
}

}  // namespace vimbrad
