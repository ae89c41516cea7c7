#include <vimbra/vimbra.h>

#include <cstdio>
#include <cstring>

#include "api/api_ntpc/ntpc_wire.hpp"
#include "commands.hpp"
#include "take_over.hpp"
#include "watch.hpp"

namespace ctl {

namespace {

namespace wire = vimbra::wire;

struct Arguments {
    TVimbraAddr server = {};
    u32 interval = 0;
    u16 family = VIMBRA_FAMILY_IPV4;
    bool watch = false;
    bool takeOver = false;
};

// The library asks the daemon to start a client only together with a listener, and to stop one only
// in the process that has started it. What the daemon runs is everybody's: it is asked directly.
const char* SocketOf(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 ? wire::kNtpcSocketIpv4 : wire::kNtpcSocketIpv6;
}

std::string Seconds(s64 microseconds) {
    char text[32];
    snprintf(text, sizeof(text), "%.6f", static_cast<double>(microseconds) / 1e6);
    return text;
}

// The companion daemon's report; of another daemon's nothing is known but the event.
void ShowReport(Tool& tool, u32 event, const TVimbraNtpcReport& report) {
    const std::string server = AddressText(report.tServerIp);
    if (event != VIMBRA_NTPC_EVENT_1) {
        const std::string why = strerror(static_cast<int>(report.dwError));
        tool.ShowLine(server + ": " + why, Json{{"server", server},
                                                {"event", "failure"},
                                                {"error", report.dwError},
                                                {"message", why}});
        return;
    }
    const bool isBehind = report.llOffset >= 0;
    const std::string off = Seconds(isBehind ? report.llOffset : -report.llOffset) + " s " +
                            (isBehind ? "behind" : "ahead");
    const bool isSet = report.bClockSet != 0;
    tool.ShowLine(server + ": the clock " + (isSet ? "was set; it was " : "is ") + off,
                  Json{{"server", server},
                       {"event", "synchronised"},
                       {"offset_us", report.llOffset},
                       {"clock_set", isSet}});
}

int TakeReport(u32 event, void* report) {
    TVimbraNtpcReport copy;
    memcpy(&copy, report, sizeof(copy));
    Watch::Tell([event, copy](Tool& tool) { ShowReport(tool, event, copy); });
    return 0;
}

void Start(Tool& tool, Arguments& arguments) {
    if (!arguments.watch) {
        tool.Request(wire::kNtpcStart, wire::NtpcStartBody{arguments.server.wSinFamily,
                                                           arguments.server, arguments.interval});
        tool.Done();
        return;
    }
    ExpectFree(SocketOf(arguments.server.wSinFamily), arguments.takeOver);
    Watch watch(tool);
    VimbraInit();
    tool.Call([&] { return VimbraNtpcStart(arguments.server, arguments.interval, TakeReport); });
    watch.ShowAllAndStop([&] { return VimbraNtpcStop(arguments.server.wSinFamily); });
}

void Stop(Tool& tool, Arguments& arguments) {
    tool.Request(wire::kNtpcStop, wire::NtpcStopBody{arguments.family});
    tool.Done();
}

void Check(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraNtpcSerCheck(arguments.server); });
    const std::string server = AddressText(arguments.server);
    tool.Show(server + " answers", Json{{"server", server}, {"answers", true}});
}

}  // namespace

void AddNtpCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "ntp", "The NTP clients, one for each family."), tool);

    CLI::App& start =
        commands.Add({"start", "Start the client of the server's family.",
                      "ntp start 192.0.2.1\nntp start 2001:db8::1 --interval 60 --watch"},
                     Start);
    AddArgument(start, "server", commands->server, kAddress, "The server").Required();
    AddArgument(start, "--interval", commands->interval, kNumber,
                "Between two questions, in seconds; 0, the default, leaves it to the daemon");
    AddFlag(start, "--watch", commands->watch,
            "Show every report until interrupted, then stop the client");
    AddTakeOverFlag(start, commands->takeOver);

    CLI::App& stop = commands.Add({"stop", "Stop a client.", "ntp stop --family ipv6"}, Stop);
    AddFamilyArgument(stop, commands->family, kFamily, "Which one, ipv4 by default");

    CLI::App& check =
        commands.Add({"check", "Does a server answer?", "ntp check 192.0.2.1"}, Check);
    AddArgument(check, "server", commands->server, kAddress, "The server").Required();
}

}  // namespace ctl
