#include "missing.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "refusal.hpp"

namespace vimbrad {
namespace {

struct Needed {
    const char* thing;
    const char* neededFor;
};

constexpr Needed kPrograms[] = {{"busybox", "DHCP clients and servers of IPv4, the web server"},
                                {"dhclient", "DHCP clients of IPv6"},
                                {"chronyd", "NTP clients"},
                                {"pppd", "PPPoE links"}};

// The way a program is looked for when it is run.
bool IsProgram(const std::string& name) {
    const char* const path = getenv("PATH");
    std::istringstream directories(path != nullptr ? path : "/bin:/usr/bin");
    for (std::string each; std::getline(directories, each, ':');) {
        if (access((each + "/" + name).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::vector<MissingThing> MissingThings() {
    std::vector<MissingThing> missing;
    for (const Needed& each : kPrograms) {
        if (!IsProgram(each.thing)) {
            missing.push_back({each.thing, each.neededFor});
        }
    }
    // A module may be loaded later; where the driver is part of the kernel or loaded it is here.
    if (access(kPppDevice, F_OK) != 0) {
        missing.push_back({kPppDevice, "PPPoE links"});
    }
    if (access("/sys/module/bonding", F_OK) != 0) {
        missing.push_back({kBondingDriver, "bonds"});
    }
    return missing;
}

void RefuseFor(const std::string& missingThing, int error) {
    throw Refusal(error, missingThing + " is missing");
}

void CheckProgram(const std::string& name) {
    if (!IsProgram(name)) {
        RefuseFor(name, ENOENT);
    }
}

}  // namespace vimbrad
