#include "udp_port.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

namespace vimbrad {
namespace {

// The sockets on this port, each as a descriptor's link names it. A line of the kernel's table is
// "  12: 00000000:0043 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4711 ..."
std::set<std::string> SocketsOn(u16 port) {
    constexpr int kBetween = 7;
    char suffix[8];
    std::snprintf(suffix, sizeof(suffix), ":%04X", unsigned{port});
    std::set<std::string> found;
    std::ifstream table("/proc/self/net/udp");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string number;
        std::string local;
        words >> number >> local;
        std::string inode;
        for (int i = 0; i <= kBetween; ++i) {
            words >> inode;
        }
        if (local.ends_with(suffix)) {
            found.insert("socket:[" + inode + "]");
        }
    }
    return found;
}

}  // namespace

bool HasUdpPort(pid_t pid, u16 port) {
    const std::set<std::string> sockets = SocketsOn(port);
    if (sockets.empty()) {
        return false;
    }
    std::error_code gone;
    for (std::filesystem::directory_iterator each("/proc/" + std::to_string(pid) + "/fd", gone),
         end;
         each != end; each.increment(gone)) {
        std::error_code closed;
        if (sockets.contains(std::filesystem::read_symlink(each->path(), closed))) {
            return true;
        }
    }
    return false;
}

}  // namespace vimbrad
