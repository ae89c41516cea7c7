// A socket of ours in the place of somebody else's, which goes on under another name.
#ifndef VIMBRA_TOOLS_VIMBRACTL_STAND_IN_HPP
#define VIMBRA_TOOLS_VIMBRACTL_STAND_IN_HPP

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lib/base/fd.hpp"

namespace ctl {

// The two files change places in one step: nobody finds the name empty, and whoever takes it at the
// same moment loses nothing. It costs the other side nothing either: it serves the socket, not the
// name. The destructor gives the name back.
class StandIn {
 public:
    // Null, with errno, where there is no socket or it may not be moved.
    static std::unique_ptr<StandIn> For(const std::string& path);
    ~StandIn() { GiveBack(); }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    // Gives the name back for one that was killed.
    static void Restore(const std::string& path);

    int Listener() const { return listener_.Get(); }
    // Connected to the one whose place this is; empty, with errno, when it does not answer.
    vimbra::Fd Original() const;
    // Not when somebody has taken the name since.
    bool HasName() const;
    void GiveBack();

 private:
    explicit StandIn(const std::string& path);
    bool Take();
    bool IsOwn(const std::string& path) const;
    bool Exchange() const;

    const std::string path_;
    const std::string aside_;
    vimbra::Fd listener_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::mutex mutex_;
    bool isTaken_ = false;
};

// A stream socket that is connected to the path; empty, with errno, when it is not.
vimbra::Fd ConnectTo(const std::string& path);

// A header and what it announces; less where the other side ends before, or waits too long.
std::vector<std::byte> ReadMessage(int fd);
bool WriteMessage(int fd, const std::vector<std::byte>& bytes);

}  // namespace ctl

#endif
