// Password hashing as it is built for a C library without crypt_r.
#undef VIMBRA_HAS_CRYPT_R
#undef VIMBRA_HAS_NO_CRYPT
#define VIMBRA_HAS_CRYPT
#include "lib/files/pw_salt.cpp"
