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

// ---- A service with its start, its stop and an event of its -------------------------------------

struct Service {
    const char* start;
    const char* stop;
    std::function<long()> doStart;
    std::function<long()> doStop;
    const char* socket;
    u32 type;
    Bytes body;
    const char* lenient = nullptr;  // of the start
    const char* spoils = nullptr;
    std::function<bool()> isStuck = {};  // a stop has failed, and that for good
};

void Add(std::vector<Operation>& all, const Service& service) {
    const auto arrives = [service] { return Arrives(service.socket, service.type, service.body); };
    const auto stop = [service] {
        return service.doStop() == 0 || !service.isStuck || !service.isStuck();
    };
    const auto start = [service] { service.doStart(); };
    all.push_back({.name = service.start,
                   .call = service.doStart,
                   .undo = stop,
                   .proof = arrives,
                   .lenient = service.lenient,
                   .spoils = service.spoils});
    if (service.stop != nullptr) {
        all.push_back({.name = service.stop,
                       .call = service.doStop,
                       .prepare = start,
                       .undo = stop,
                       .spoils = service.spoils});
    }
    all.push_back({.name = std::string(service.start) + ": event",
                   .call = [service] { return Post(service.socket, service.type, service.body); },
                   .prepare = start,
                   .undo = stop,
                   .good = 1,
                   .others = {0},
                   .spoils = service.spoils,
                   .isEvent = true});
}

}  // namespace

std::vector<Operation> NotifyOperations() {
    constexpr char kAlways[] = "0 also when the daemon refused";
    constexpr char kNoThread[] = "0 also without a thread";
    constexpr char kStays[] = "without its thread the service stays started";
    std::vector<Operation> all;
    Add(all,
        {"VimbraStatNotifyCallbackReg", "VimbraStatStop",
         [] { return VimbraStatNotifyCallbackReg(1, StatEvent); }, [] { return VimbraStatStop(); },
         "ipc_stat", 0, Bytes(72, 1), kNoThread, kStays, [] { return true; }});
    Add(all, {"NetStatNotifyCallbackReg", "NetStatStop",
              [] { return NetStatNotifyCallbackReg(1, StatEvent); }, [] { return NetStatStop(); },
              "ipc_stat", 0, Bytes(72, 1), kNoThread, kStays, [] { return true; }});
    const auto isWatched = [] { return g_ptIpConflictInfo->bIsStarted != 0; };
    const auto stop = [] { return VimbraIpConflictCheckStop(2); };
    Add(all, {"VimbraIpConflictCheckStart", "VimbraIpConflictCheckStop",
              [] { return VimbraIpConflictCheckStart(2, ConflictEvent); }, stop, "ipc_ip_conflict",
              1, Bytes(42, 1), kAlways, kStays, isWatched});
    Add(all, {"NetIpConflictCallBackReg", nullptr,
              [] { return NetIpConflictCallBackReg(PlainConflict); }, stop, "ipc_ip_conflict", 1,
              Bytes(42, 1), kAlways, kStays, isWatched});
    Add(all, {"NetIpConflictCallBackRegEx", nullptr,
              [] { return NetIpConflictCallBackRegEx(ExtendedConflict); }, stop, "ipc_ip_conflict",
              1, Bytes(42, 1), kAlways, kStays, isWatched});
    Add(all,
        {"VimbraRouterAdvertiseStart", "VimbraRouterAdvertiseStop",
         [] { return VimbraRouterAdvertiseStart(g_eth0, AdvertisementEvent); },
         [] { return VimbraRouterAdvertiseStop(g_eth0); }, "ipc_router_notify", 0, Bytes(468, 1)});
    return all;
}

}  // namespace vimbra::tests::torture
