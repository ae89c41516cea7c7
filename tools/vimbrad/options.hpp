// The daemon's command line.
#ifndef VIMBRA_TOOLS_VIMBRAD_OPTIONS_HPP
#define VIMBRA_TOOLS_VIMBRAD_OPTIONS_HPP

#include <sys/types.h>

#include <optional>
#include <string>

#include "log.hpp"
#include "run_dir.hpp"

namespace vimbrad {

struct Options {
    std::string runDir = kRunDir;
    std::optional<gid_t> group;
    std::string webRoot = "/var/www";
    std::string webUser = "nobody";
    bool setClock = false;
    bool syslog = false;
    bool keep = false;
    bool forget = false;
    int readyFd = -1;
    LogLevel logLevel = LogLevel::kInfo;
};

// Exit status, or nothing when the daemon is to run.
std::optional<int> ReadOptions(int argc, char** argv, Options& options);

}  // namespace vimbrad

#endif
