// What a daemon may answer, to every call whose reply has a body of its own, and to one of those
// that only get a result. The first byte says which call, the second how the answer comes: whole
// and under a header that fits, or in its own words, in how many pieces.
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include <iterator>

#include "files.hpp"
#include "input.hpp"
#include "request_peer.hpp"

namespace vimbra::tests {
namespace {

constexpr u8 kOwnHeader = 1;

char g_eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";

// Every call gets a record that is not clear, and whatever it leaves there is looked at.
template <class Record>
std::unique_ptr<Record> Dirty() {
    std::unique_ptr<Record> record(new Record);
    memset(static_cast<void*>(record.get()), 0xa5, sizeof(Record));
    return record;
}

// The texts of the interface report, which no terminator has to end.
void GetReport() {
    const auto report = Dirty<api_ipaddr_show_info>();
    apic_ipaddr_show_filter(g_eth0, report.get());
}

void GetParam() {
    const auto param = Dirty<TNetEthParam>();
    NetGetEthParam(0, param.get());
}

void GetParamAll() {
    const auto all = Dirty<TNetEthParamAll>();
    NetGetEthParamAll(0, all.get());
    Require(all->dwIpNum <= VIMBRA_IFACE_IP_MAX);
}

void GetIp() {
    const auto all = Dirty<TVimbraIfaceAllIp>();
    if (VimbraIfaceGetIp(g_eth0, VIMBRA_FAMILY_BOTH, all.get()) == VIMBRA_OK) {
        Require(all->dwIpNum <= VIMBRA_IFACE_IP_MAX);
    }
}

void GetMac() {
    const auto mac = Dirty<TVimbraIfaceMac>();
    VimbraIfaceGetMac(g_eth0, mac.get());
}

void GetMtu() {
    u32 mtu = 0;
    VimbraIfaceGetMtu(g_eth0, &mtu);
    NetGetMtu(0, &mtu);
}

void GetState() {
    u32 state = 0;
    VimbraGetIfaceState(g_eth0, &state);
    NetGetEthState(0, &state);
}

void GetRoutes() {
    const auto all = Dirty<TVimbraAllIpRouteInfo>();
    if (VimbraGetAllIpRoute(VIMBRA_FAMILY_IPV4, all.get()) == VIMBRA_OK) {
        Require(all->dwIpRouteNum <= VIMBRA_ROUTE_MAX);
    }
}

void GetLegacyRoutes() {
    const auto all = Dirty<TNetAllIpRouteInfo>();
    if (NetGetAllIpRoute(all.get()) == VIMBRA_OK) {
        Require(all->dwIpRouteNum <= NET_ROUTE_MAX);
    }
}

void GetGateway() {
    const auto gateway = Dirty<TVimbraAddr>();
    VimbraGetDefGateway(g_eth0, VIMBRA_FAMILY_IPV4, gateway.get());
    VimbraGetDefGatewayFromTable(g_eth0, VIMBRA_FAMILY_IPV6, gateway.get(), 7);
    u32 word = 0;
    NetGetDefGateway(0, &word);
}

void GetPriority() {
    const auto list = Dirty<TVimbraNetworkPrioInfo>();
    VimbraGetNetworkPriority(list.get());
}

void GetServerState() {
    const auto state = Dirty<TVimbraDhcpsState>();
    VimbraDhcpsGetState(g_eth0, VIMBRA_FAMILY_IPV4, state.get());
    const auto legacy = Dirty<TNetDhcpsState>();
    NetDhcpsGetState(0, legacy.get());
}

void SetMtu() {
    VimbraIfaceSetMtu(g_eth0, VIMBRA_FAMILY_IPV4, 1500);
    VimbraGetAllIpRule();
}

// The transport itself, with a place for less and for more than what comes.
void Exchange() {
    for (const s32 room : {1, 4, 64, VIMBRA_IPC_BODY_MAX}) {
        const std::unique_ptr<u8[]> reply(new u8[static_cast<size_t>(room)]);
        IpcApiSendAndRecv(283, nullptr, 0, reply.get(), room);
    }
}

constexpr void (*kCalls[])() = {
    GetReport, GetParam,        GetParamAll, GetIp,       GetMac,         GetMtu, GetState,
    GetRoutes, GetLegacyRoutes, GetGateway,  GetPriority, GetServerState, SetMtu, Exchange};

// What is sent next. Only looked at once a request has come, which was made after it, and before the
// first piece is on its way: with the last one it may already be another.
std::string g_answer;
size_t g_piece;

void Answer(std::span<const u8>, int client) {
    const std::string answer = g_answer;
    const size_t piece = g_piece;
    for (size_t sent = 0; sent < answer.size();) {
        const size_t count = std::min(piece, answer.size() - sent);
        if (send(client, answer.data() + sent, count, MSG_NOSIGNAL) < 0) {
            return;
        }
        sent += count;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    static const bool prepared = [] {
        Prepare();
        ServeRequests(Answer);
        return true;
    }();
    if (!prepared || size < 2 || size > 5000) {
        return -1;
    }
    Input input(data, size);
    const auto call = kCalls[input.Byte() % std::size(kCalls)];
    const u8 way = input.Byte();
    const auto body = input.Rest();
    g_answer.clear();
    if ((way & kOwnHeader) == 0) {
        const u32 head[3] = {0, static_cast<u32>(body.size()), 0};
        g_answer.assign(reinterpret_cast<const char*>(head), sizeof(head));
    }
    g_answer.append(body.begin(), body.end());
    const size_t pieces = (way >> 4) + size_t{1};
    g_piece = g_answer.size() / pieces + 1;
    call();
    return 0;
}

}  // namespace vimbra::tests
