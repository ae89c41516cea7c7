// What each service that keeps something across calls does in the child of a fork: it forgets what
// ran. The services have these, api/fork calls them.
#ifndef VIMBRA_API_FORGET_HPP
#define VIMBRA_API_FORGET_HPP

namespace vimbra {

void ForgetDhcpClients();
void ForgetConflictWatches();
void ForgetNtpClients();
void ForgetPings();
void ForgetTraces();
void ForgetPppoeLinks();
void ForgetServiceLock();
void ForgetAdvertisementWatches();
void ForgetStatistics();
void ForgetLeaseWatchers();

}  // namespace vimbra

#endif
