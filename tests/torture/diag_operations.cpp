// Echo tests and traces, of both generations, and their events.
#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

using bed::Bytes;
using bed::Pack;

int Probe(s32, TVimbraPingCBInfo*) {
    g_events++;
    return 0;
}

void LegacyProbe(s32, s32, s32, s32, s32, s32, s32) {
    g_events++;
}

int Hop(s32, TVimbraTracerouteCBInfo*) {
    g_events++;
    return 0;
}

void LegacyHop(s32, s32, s32, u32, char*, s32, s32, s32) {
    g_events++;
}

TVimbraPingOpt g_options = {56, 1, 64, 3};
TVimbraTracerouteOpt g_trace = {30};
TTraceroutePara g_legacyTrace = {};

Bytes ProbeBody() {
    return Pack().U32(7).U32(64).U32(1).S32(1).S32(0);
}

Bytes HopBody() {
    return Pack().Address(2, "192.0.2.1").U32(1).S32(7).FillTo(48);
}

}  // namespace

std::vector<Operation> DiagOperations() {
    g_legacyTrace = {Word("192.0.2.1"), 30};
    std::vector<Operation> all;
    AddService(all, {"VimbraPingStart", "VimbraPingStop",
                     [] { return VimbraPingStart(Address("192.0.2.1"), &g_options, 7, Probe); },
                     [] { return VimbraPingStop(7); }, "ipc_ping", 0, ProbeBody()});
    AddService(all, {"NetPingStart", "NetPingStop",
                     [] { return NetPingStart(Word("192.0.2.1"), &g_options, 7, LegacyProbe); },
                     [] { return NetPingStop(7); }, "ipc_ping", 0, ProbeBody()});
    AddService(all, {"VimbraTracerouteStart", "VimbraTracerouteStop",
                     [] { return VimbraTracerouteStart(Address("192.0.2.1"), &g_trace, 7, Hop); },
                     [] { return VimbraTracerouteStop(7); }, "ipc_traceroute", 101, HopBody()});
    AddService(all, {"NetTracerouteStart", "NetTracerouteStop",
                     [] { return NetTracerouteStart(&g_legacyTrace, 7, LegacyHop); },
                     [] { return NetTracerouteStop(7); }, "ipc_traceroute", 101, HopBody()});
    all.push_back({.name = "ClearTraceRtMsgQueue",
                   .call = [] { return ClearTraceRtMsgQueue(7); },
                   .good = -1});
    return all;
}

}  // namespace vimbra::tests::torture
