// The records of the DHCP clients, one for each interface and family, and their lives: a record has
// two holders, the published list and its listener, and is freed when neither holds it any more.
#ifndef VIMBRA_API_DHCPC_RECORD_HPP
#define VIMBRA_API_DHCPC_RECORD_HPP

#include <pthread.h>

#include <cstddef>

#include "api/api_dhcpc/dhcpc_wire.hpp"
#include "lib/base/lock.hpp"
#include "lib/ipc/listener.hpp"
#include "lib/ipc/record.hpp"
#include "lib/log.hpp"

template <>
inline constexpr auto vimbra::kFamilyField<TDhcpcInfo> = &TDhcpcInfo::wSinfamily;
template <>
inline constexpr auto vimbra::kStartedField<TDhcpcInfo> = &TDhcpcInfo::bDhcpcStarted;

namespace vimbra::dhcpc {

// A client with what only the library knows of it. Every record of the list is the beginning of
// one.
struct Client {
    TDhcpcInfo info;
    ListenerSlot listener;
    char socketName[sizeof(wire::kDhcpcSocketIpv6) + VIMBRA_IFACE_NAME_LEN + 1];
    u32 lastReported;  // the listener's
    Client* known;     // next of all clients that are not freed

    // Guarded by g_tRecordMutex.
    bool isKept;    // by the list; also after it fell out of it, see Unregister()
    bool isServed;  // by its listener
    bool isLost;    // fell out of the list
    bool isHead;    // one of the two records that no lookup finds
};
static_assert(offsetof(Client, info) == 0);

// Serialises start, stop, state and the callback. The calls that may be made from the callback do
// without it.
extern pthread_mutex_t g_tDhcpcMutex;

// Guards the list, the records' contents and their lives; never held while anything is waited for.
// Taken after g_tDhcpcMutex where both are.
extern pthread_mutex_t g_tRecordMutex;

// Null when memory is out, which is logged.
Client* Register(CallSite site, const char* name, u16 family, VimbraDhcpcNotifyCallBack callback);

// With g_tRecordMutex held. Null, and a log line, for none.
Client* Find(u16 family, const char* name);

// The same without the lock. With g_tDhcpcMutex held the client stays: only its holder removes one.
Client* Lookup(u16 family, const char* name);

// What follows on a start that failed and on a stop: out of the list, with g_tDhcpcMutex held,
// which is given up. The client is not the caller's any more; its listener, if there still is one,
// ends at its next time-out.
void Unregister(Client* client, Lock& service);

// A holder's end. The client is not the caller's any more.
void Release(Client* client, bool Client::*holder);

// A client that fell out of the list cannot be stopped. Once another has taken over its socket
// nobody reaches it either: its thread ends at its next time-out. With
// g_tRecordMutex held.
void EndSuperseded(const Client& by);

}  // namespace vimbra::dhcpc

#endif
