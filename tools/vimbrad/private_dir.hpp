// A directory for files that only the daemon and the programs it runs are to touch.
#ifndef VIMBRA_VIMBRAD_PRIVATE_DIR_HPP
#define VIMBRA_VIMBRAD_PRIVATE_DIR_HPP

#include <sys/types.h>

#include <string>
#include <string_view>

namespace vimbrad {

// Made in /tmp under a name that nobody can foresee; removed at the end with all that it holds.
class PrivateDir {
 public:
    // Throws Refusal.
    PrivateDir();
    ~PrivateDir();
    PrivateDir(const PrivateDir&) = delete;
    PrivateDir& operator=(const PrivateDir&) = delete;

    std::string PathOf(const std::string& name) const { return path_ + "/" + name; }
    // Writes a file anew; its path. Throws Refusal.
    std::string Write(const std::string& name, std::string_view text, mode_t mode) const;

 private:
    std::string path_;
};

}  // namespace vimbrad

#endif
