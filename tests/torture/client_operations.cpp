// DHCP client, PPPoE and NTP, of both generations, and their events.
#include <sys/sem.h>

#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

using bed::Bytes;
using bed::Pack;

int Lease(u32, VimbraDhcpcAddrInfo*) {
    g_events++;
    return 0;
}

int LegacyLease(u32, TNetDhcpcNotify*) {
    g_events++;
    return 0;
}

void Link(u32 event, void*, u32) {
    if (event != VIMBRA_PPPOE_EVENT_STOPPED) {
        g_events++;
    }
}

int Report(u32, void*) {
    g_events++;
    return 0;
}

TVimbraPppoeParam Dial() {
    TVimbraPppoeParam dial = {};
    strcpy(dial.achUserName, "user");
    strcpy(dial.achPassword, "secret");
    strcpy(dial.achDevName, "eth0");
    dial.dwAutoDialInterval = 10;
    return dial;
}

TPppoeInitParam LegacyDial() {
    TPppoeInitParam dial = {};
    strcpy(dial.abyUserName, "user");
    strcpy(dial.abyPassword, "secret");
    dial.dwAutoDialInterval = 10;
    return dial;
}

TVimbraPppoeParam g_dial = Dial();
TPppoeInitParam g_legacyDial = LegacyDial();
TVimbraVersion g_version;
TVersion g_legacyVersion;
TVimbraPppoeStates g_states;
TVimbraDhcpcState g_state;
TNetDhcpcState g_legacyState;
TVimbraDhcpcAddrInfo g_lease;
TNetDhcpcLeaseBuffer g_legacyLease;

Bytes LeaseBody() {
    return Pack().Text("eth0", 16).Address(2, "192.0.2.9").FillTo(1348);
}

void StartClient() {
    VimbraDhcpcStart(g_eth0, 2, Lease);
}

bool StopClient() {
    VimbraDhcpcStop(g_eth0, 2);
    return true;
}

void StartLegacyClient() {
    NetDhcpcStart(0, LegacyLease, 0);
}

// The semaphore that keeps starts apart.
bool IsTaken(long) {
    return semctl(semget(7783, 1, 0), 0, GETVAL) == 0;
}

// The client's process, as long as the test runs.
void HaveClientProcess() {
    static Fake process("udhcpc", "eth0");
    process.Revive();
}

TDhcpcInfo Asked() {
    TDhcpcInfo info = {};
    info.wSinfamily = 2;
    strcpy(info.tDhcpcAddr.achDevName, "eth0");
    return info;
}

}  // namespace

