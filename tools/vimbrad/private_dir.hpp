// A directory for the files of one purpose: of a program that the daemon runs, of a link.
#ifndef VIMBRA_TOOLS_VIMBRAD_PRIVATE_DIR_HPP
#define VIMBRA_TOOLS_VIMBRAD_PRIVATE_DIR_HPP

#include <sys/types.h>

#include <string>
#include <string_view>

namespace vimbrad {

class RunDirectory;

// Lies in the run directory; removed at the end with all that it holds, unless it is left to a later
// life.
class PrivateDir {
 public:
    // Throws Refusal.
    explicit PrivateDir(const RunDirectory& parent);
    // One that an earlier life left. Throws Refusal for a name that it could not have given.
    PrivateDir(const RunDirectory& parent, const std::string& name);
    ~PrivateDir();
    PrivateDir(const PrivateDir&) = delete;
    PrivateDir& operator=(const PrivateDir&) = delete;

    const std::string& Path() const { return path_; }
    // Within the run directory.
    std::string Name() const;
    void Leave() { left_ = true; }
    std::string PathOf(const std::string& name) const { return path_ + "/" + name; }
    // Writes a file anew; its path. Throws Refusal.
    std::string Write(const std::string& name, std::string_view text, mode_t mode) const;

 private:
    std::string path_;
    bool left_ = false;
};

// Empty for a file that is not there, and for one that cannot be read, of which the log tells.
std::string ReadWholeFile(const std::string& path);
// Writes a file anew. Throws Refusal.
void WriteWholeFile(const std::string& path, std::string_view text, mode_t mode);

}  // namespace vimbrad

#endif
