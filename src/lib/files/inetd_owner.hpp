// Under whose account inetd runs its services: ChangeNetServiceOwner() of <vimbra/account.h>, and
// the rule for the names.
#ifndef VIMBRA_LIB_FILES_INETD_OWNER_HPP
#define VIMBRA_LIB_FILES_INETD_OWNER_HPP

#include <vimbra/account.h>

#include <string_view>

namespace vimbra {

// Does a name fit between the blanks of a line of inetd's configuration?
bool IsServiceOwner(std::string_view name);

}  // namespace vimbra

#endif
