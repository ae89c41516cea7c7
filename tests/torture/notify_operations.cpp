// Statistics, address conflicts and router advertisements, of both generations, and their events.
#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

using bed::Bytes;

void StatEvent(TNetDevStat*, u32) {
    g_events++;
}

void ConflictEvent(EVimbraConflictType, TVimbraIfaceMac*, TVimbraAddr*) {
    g_events++;
}

void PlainConflict(u32, u8*, u32) {
    g_events++;
}

void ExtendedConflict(u32, TNetConflictInfo*) {
    g_events++;
}

void AdvertisementEvent(TVimbraRouterAdCb*) {
    g_events++;
}

}  // namespace

std::vector<Operation> NotifyOperations() {
    constexpr char kAlways[] = "0 also when the daemon refused";
    constexpr char kNoThread[] = "0 also without a thread";
    constexpr char kStays[] = "without its thread the service stays started";
    std::vector<Operation> all;
    AddService(all, {"VimbraStatNotifyCallbackReg", "VimbraStatStop",
                     [] { return VimbraStatNotifyCallbackReg(1, StatEvent); },
                     [] { return VimbraStatStop(); }, "ipc_stat", 0, Bytes(72, 1), kNoThread,
                     kStays, [](long stopped) { return stopped != 0; }});
    AddService(all, {"NetStatNotifyCallbackReg", "NetStatStop",
                     [] { return NetStatNotifyCallbackReg(1, StatEvent); },
                     [] { return NetStatStop(); }, "ipc_stat", 0, Bytes(72, 1), kNoThread, kStays,
                     [](long stopped) { return stopped != 0; }});
    const auto isWatched = [](long) { return g_ptIpConflictInfo->bIsStarted != 0; };
    const auto stop = [] { return VimbraIpConflictCheckStop(2); };
    AddService(all, {"VimbraIpConflictCheckStart", "VimbraIpConflictCheckStop",
                     [] { return VimbraIpConflictCheckStart(2, ConflictEvent); }, stop,
                     "ipc_ip_conflict", 1, Bytes(42, 1), kAlways, kStays, isWatched});
    AddService(all, {"NetIpConflictCallBackReg", nullptr,
                     [] { return NetIpConflictCallBackReg(PlainConflict); }, stop,
                     "ipc_ip_conflict", 1, Bytes(42, 1), kAlways, kStays, isWatched});
    AddService(all, {"NetIpConflictCallBackRegEx", nullptr,
                     [] { return NetIpConflictCallBackRegEx(ExtendedConflict); }, stop,
                     "ipc_ip_conflict", 1, Bytes(42, 1), kAlways, kStays, isWatched});
    AddService(all, {"VimbraRouterAdvertiseStart", "VimbraRouterAdvertiseStop",
                     [] { return VimbraRouterAdvertiseStart(g_eth0, AdvertisementEvent); },
                     [] { return VimbraRouterAdvertiseStop(g_eth0); }, "ipc_router_notify", 0,
                     Bytes(468, 1)});
    all.push_back({"NetIpOnceConflicted", [] { return NetIpOnceConflicted(); }});
    return all;
}

}  // namespace vimbra::tests::torture
