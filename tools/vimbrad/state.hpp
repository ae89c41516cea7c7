// What a later life of the daemon takes up again: a file in the run directory, written whole after
// each change and before the change is told.
#ifndef VIMBRA_TOOLS_VIMBRAD_STATE_HPP
#define VIMBRA_TOOLS_VIMBRAD_STATE_HPP

#include <memory>
#include <string>
#include <vector>

#include "run_dir.hpp"
#include "service.hpp"

namespace vimbrad {

class State {
 public:
    using Services = std::vector<std::unique_ptr<Service>>;

    State(const RunDirectory& runDir, const Services& services)
        : runDir_(runDir), services_(services) {}

    // Takes up what an earlier life left, once its programs have gone. What cannot be taken up is
    // told, and forgotten.
    void Restore();
    // Forgets all of it, but ends its programs and takes leases back, which nobody would renew.
    void Forget();

    void Save();
    void Remove() const { runDir_.Remove(kStateName); }

 private:
    const RunDirectory& runDir_;
    const Services& services_;
    std::string written_;
    bool failed_ = false;
};

}  // namespace vimbrad

#endif
