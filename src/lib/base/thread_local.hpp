// What a variable of a thread's own is marked with.
#ifndef VIMBRA_LIB_BASE_THREAD_LOCAL_HPP
#define VIMBRA_LIB_BASE_THREAD_LOCAL_HPP

#include <features.h>

// glibc makes room for such variables of a library that is loaded late when a thread first uses
// them, and ends the process if there is no memory. A few bytes have their place from the start
// instead. Other C libraries make the room when they load, and take no such mark on late ones.
#ifdef __GLIBC__
#define VIMBRA_THREAD_LOCAL [[gnu::tls_model("initial-exec")]]
#else
#define VIMBRA_THREAD_LOCAL
#endif

#endif
