// The table of the services that inetd may run; see <vimbra/service.h>.
#ifndef VIMBRA_API_SERV_TABLE_HPP
#define VIMBRA_API_SERV_TABLE_HPP

#include <vimbra/service.h>

// The first row of this service and protocol, or of any protocol for a null one; null if there is
// none.
TServType* FindService(const char* service, const char* proto);

#endif
