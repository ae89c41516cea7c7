// The parts of switching a service on; see <vimbra/service.h>.
#ifndef VIMBRA_API_SERV_HPP
#define VIMBRA_API_SERV_HPP

#include <vimbra/service.h>

// Writes a service's line and signals inetd. 0 for a new line, 1 for one in the place of a marker,
// 2 for one in the place of another, -1 for a failure.
s32 StartNetService(const TInetdInfo& record, const TServType& row);

#endif
