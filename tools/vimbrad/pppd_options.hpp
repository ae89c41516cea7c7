// What pppd is told to do: the text of an options file.
#ifndef VIMBRA_TOOLS_VIMBRAD_PPPD_OPTIONS_HPP
#define VIMBRA_TOOLS_VIMBRAD_PPPD_OPTIONS_HPP

#include <vimbra/pppoe.h>
#include <vimbra/types.h>

#include <string>

namespace vimbrad {

// `hook` is run when IPv4 is up, `noHook` is no program. Throws Refusal for what pppd cannot be
// told.
std::string PppdOptions(u16 family, const PppoeConfig& config, const std::string& hook,
                        const std::string& noHook);

// The name of the user, who may be anybody.
std::string UserOf(const PppoeConfig& config);

}  // namespace vimbrad

#endif
