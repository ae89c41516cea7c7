// The daemon's own directory: what its programs read and write, what a later life takes up again,
// and the lock that keeps a second daemon away. Nobody else has a place in it.
#ifndef VIMBRA_TOOLS_VIMBRAD_RUN_DIR_HPP
#define VIMBRA_TOOLS_VIMBRAD_RUN_DIR_HPP

#include <sys/types.h>

#include <string>
#include <string_view>

#include "lib/base/fd.hpp"

namespace vimbrad {

inline constexpr char kRunDir[] = "/run/vimbrad";
// What a later life needs.
inline constexpr char kStateName[] = "state.json";
inline constexpr char kResolverName[] = "resolv.conf";

class RunDirectory {
 public:
    // Makes the directory if it is not there, takes its lock and removes what an earlier life left,
    // what it keeps for a later one and directories of kept programs excepted. Throws std::runtime_error with what is in the way.
    explicit RunDirectory(std::string path);
    RunDirectory(const RunDirectory&) = delete;
    RunDirectory& operator=(const RunDirectory&) = delete;

    const std::string& Path() const { return path_; }
    std::string PathOf(const std::string& name) const { return path_ + "/" + name; }

    // The whole file under this name is the old or the new one, never a part. Throws Refusal.
    void Replace(const std::string& name, std::string_view text, mode_t mode) const;
    // Empty for a file that is not there or cannot be read.
    std::string Read(const std::string& name) const;
    void Remove(const std::string& name) const;

 private:
    void Make() const;
    void Lock();
    void Clean() const;

    std::string path_;
    vimbra::Fd lock_;
};

}  // namespace vimbrad

#endif
