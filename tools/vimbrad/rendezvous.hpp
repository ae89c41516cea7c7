// The daemon's place in the file system: the socket file that applications connect to. It lies in a
// directory in which everybody may make files.
#ifndef VIMBRA_TOOLS_VIMBRAD_RENDEZVOUS_HPP
#define VIMBRA_TOOLS_VIMBRAD_RENDEZVOUS_HPP

#include <sys/types.h>

#include <optional>

#include "lib/base/fd.hpp"

namespace vimbrad {

inline constexpr char kSocketPath[] = "/tmp/api_daemon";

// Owns the listening socket and its file. The file is removed at the end if it is still ours.
class Rendezvous {
 public:
    // Whoever is in `group` may connect beside the owner. Whatever is in the way gives way, except
    // another daemon of ours: throws std::runtime_error then, and when the place cannot be had.
    explicit Rendezvous(std::optional<gid_t> group);
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
