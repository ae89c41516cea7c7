// The companion daemon's second socket, which answers questions and changes nothing: what is asked
// there takes no event from an application.
#ifndef VIMBRA_TOOLS_VIMBRACTL_STATUS_SOCKET_HPP
#define VIMBRA_TOOLS_VIMBRACTL_STATUS_SOCKET_HPP

#include <functional>
#include <string>

#include "arguments.hpp"
#include "json.hpp"

namespace ctl {

// --run-dir: where the daemon has its socket. `target` outlives the command.
void AddRunDirArgument(CLI::App& command, std::string& target);

class StatusSocket {
 public:
    explicit StatusSocket(std::string runDir)
        : path_((runDir.empty() ? kRunDir : runDir) + "/status") {}

    // Why the last request of this process was refused, in the daemon's words; empty where it does
    // not tell, or lets only others ask.
    std::string WhyRefused() const;

    // The whole answer, a member for each thing that was asked for. Throws CommandFailed.
    Json Ask(const std::string& question) const;

    // What the daemon tells from now on, a line each, on the calling thread; returns when the daemon
    // has closed. Throws CommandFailed when it cannot be asked.
    void Follow(const std::string& question, const std::function<void(const Json&)>& take) const;

 private:
    Json AskAll(const Json& question) const;

    static constexpr const char* kRunDir = "/run/vimbrad";

    std::string path_;
};

}  // namespace ctl

#endif
