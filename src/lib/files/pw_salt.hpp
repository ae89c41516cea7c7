// Password hashes.
#ifndef VIMBRA_LIB_FILES_PW_SALT_HPP
#define VIMBRA_LIB_FILES_PW_SALT_HPP

#include "lib/base/memory.hpp"
#include "lib/log.hpp"

namespace vimbra {

// The password as an MD5-crypt hash with a new salt. False, and logged, when there is none.
bool HashPassword(CallSite site, const char* password, Buffer& hash);

// In the child of a fork, where nobody is hashing any more.
void ForgetHashing();

}  // namespace vimbra

#endif
