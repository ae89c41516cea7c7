#include "api/api_dhcpc/dhcpc_record.hpp"

#include <cstdio>

#include "api/forget.hpp"
#include "lib/base/memory.hpp"
#include "lib/base/text.hpp"

using namespace vimbra;
using namespace vimbra::dhcpc;
using namespace vimbra::wire;

TDhcpcInfo* g_ptApiDhcpCInfo = nullptr;

namespace vimbra::dhcpc {

pthread_mutex_t g_tDhcpcMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_tRecordMutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

// All that are not freed, those that fell out of the list too.
Client* g_ptClients = nullptr;

Client* ClientOf(TDhcpcInfo* info) {
    return reinterpret_cast<Client*>(info);
}

// With g_tRecordMutex held, all until the end of the namespace.

Client* NewClient(CallSite site) {
    auto* client = NewZeroed<Client>();
    if (client == nullptr) {
        LogErrnoAt(site, "XMALLOC error");
        return nullptr;
    }
    client->isKept = true;
    client->known = g_ptClients;
    g_ptClients = client;
    return client;
}

void FreeIfUnused(Client* client) {
    if (client->isKept || client->isServed) {
        return;
    }
    Client** link = &g_ptClients;
    while (*link != client) {
        link = &(*link)->known;
    }
    *link = client->known;
    free(client);
}

void Append(Client& client) {
    TDhcpcInfo** link = &g_ptApiDhcpCInfo;
    while (*link != nullptr) {
        link = &(*link)->ptNext;
    }
    *link = &client.info;
}

// Kept: the search moves the head itself, so that afterwards the list begins with the predecessor
// of the record that was removed, and is empty if that was the first; the test is
// Dhcpc.StoppingMovesTheHead.
void Remove(Client& client) {
    TDhcpcInfo*& head = g_ptApiDhcpCInfo;
    if (head == &client.info) {
        head = head->ptNext;
    }
    while (head != nullptr && head->ptNext != &client.info) {
        ClientOf(head)->isLost = true;
        head = head->ptNext;
    }
    if (head != nullptr) {
        head->ptNext = client.info.ptNext;
    }
}

}  // namespace

Client* Find(u16 family, const char* name) {
    constexpr char kFunction[] = "FamilyMapDhcpcInfoExt";
    if (g_ptApiDhcpCInfo == nullptr) {
        VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "no exist dhcp info!");
        return nullptr;
    }
    for (TDhcpcInfo* info = g_ptApiDhcpCInfo; info != nullptr; info = info->ptNext) {
        const char* own = info->tDhcpcAddr.achDevName;
        VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "interface = %.16s, family = %d", own,
                      info->wSinfamily);
        if (info->wSinfamily == family && strncmp(own, name, VIMBRA_IFACE_NAME_LEN) == 0 &&
            !ClientOf(info)->isHead) {
            return ClientOf(info);
        }
    }
    VLOG_PRINT_AT((CallSite{kFunction, __LINE__}), "the family %d,iface is %s , not found!", family,
                  name);
    return nullptr;
}

Client* Lookup(u16 family, const char* name) {
    const Lock lock(g_tRecordMutex);
    return Find(family, name);
}

void Release(Client* client, bool Client::*holder) {
    const Lock lock(g_tRecordMutex);
    client->*holder = false;
    FreeIfUnused(client);
}

void EndSuperseded(const Client& by) {
    Client* next = g_ptClients;
    while (next != nullptr) {
        Client* const client = next;
        next = client->known;
        if (client->isLost && !client->isHead && strcmp(client->socketName, by.socketName) == 0) {
            client->isKept = false;
            SetStarted(client->info, false);
            FreeIfUnused(client);
        }
    }
}

Client* Register(CallSite site, const char* name, u16 family, VimbraDhcpcNotifyCallBack callback) {
    const Lock lock(g_tRecordMutex);
    Client* const client = NewClient(site);
    if (client == nullptr) {
        return nullptr;
    }
    CopyField(client->info.tDhcpcAddr.achDevName, name);
    client->info.pfNetDhcpcNotifyCallBack = callback;
    client->info.wSinfamily = family;
    snprintf(client->socketName, sizeof(client->socketName), "%s_%s",
             IsIpv4(client->info) ? kDhcpcSocketIpv4 : kDhcpcSocketIpv6, name);
    Append(*client);
    return client;
}

void Unregister(Client* client, Lock& service) {
    {
        const Lock lock(g_tRecordMutex);
        Remove(*client);
    }
    service.Unlock();
    SetStarted(client->info, false);
    Release(client, &Client::isKept);
}

}  // namespace vimbra::dhcpc

// ---- Published ----------------------------------------------------------------------------------

void DhcpcInit() {
    const Lock lock(g_tRecordMutex);
    Client* const first = NewClient(VIMBRA_HERE);
    if (first == nullptr) {
        return;
    }
    first->isHead = true;
    first->info.ptNext = g_ptApiDhcpCInfo;
    g_ptApiDhcpCInfo = &first->info;
    Client* const second = NewClient(VIMBRA_HERE);
    if (second == nullptr) {
        return;
    }
    second->isHead = true;
    second->info.ptNext = first->info.ptNext;
    first->info.ptNext = &second->info;
}

// The heads of the list stay. A callback that has forked returns to its listener, which still looks
// at its client.
void vimbra::ForgetDhcpClients() {
    g_tDhcpcMutex = PTHREAD_MUTEX_INITIALIZER;
    g_tRecordMutex = PTHREAD_MUTEX_INITIALIZER;
    Client* next = g_ptClients;
    g_ptClients = nullptr;
    g_ptApiDhcpCInfo = nullptr;
    while (next != nullptr) {
        Client* const client = next;
        next = client->known;
        if (!client->isHead && !(client->isServed && OnListenerThread())) {
            free(client);
            continue;
        }
        client->known = g_ptClients;
        g_ptClients = client;
        client->isKept = client->isHead;
        client->isLost = false;
        SetStarted(client->info, false);
        if (client->isHead) {
            client->info.ptNext = g_ptApiDhcpCInfo;
            g_ptApiDhcpCInfo = &client->info;
        }
    }
}

TDhcpcInfo* FamilyMapDhcpcInfoExt(u16 wSinFamily, const char* pchIfaceName) {
    if (pchIfaceName == nullptr) {
        return nullptr;
    }
    Client* const client = Lookup(wSinFamily, pchIfaceName);
    return client != nullptr ? &client->info : nullptr;
}

TDhcpcInfo* FamilyMapDhcpcInfo(u16 wSinFamily) {
    const Lock lock(g_tRecordMutex);
    TDhcpcInfo* info = g_ptApiDhcpCInfo;
    for (int i = 0; i < 2 && info != nullptr; i++, info = info->ptNext) {
        if (info->wSinfamily == wSinFamily) {
            return info;
        }
    }
    return nullptr;
}
