// Addresses as texts: in configurations and reports of programs, log lines and answers.
#ifndef VIMBRA_TOOLS_VIMBRAD_ADDRESS_TEXT_HPP
#define VIMBRA_TOOLS_VIMBRAD_ADDRESS_TEXT_HPP

#include <vimbra/addr.h>

#include <string>
#include <string_view>

namespace vimbrad {

// Empty for an address of no family.
std::string TextOf(const TVimbraAddr& address);
// "192.0.2.0/24".
std::string TextOf(const TVimbraAddr& address, u32 prefix);

// The zero address of the family for a text that is no address of it.
TVimbraAddr AddressOf(u16 family, std::string_view text);

}  // namespace vimbrad

#endif
