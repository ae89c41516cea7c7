#include <vimbra/pppoe.h>
#include <vimbra/vimbra.h>

#include <algorithm>

#include "api/api_pppoe/pppoe_wire.hpp"
#include "commands.hpp"
#include "password.hpp"
#include "take_over.hpp"
#include "watch.hpp"

namespace ctl {

namespace {

namespace wire = vimbra::wire;

// The library's start takes the events from an application that listens, and its stop only knows
// what the process itself has started: these two are asked of the daemon.
const char* SocketOf(u16 family) {
    return family == VIMBRA_FAMILY_IPV4 ? wire::kPppoeSocketIpv4 : wire::kPppoeSocketIpv6;
}

struct Arguments {
    InterfaceName interface;
    std::string user;
    u16 family = VIMBRA_FAMILY_IPV4;
    std::optional<u32> redial;
    u32 retries = 0;
    u32 echoInterval = 20;
    u32 echoFailures = 3;
    bool isDefaultRoute = false;
    bool debug = false;
    bool watch = false;
    bool takeOver = false;
};

bool ParseUser(const std::string& text, std::string& user) {
    user = text;
    return !text.empty() && text.size() < VIMBRA_PPPOE_TEXT_LEN;
}

bool ParseEcho(const std::string& text, u32& number) {
    return ParseNumber(text, number) && number >= 1 && number <= 255;
}

bool ParseRetries(const std::string& text, u32& number) {
    return ParseNumber(text, number) && number <= UINT16_MAX;
}

const Kind<std::string> kUser = {"a name of 1 to 254 characters", ParseUser};
const Kind<u32> kEcho = {"a number from 1 to 255", ParseEcho};
const Kind<u32> kRetries = {"a number from 0 to 65535", ParseRetries};

TVimbraPppoeParam ParamOf(const Arguments& arguments) {
    const std::string password = ReadPassword();
    if (password.size() >= VIMBRA_PPPOE_TEXT_LEN) {
        throw CommandFailed(ExitStatus::kUsage, "password: refused; accepted: 1 to 254 characters");
    }
    TVimbraPppoeParam param = {};
    std::ranges::copy(arguments.user, param.achUserName);
    std::ranges::copy(password, param.achPassword);
    std::copy_n(arguments.interface.text, sizeof(param.achDevName), param.achDevName);
    param.bAutoDialEnable = arguments.redial.has_value();
    param.dwAutoDialInterval = arguments.redial.value_or(0);
    param.wDialRetryTimes = static_cast<u16>(arguments.retries);
    param.wLcpEchoSendInterval = static_cast<u16>(arguments.echoInterval);
    param.wLcpEchoRetryTimes = static_cast<u16>(arguments.echoFailures);
    param.bDefaultRouteEnable = arguments.isDefaultRoute;
    param.bDebug = arguments.debug;
    return param;
}

wire::PppoeStartBody BodyOf(u16 family, const TVimbraPppoeParam& param) {
    wire::PppoeStartBody body = {};
    PppoeConfig& config = body.tConfig;
    body.wSinFamily = family;
    std::ranges::copy(param.achUserName, config.username);
    std::ranges::copy(param.achPassword, config.password);
    std::ranges::copy(param.achDevName, config.devname);
    config.auto_dial_enable = param.bAutoDialEnable;
    config.default_route_enable = param.bDefaultRouteEnable;
    config.debug = param.bDebug;
    config.dial_retry_seconds = param.dwAutoDialInterval;
    config.lcp_echo_interval = param.wLcpEchoSendInterval;
    config.lcp_echo_failure = param.wLcpEchoRetryTimes;
    config.maxfail = param.wDialRetryTimes;
    return body;
}

void ShowConnected(Tool& tool, const TVimbraPppoeAddr& addresses) {
    const u16 family = addresses.tOurIpaddr.wSinFamily;
    const Painter colours = tool.Colours();
    const std::string our = AddressText(addresses.tOurIpaddr);
    const std::string peer = AddressText(addresses.tPeerIpAddr);
    std::string text = colours.Good("connected") + ": " + colours.Address(addresses.tOurIpaddr) +
                       ", peer " + colours.Address(addresses.tPeerIpAddr);
    Json record = {
        {"event", "connected"}, {"family", FamilyText(family)}, {"address", our}, {"peer", peer}};
    Json dns = Json::Array();
    for (const TVimbraAddr& server : {addresses.tDnsServer1, addresses.tDnsServer2}) {
        if (!IsZero(server)) {
            text += ", DNS " + colours.Address(server);
            dns.Append(AddressText(server));
        }
    }
    record.Set("dns", dns);
    tool.ShowLine(text, record);
}

struct EventText {
    u32 event;
    const char* word;
    const char* text;
};

// As the companion daemon means them: the library leaves that to the daemon.
constexpr EventText kEvents[] = {
    {VIMBRA_PPPOE_EVENT_2, "lost", "the link is lost"},
    {VIMBRA_PPPOE_EVENT_3, "no-link", "no link: nobody answers, or there is no agreement"},
    {VIMBRA_PPPOE_EVENT_4, "refused", "the user name or the password is refused"},
    {VIMBRA_PPPOE_EVENT_STOPPED, "stopped", "stopped: not dialled any more"},
};

void TakeEvent(u32 event, void* data, u32) {
    if (event == VIMBRA_PPPOE_EVENT_CONNECTED) {
        Watch::Tell([addresses = *static_cast<TVimbraPppoeAddr*>(data)](Tool& tool) {
            ShowConnected(tool, addresses);
        });
        return;
    }
    const auto* const found = std::ranges::find(kEvents, event, &EventText::event);
    if (found != std::end(kEvents)) {
        Watch::Tell([found](Tool& tool) {
            tool.ShowLine(found->text, Json{{"event", found->word}});
        });
    }
}

void Start(Tool& tool, Arguments& arguments) {
    if (arguments.watch) {
        ExpectFree(SocketOf(arguments.family), arguments.takeOver);
    }
    TVimbraPppoeParam param = ParamOf(arguments);
    if (!arguments.watch) {
        tool.Request(wire::kPppoeStart, BodyOf(arguments.family, param));
        tool.Done();
        return;
    }
    Watch watch(tool);
    VimbraInit();
    tool.Call([&] { return VimbraPppoeStart(&param, arguments.family, TakeEvent); },
              kInterface.accepted);
    watch.ShowAllAndStop(
        [&] { return VimbraPppoeStop(arguments.interface.text, arguments.family); });
}

void Stop(Tool& tool, Arguments& arguments) {
    tool.Request(wire::kPppoeStop, wire::PppoeStopBody{arguments.family});
    tool.Done();
}

void ShowVersion(Tool& tool, Arguments&) {
    TVimbraVersion version = {};
    tool.Call([&] { return VimbraPppoeVer(&version); });
    tool.Show(version.achVersion, Json{{"version", version.achVersion}});
}

}  // namespace

void AddPppoeCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(AddGroupCommand(root, "pppoe", "PPPoE links."), tool);

