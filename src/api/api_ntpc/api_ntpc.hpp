// The NTP client's initialiser.
#ifndef VIMBRA_API_NTPC_HPP
#define VIMBRA_API_NTPC_HPP

void NtpcInit();

#endif
