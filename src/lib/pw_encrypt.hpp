// The accounts of the device, behind <vimbra/account.h>.
#ifndef VIMBRA_LIB_PW_ENCRYPT_HPP
#define VIMBRA_LIB_PW_ENCRYPT_HPP

#include <vimbra/account.h>

#include "lib/log.hpp"

namespace vimbra {

// Adds an account that is not there yet, with one of the two functions that append one.
s32 AddAccount(CallSite site, char* user, char* password, s32 (*append)(char*, char*));

}  // namespace vimbra

#endif