    const std::string about = std::string("Dial.") + kPasswordText;
    CLI::App& start = commands.Add({"start", about.c_str(),
                                    "pppoe start eth0 --user me@isp --auto-dial 30 <password-file\n"
                                    "pppoe start eth0 --user me@isp --default-route --watch"},
                                   Start);
    AddInterfaceArgument(start, commands->interface);
    AddArgument(start, "--user", commands->user, kUser, "The user name").Required();
    AddFamilyArgument(start, commands->family, kFamilyOrBoth, "ipv4 by default");
    AddArgument(start, "--auto-dial", commands->redial, kNumber,
                "Dial again so many seconds after the link was lost or a dial failed");
    AddArgument(start, "--retries", commands->retries, kRetries,
                "Give up after so many failures in a row; 0, the default, never");
    AddArgument(start, "--echo-interval", commands->echoInterval, kEcho,
                "Seconds between two questions whether the peer is alive, 20 by default");
    AddArgument(start, "--echo-failures", commands->echoFailures, kEcho,
                "Unanswered ones before the link is lost, 3 by default");
    AddFlag(start, "--default-route", commands->isDefaultRoute, "Make it the default route");
    AddFlag(start, "--debug", commands->debug, "Let the PPP daemon log every packet");
    AddFlag(start, "--watch", commands->watch, "Show every event until interrupted, then hang up");
    AddTakeOverFlag(start, commands->takeOver);

    CLI::App& stop = commands.Add(
        {"stop", "Hang up, whoever has dialled.", "pppoe stop\npppoe stop --family both"}, Stop);
    AddFamilyArgument(stop, commands->family, kFamilyOrBoth, "ipv4 by default");

    commands.Add({"version", "The version of PPPoE that the library tells.", "pppoe version"},
                 ShowVersion);
}

}  // namespace ctl
