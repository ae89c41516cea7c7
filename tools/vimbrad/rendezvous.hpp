// The daemon's place in the file system: the socket file that applications connect to.
#ifndef VIMBRA_VIMBRAD_RENDEZVOUS_HPP
#define VIMBRA_VIMBRAD_RENDEZVOUS_HPP

#include <sys/types.h>

#include "lib/base/fd.hpp"

namespace vimbrad {

inline constexpr char kSocketPath[] = "/tmp/api_daemon";

// Owns the listening socket and its file. The file is removed at the end if it is still ours.
class Rendezvous {
 public:
    // Throws std::runtime_error when another daemon answers there, or when the place cannot be had.
    Rendezvous();
    ~Rendezvous();
    Rendezvous(const Rendezvous&) = delete;
    Rendezvous& operator=(const Rendezvous&) = delete;

    // The listening descriptor; the caller owns it from now on.
    int TakeSocket() { return socket_.Release(); }

 private:
    vimbra::Fd socket_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

}  // namespace vimbrad

#endif
