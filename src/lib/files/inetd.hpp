// Where the configuration of inetd is, and how inetd is made to read a new one.
#ifndef VIMBRA_LIB_FILES_INETD_HPP
#define VIMBRA_LIB_FILES_INETD_HPP

#include <cstdio>

#include "lib/log.hpp"

namespace vimbra {

// The first that can be opened counts, each time anew.
inline constexpr const char* kInetdPaths[] = {"/etc/inetd.conf", "/usr/config/system/inetd.conf"};

FILE* OpenInetdStream(const char* mode);

// Sends inetd SIGHUP. 0, or -1 when it does not run.
s32 ReloadInetd(CallSite site);

}  // namespace vimbra

#endif
