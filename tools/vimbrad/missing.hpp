// Programs and drivers that the daemon uses and that a machine may not have.
#ifndef VIMBRA_TOOLS_VIMBRAD_MISSING_HPP
#define VIMBRA_TOOLS_VIMBRAD_MISSING_HPP

#include <string>
#include <vector>

namespace vimbrad {

struct MissingThing {
    std::string thing;
    std::string neededFor;
};

// As the machine is now.
std::vector<MissingThing> MissingThings();

}  // namespace vimbrad

#endif
