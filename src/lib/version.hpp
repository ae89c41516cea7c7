#ifndef VIMBRA_LIB_VERSION_HPP
#define VIMBRA_LIB_VERSION_HPP

// Room for any version text, its terminator included.
#define VIMBRA_VERSION_MAX 256

#endif
