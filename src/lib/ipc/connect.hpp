// Connecting to a Unix stream socket in bounded time. The kernel lets who connects wait for a place
// in the peer's backlog, for ever if the peer never accepts.
#ifndef VIMBRA_LIB_IPC_CONNECT_HPP
#define VIMBRA_LIB_IPC_CONNECT_HPP

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace vimbra {

// Connects a socket that does not block, and waits for a place in the backlog no longer than the
// time that is left. What the wait took is taken off it. False with errno; EAGAIN: no place in
// time.
bool ConnectNonBlocking(int fd, const sockaddr_un& address, timeval* left);

// Connects a socket of any kind and leaves its flags and options as they were. One that does not
// block does not wait; one that blocks waits for at most that long, or its own time-out.
bool ConnectAny(int fd, const sockaddr_un& address, const timeval& most);

}  // namespace vimbra

#endif
