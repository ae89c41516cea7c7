#include <vimbra/dns.h>

#include <algorithm>

#include "commands.hpp"

namespace ctl {

namespace {

struct Arguments {
    InterfaceName interface;
    std::vector<TVimbraAddr> servers;
};

constexpr const char* kAccepted = "up to 64 servers, either all of IPv4 or all of IPv6";

void Show(Tool& tool, Arguments&) {
    TVimbraDnsAddrInfo all = {};
    tool.Call([&] { return VimbraDNSGet(&all); });
    std::string text;
    Json servers = Json::Array();
    for (u32 i = 0; i < std::min<u32>(all.dwDnsNum, VIMBRA_DNS_MAX); i++) {
        servers.Append(AddressText(all.atDnsServer[i]));
        text += tool.Colours().Address(all.atDnsServer[i]) + "\n";
    }
    tool.Show(text.empty() ? "no servers\n" : text, Json{{"servers", servers}});
}

void Set(Tool& tool, Arguments& arguments) {
    std::vector<TVimbraAddr>& servers = arguments.servers;
    const u16 family = servers.empty() ? u16{VIMBRA_FAMILY_IPV4} : servers.front().wSinFamily;
    // The library would keep the first 64 and say that all is well.
    const bool fits =
        servers.size() <= VIMBRA_DNS_MAX &&
        std::all_of(servers.begin(), servers.end(),
                    [family](const TVimbraAddr& server) { return server.wSinFamily == family; });
    if (!fits) {
        throw CommandFailed(ExitStatus::kUsage, std::string("server: accepted: ") + kAccepted);
    }
    tool.Call([&] {
        return VimbraDNSSet(arguments.interface.text, family, servers.data(),
                            static_cast<u32>(servers.size()));
    });
    tool.Done();
}

}  // namespace

void AddDnsCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "dns", "The DNS servers of the system."), tool);

    commands.Add({"show", "Show the DNS servers of all interfaces.", "dns show\ndns show --json"},
                 Show);

    CLI::App& set = commands.Add(
        {"set",
         "Replace the DNS servers that an interface brings; those of its other family\n"
         "stay. Without servers its IPv4 ones are taken away.",
         "dns set eth0 192.0.2.53 192.0.2.54\ndns set eth0 2001:db8::53\ndns set eth0"},
        Set);
    AddInterfaceArgument(set, commands->interface);
    AddArguments(set, "server", commands->servers, kAddress, "The servers, of one family");
}

}  // namespace ctl
