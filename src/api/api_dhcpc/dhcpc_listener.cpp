#include "api/api_dhcpc/dhcpc_listener.hpp"

#include <vimbra/thread.h>

namespace vimbra::dhcpc {

using namespace wire;

namespace {

Client& ServedBy(const Listener& listener) {
    return *static_cast<Client*>(listener.Argument());
}

Next Begin(Listener& listener) {
    ThreadDetach(pthread_self());
    const Client& client = ServedBy(listener);
    if (!IsIpv4(client.info)) {
        VLOG_PRINT_AT(listener.At(__LINE__), "server_path %s", client.socketName);
    }
    return Next::kGoOn;
}

void BoundTo(Listener& listener, Bound bound) {
    if (bound != Bound::kListening) {
        return;
    }
    Client& client = ServedBy(listener);
    SetStarted(client.info, true);
    const Lock lock(g_tRecordMutex);
    EndSuperseded(client);
}

void Call(Client& client, u32 event) {
    client.info.pfNetDhcpcNotifyCallBack(event, &client.info.tDhcpcAddr);
}

Next TakeReport(Listener& listener, Message& message) {
    Client& client = ServedBy(listener);
    const Lock service(g_tDhcpcMutex);
    {
        // All of it, the name too: the client is known by the name of its last report.
        const Lock lock(g_tRecordMutex);
        client.info.tDhcpcAddr = message.As<TVimbraDhcpcAddrInfo>();
    }
    switch (message.head.type) {
        case kDhcpcLease:
            client.lastReported = kDhcpcLease;
            Call(client, VIMBRA_DHCPC_EVENT_LEASE);
            break;
        case kDhcpcFail:
            if (client.lastReported == kDhcpcFail) {
                VLOG_PRINT_AT(listener.At(__LINE__), "dhcp fail,do not report up layer again");
                break;
            }
            client.lastReported = kDhcpcFail;
            Call(client, VIMBRA_DHCPC_EVENT_FAIL);
            break;
        default:
            VLOG_ERROR_AT(listener.At(__LINE__), "the unkonwn type = 0x%x", message.head.type);
            break;
    }
    return Next::kGoOn;
}

Next LookIfStopped(Listener& listener) {
    const Client& client = ServedBy(listener);
    if (!IsIpv4(client.info)) {
        VLOG_PRINT_AT(listener.At(__LINE__), "wait time out!");
    }
    if (IsStarted(client.info)) {
        return Next::kGoOn;
    }
    const Lock lock(g_tRecordMutex);
    VLOG_PRINT_AT(listener.At(__LINE__), "thread will exit, interface %.16s, family %d",
                  client.info.tDhcpcAddr.achDevName, client.info.wSinfamily);
    return Next::kEnd;
}

void HasEnded(Listener& listener, Ended) {
    Client* const client = static_cast<Client*>(listener.Argument());
    listener.Release();  // Its slot goes with the record.
    SetStarted(client->info, false);
    Release(client, &Client::isServed);
}

constexpr int kTimeOut = 10;

constexpr ListenerService Service(const char* function, const char* threadName, Next onShortRead,
                                  const char* wrongSize) {
    return {
        .function = function,
        .threadName = threadName,
        .detached = false,  // It detaches itself as its first step.
        .bodySize = sizeof(TVimbraDhcpcAddrInfo),
        .tickSeconds = kTimeOut,
        .waitText = "select error",
        .outOfMemory = {"XMALLOC error", FailureRule::kErrno, Next::kEnd},
        .shortRead = {"read message error", FailureRule::kErrno, onShortRead},
        .wrongSize = {wrongSize, FailureRule::kPlain, Next::kGoOn},
        .begin = Begin,
        .bound = BoundTo,
        .message = TakeReport,
        .tick = LookIfStopped,
        .ended = HasEnded,
    };
}

constexpr ListenerService kIpv4 =
    Service("DhcpcCBThreadV4", "VimbraDhcpcCBThreadV4", Next::kEnd, "the read data is too long!");
constexpr ListenerService kIpv6 = Service("DhcpcCBThreadV6", "VimbraDhcpcCBThreadV6", Next::kGoOn,
                                          "the sended data is too long!");

}  // namespace

bool Serve(Client& client) {
    client.isServed = true;
    if (StartListener(IsIpv4(client.info) ? kIpv4 : kIpv6, client.listener,
                      {.argument = &client,
                       .socketName = client.socketName,
                       .handle = &client.info.DhcpcThreadID})) {
        return true;
    }
    client.isServed = false;
    return false;
}

}  // namespace vimbra::dhcpc
