#include <unistd.h>
#include <vimbra/common.h>
#include <vimbra/traceroute.h>

#include <chrono>
#include <cstdio>
#include <cstring>

#include "api/api_traceroute/traceroute_wire.hpp"
#include "commands.hpp"
#include "events.hpp"
#include "take_over.hpp"

namespace ctl {

namespace {

struct Hop {
    s32 event;
    TVimbraTracerouteCBInfo info;
};

struct Arguments {
    TVimbraAddr host = {};
    u32 hops = 0;
    bool takeOver = false;
};

// The companion daemon's events.
enum Event : s32 { kHop = 101, kArrived, kSilent, kUnreachable, kTooFar, kNotSent };

constexpr u32 kUsualHops = 30;
// A hop is asked three times, a second apart.
constexpr std::chrono::seconds kPatience{15};

bool ParseHops(const std::string& text, u32& hops) {
    return ParseNumber(text, hops) && hops >= 1 && hops <= 255;
}

const Kind<u32> kHops = {"a number, 1 to 255", ParseHops};

int OnHop(s32 event, TVimbraTracerouteCBInfo* info) {
    EventQueue<Hop>::Instance().Post({event, *info});
    return 0;
}

const char* Word(s32 event) {
    switch (event) {
        case kHop:
            return "hop";
        case kArrived:
            return "arrived";
        case kSilent:
            return "silent";
        case kUnreachable:
            return "unreachable";
        case kTooFar:
            return "too-far";
        case kNotSent:
            return "not-sent";
        default:
            return "unknown";
    }
}

// The marks of the classic tool for what a router says (RFC 792, codes of type 3).
std::string Mark(const TVimbraTracerouteCBInfo& info) {
    switch (info.nErrCode) {
        case 0:
            return " !N";
        case 1:
            return " !H";
        case 2:
            return " !P";
        case 9:
        case 10:
        case 13:
            return " !X";
        default:
            return " !<" + std::to_string(info.nErrCode) + ">";
    }
}

bool Show(Tool& tool, const Hop& hop) {
    const TVimbraTracerouteCBInfo& info = hop.info;
    char start[16];
    snprintf(start, sizeof(start), "%2u  ", info.dwTtl);
    std::string text = start;
    Json record = {
        {"hop", info.dwTtl}, {"result", Word(hop.event)}, {"address", nullptr}, {"ms", nullptr}};
    if (hop.event == kSilent) {
        text += "*";
    } else if (hop.event == kNotSent) {
        text += strerror(info.nErrCode);
        record.Set("error", info.nErrCode);
    } else {
        const std::string address = AddressText(info.tIpaddr);
        char time[32];
        snprintf(time, sizeof(time), "  %.3f ms", info.nTripTime / 1000.0);
        text += tool.Colours().Address(info.tIpaddr) + time;
        record.Set("address", address);
        record.Set("ms", info.nTripTime / 1000.0);
        if (hop.event == kUnreachable) {
            text += Mark(info);
            record.Set("icmp_type", info.nErrType);
            record.Set("icmp_code", info.nErrCode);
        }
    }
    return tool.ShowLine(text, record);
}

void Announce(Tool& tool, const Arguments& arguments) {
    if (!tool.json) {
        tool.ShowText("traceroute to " + AddressText(arguments.host) + ", " +
                      std::to_string(arguments.hops == 0 ? kUsualHops : arguments.hops) +
                      " hops max\n");
    }
}

void Summarise(Tool& tool, const std::string& host, const Hop& last) {
    const u32 hops = last.info.dwTtl;
    const bool arrived = last.event == kArrived;
    const std::string text =
        arrived ? host + " reached, " + std::to_string(hops) + (hops == 1 ? " hop" : " hops")
                : host + " not reached";
    tool.ShowLine(text, Json{{"summary", {{"host", host}, {"reached", arrived}, {"hops", hops}}}});
}

// The last hop that was shown.
Hop Follow(Tool& tool, const EndWish& wish, s32 id, Woken& woken) {
    Hop last = {};
    const auto show = [&](const Hop& hop) {
        // All traces of the machine share a socket.
        if (hop.info.nUserId != id) {
            return true;
        }
        if (!Show(tool, hop)) {
            return false;
        }
        last = hop;
        return hop.info.nIsOver == 0;
    };
    woken = ShowEach<Hop>(wish, 0, show, kPatience).woken;
    return last;
}

void Run(Tool& tool, const Arguments& arguments) {
    ExpectFree(vimbra::wire::kTracerouteSocket, arguments.takeOver);
    const EndWish wish(tool.OutputDescriptor());
    tool.Call(VimbraInit);
    const std::string host = AddressText(arguments.host);
    // No two processes have the same.
    const s32 id = getpid();
    TVimbraTracerouteOpt options = {arguments.hops};
    Announce(tool, arguments);
    tool.Call([&] { return VimbraTracerouteStart(arguments.host, &options, id, OnHop); });

    Woken woken;
    const Hop last = Follow(tool, wish, id, woken);
    if (last.info.nIsOver == 0) {
        tool.Call([id] { return VimbraTracerouteStop(id); });
    }
    Summarise(tool, host, last);
    ExpectMore(woken);
    if (last.event != kArrived) {
        throw CommandFailed(ExitStatus::kNotSo, host + ": not reached");
    }
}

}  // namespace

void AddTracerouteCommand(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(root, tool);
    CLI::App& command = commands.Add(
        {"traceroute", "Show the routers on the way to a host; with --json a line each.",
         "traceroute 192.0.2.1\ntraceroute 192.0.2.1 --hops 10 --json"},
        Run);
    AddArgument(command, "host", commands->host, kIpv4Address, "The host").Required();
    AddArgument(command, "--hops", commands->hops, kHops, "The highest hop, usually 30");
    AddTakeOverFlag(command, commands->takeOver);
}

}  // namespace ctl
