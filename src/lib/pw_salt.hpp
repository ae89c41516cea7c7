// Password hashes.
#ifndef VIMBRA_LIB_PW_SALT_HPP
#define VIMBRA_LIB_PW_SALT_HPP

#include "lib/log.hpp"
#include "lib/memory.hpp"

namespace vimbra {

// The password as an MD5-crypt hash with a new salt. False, and logged, when there is none.
bool HashPassword(const CallSite& site, const char* password, Buffer& hash);

}  // namespace vimbra

#endif