std::vector<Operation> DhcpcOperations() {
    std::vector<Operation> all;
    AddService(
        all,
        {"VimbraDhcpcStart", "VimbraDhcpcStop", [] { return VimbraDhcpcStart(g_eth0, 2, Lease); },
         [] { return VimbraDhcpcStop(g_eth0, 2); }, "ipc_dhcpc_eth0", 1285, LeaseBody()});
    AddService(all,
               {"NetDhcpcStart", "NetDhcpcStop", [] { return NetDhcpcStart(0, LegacyLease, 0); },
                [] { return NetDhcpcStop(0); }, "ipc_dhcpc_eth0", 1285, LeaseBody()});
    const auto renewable = [] {
        HaveClientProcess();
        StartClient();
    };
    const auto legacyRenewable = [] {
        HaveClientProcess();
        StartLegacyClient();
    };
    all.push_back(
        {"VimbraDhcpcRenew", [] { return VimbraDhcpcRenew(g_eth0, 2); }, renewable, StopClient});
    all.push_back({"LinuxNetDhcpcRenew", [] { return LinuxNetDhcpcRenew(g_eth0, 2); }, renewable,
                   StopClient});
    all.push_back({"NetDhcpcRenew", [] { return NetDhcpcRenew(0); }, legacyRenewable, StopClient});
    all.push_back({"VimbraDhcpcGetLeaseInfo",
                   [] { return VimbraDhcpcGetLeaseInfo(g_eth0, 2, &g_lease); }, StartClient,
                   StopClient});
    all.push_back({"NetDhcpcGetLeaseInfo",
                   [] { return NetDhcpcGetLeaseInfo(0, &g_legacyLease.tLegacy); },
                   StartLegacyClient, StopClient});
    all.push_back({"VimbraDhcpcGetIfstate",
                   [] { return VimbraDhcpcGetIfstate(g_eth0, 2, &g_state); }, StartClient,
                   StopClient});
    all.push_back({"LinuxNetDhcpcGetState",
                   [] { return LinuxNetDhcpcGetState(g_eth0, 2, &g_state); }, StartClient,
                   StopClient});
    all.push_back({"NetDhcpcGetIfstate", [] { return NetDhcpcGetIfstate(0, &g_legacyState); },
                   StartLegacyClient, StopClient});
    all.push_back({"AndoridDhcpcRenew", [] { return AndoridDhcpcRenew(g_eth0, 2); }});
    all.push_back({"CheckFamily", [] { return CheckFamily(2); }});
    all.push_back({"ApicDhcpcStart", [] {
                       const TDhcpcInfo info = Asked();
                       return ApicDhcpcStart(&info);
                   }});
    all.push_back({"ApicDhcpcStop", [] { return ApicDhcpcStop(g_eth0, 2); }});
    all.push_back({"FamilyMapDhcpcInfo", [] { return FamilyMapDhcpcInfo(2) == nullptr ? 0 : 1; }});
    all.push_back({"FamilyMapDhcpcInfoExt",
                   [] { return FamilyMapDhcpcInfoExt(2, g_eth0) != nullptr ? 0 : 1; }, StartClient,
                   StopClient});
    return all;
}

std::vector<Operation> PppoeOperations() {
    std::vector<Operation> all;
    AddService(all, {"VimbraPppoeStart", "VimbraPppoeStop",
                     [] { return VimbraPppoeStart(&g_dial, 2, Link); },
                     [] { return VimbraPppoeStop(nullptr, 2); }, "ipc_pppoe", 1, Bytes(80)});
    AddService(all,
               {"NetPppoeStart", "NetPppoeStop", [] { return NetPppoeStart(&g_legacyDial, Link); },
                [] { return NetPppoeStop(); }, "ipc_pppoe", 1, Bytes(80)});
    all.push_back({"VimbraPppoeVer", [] { return VimbraPppoeVer(&g_version); }});
    all.push_back({"NetPppoeVer", [] { return NetPppoeVer(&g_legacyVersion); }});
    all.push_back({"VimbraPppoeStatesDump", [] {
                       VimbraPppoeStatesDump(&g_states);
                       return 0;
                   }});
    return all;
}

std::vector<Operation> NtpOperations() {
    constexpr char kKept[] = "after a thread that could not be made further starts wait";
    std::vector<Operation> all;
    AddService(
        all, {"VimbraNtpcStart", "VimbraNtpcStop",
              [] { return VimbraNtpcStart(Address("192.0.2.3"), 60, Report); },
              [] { return VimbraNtpcStop(2); }, "ipc_ntp", 1, Bytes(40), nullptr, kKept, IsTaken});
    AddService(all,
               {"VimBraNtpcStart", "VimBraNtpcStop",
                [] { return VimBraNtpcStart(Word("192.0.2.3"), 60, Report); },
                [] { return VimBraNtpcStop(); }, "ipc_ntp", 1, Bytes(40), nullptr, kKept, IsTaken});
    all.push_back({"VimbraNtpcSerCheck", [] { return VimbraNtpcSerCheck(Address("192.0.2.3")); }});
    all.push_back({"NetCheckNtpcServer", [] { return NetCheckNtpcServer(Word("192.0.2.3")); }});
    return all;
}

}  // namespace vimbra::tests::torture
