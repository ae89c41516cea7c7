// What is left of the daemon's services: bonds, the web server, the DHCP server.
#include <fcntl.h>
#include <unistd.h>

#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

constexpr char kLeases[] = "/usr/etc/udhcpd.leases";

char g_path[] = "/tmp";
char g_eth1[] = "eth1";
TVimbraBondParam g_bond = {{g_eth0, g_eth1}, 2, g_eth0, g_path};
BondParam g_legacyBond = {{0, 1}, 2, 0, g_path};
TVimbraDhcpsState g_state;
TNetDhcpsState g_legacyState;
TVimbraDhcpsInfo g_pool;
TDhcpServerConfInfo g_legacyPool;

int Leases(u32, TNetDhcpsNotify*) {
    g_events++;
    return 0;
}

void Pool() {
    g_pool = {};
    g_pool.tIpPoolStart = Address("192.0.2.10");
    g_pool.tIpPoolEnd = Address("192.0.2.20");
    g_pool.dwIpPoolPrefix = 24;
    g_pool.tRoutes = Address("192.0.2.1");
    g_pool.tIfaceIp = Address("192.0.2.1");
    g_pool.dwIfacePrefix = 24;
}

void LegacyPool() {
    bed::WriteFile(kLeases, std::string(8 + 36, '\0'));
    g_legacyPool = {};
    g_legacyPool.dwDhcpServerEthCount = 1;
    TDhcpServerEthInfo& eth = g_legacyPool.achTDhcpServerEthInfo[0];
    eth.dwIpPoolStart = Word("192.0.2.10");
    eth.dwIpPoolEnd = Word("192.0.2.20");
    eth.dwNetMask = 24;
    eth.dwSubNetMask = 24;
    eth.dwRoutes = Word("192.0.2.1");
    eth.dwEthIp = Word("192.0.2.1");
}

// A watch of leases ends with its file.
bool RemoveLeases() {
    unlink(kLeases);
    return true;
}

void Watch() {
    LegacyPool();
    NetDhcpsStart(&g_legacyPool, Leases);
    Injector::WaitQuiet();
}

long Change() {
    const long before = g_events;
    const int file = open(kLeases, O_WRONLY | O_CLOEXEC);
    static_cast<void>(pwrite(file, "a", 1, 0) == 1);
    close(file);
    Injector::WaitQuiet();
    return g_events - before;
}

std::string ChangeArrives() {
    Injector::WaitQuiet();
    const long events = Change();
    return events == 1 ? "" : "the change arrives " + std::to_string(events) + " times";
}

}  // namespace

std::vector<Operation> SystemOperations() {
    constexpr char kNoWatch[] = "0 also where there can be no watch";
    constexpr char kBondStop[] = "0 also when the daemon took no request";
    return {
        {"VimbraBondStart", [] { return VimbraBondStart(1, &g_bond); }},
        {"NetBondStart", [] { return NetBondStart(1, &g_legacyBond); }},
        {.name = "VimbraBondStop", .call = [] { return VimbraBondStop(); }, .lenient = kBondStop},
        {.name = "NetBondStop", .call = [] { return NetBondStop(); }, .lenient = kBondStop},
        {"VimbraWebsEnable", [] { return VimbraWebsEnable(80); }},
        {"VimbraWebsDisable", [] { return VimbraWebsDisable(); }},
        {"NetWebsEnable", [] { return NetWebsEnable(80); }},
        {"NetWebsDisable", [] { return NetWebsDisable(); }},
        {"VimbraDhcpsStart", [] { return VimbraDhcpsStart(g_eth0, 2, &g_pool); }, Pool},
        {"VimbraDhcpsStop", [] { return VimbraDhcpsStop(g_eth0, 2); }},
        {"VimbraDhcpsGetState", [] { return VimbraDhcpsGetState(g_eth0, 2, &g_state); }},
        {.name = "NetDhcpsStart",
         .call = [] { return NetDhcpsStart(&g_legacyPool, Leases); },
         .prepare = LegacyPool,
         .undo = RemoveLeases,
         .proof = ChangeArrives,
         .lenient = kNoWatch},
        {.name = "NetDhcpsStart: event",
         .call = Change,
         .prepare = Watch,
         .undo = RemoveLeases,
         .good = 1,
         .others = {0},
         .isEvent = true},
        {"NetDhcpsStopOneEth", [] { return NetDhcpsStopOneEth(0); }},
        {"NetDhcpsGetState", [] { return NetDhcpsGetState(0, &g_legacyState); }},
        {"NetDhcpsStop", [] { return NetDhcpsStop(); }},
    };
}

}  // namespace vimbra::tests::torture
