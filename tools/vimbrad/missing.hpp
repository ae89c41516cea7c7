// Programs and drivers that the daemon uses and that a machine may not have.
#ifndef VIMBRA_TOOLS_VIMBRAD_MISSING_HPP
#define VIMBRA_TOOLS_VIMBRAD_MISSING_HPP

#include <string>
#include <vector>

namespace vimbrad {

inline constexpr char kPppDevice[] = "/dev/ppp";
inline constexpr char kBondingDriver[] = "the bonding driver";

struct MissingThing {
    std::string thing;
    std::string neededFor;
};

// As the machine is now.
std::vector<MissingThing> MissingThings();

// Throws a Refusal that names it.
[[noreturn]] void RefuseFor(const std::string& missingThing, int error);
// Throws Refusal when there is no such program.
void CheckProgram(const std::string& name);

}  // namespace vimbrad

#endif
