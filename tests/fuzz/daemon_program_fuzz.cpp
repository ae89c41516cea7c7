// What the programs of the daemon may write: the DHCP clients by their hooks, whose environment a
// server fills, chronyd, pppd, servers. All of them run; the input says who writes what, line by
// line, and who ends.
#include "daemon.hpp"
#include "daemon_requests.hpp"
#include "hooks.hpp"

namespace vimbra::tests {
namespace {

TVimbraAddr Address4(u32 hostOrder) {
    TVimbraAddr address = {};
    address.wSinFamily = VIMBRA_FAMILY_IPV4;
    address.tV4Addr.s_addr = htonl(hostOrder);
    return address;
}

template <class Body>
void Ask(Daemon& daemon, u32 type, const Body& body) {
    daemon.Request(type, {reinterpret_cast<const char*>(&body), sizeof(body)});
}

void StartAll(Daemon& daemon) {
    for (const u16 family : {u16{VIMBRA_FAMILY_IPV4}, u16{VIMBRA_FAMILY_IPV6}}) {
        wire::FamilyIfaceBody client = {};
        strcpy(client.achIfaceName, "eth0");
        client.wSinFamily = family;
        Ask(daemon, wire::kDhcpcStart, client);
        wire::PppoeStartBody link = {};
        link.wSinFamily = family;
        strcpy(link.tConfig.username, "user");
        strcpy(link.tConfig.password, "secret");
        strcpy(link.tConfig.devname, "eth1");
        link.tConfig.auto_dial_enable = 1;
        link.tConfig.lcp_echo_interval = 20;
        link.tConfig.lcp_echo_failure = 3;
        Ask(daemon, wire::kPppoeStart, link);
    }
    wire::NtpcStartBody ntp = {};
    ntp.wSinFamily = VIMBRA_FAMILY_IPV4;
    ntp.tServerIp = Address4(0x7f000001);
    Ask(daemon, wire::kNtpcStart, ntp);
    wire::DhcpsStartBody server = {};
    strcpy(server.achIfaceName, "eth1");
    server.wSinFamily = VIMBRA_FAMILY_IPV4;
    server.tDhcpsInfo.tIpPoolStart = Address4(0xc0a80164);
    server.tDhcpsInfo.tIpPoolEnd = Address4(0xc0a801c8);
    server.tDhcpsInfo.dwIpPoolPrefix = 24;
    Ask(daemon, wire::kDhcpsStart, server);
    wire::WebEnableBody web = {};
    web.port = 8080;
    Ask(daemon, wire::kWebEnable, web);
    daemon.Pass(500);
}

// What a hook writes in this environment: words of the kind NAME=value, separated by line ends.
std::string HookOutput(const char* hook, const std::string& event, const std::string& environment) {
    std::vector<std::string> names;
    for (size_t at = 0; at < environment.size();) {
        const size_t end = std::min(environment.find('\n', at), environment.size());
        const std::string word = environment.substr(at, end - at);
        const size_t sign = word.find('=');
        if (sign != word.npos && sign != 0 && word.find('\0') == word.npos) {
            names.push_back(word.substr(0, sign));
            setenv(names.back().c_str(), word.c_str() + sign + 1, 1);
        }
        at = end + 1;
    }
    char* text = nullptr;
    size_t size = 0;
    FILE* const normal = std::exchange(stdout, open_memstream(&text, &size));
    std::string name = hook;
    std::string argument = event;
    char* arguments[] = {name.data(), argument.data(), nullptr};
    vimbrad::RunAsHook(2, arguments);
    fclose(std::exchange(stdout, normal));
    const std::string output(text, size);
    free(text);
    for (const std::string& each : names) {
        if (each != "PATH" && each != "VIMBRA_SANDBOX") {
            unsetenv(each.c_str());
        }
    }
    return output;
}

size_t FindProgram(std::string_view word) {
    for (size_t i = 0; i < ProgramCount(); i++) {
        if (ProgramCommand(i).find(word) != std::string::npos) {
            return i;
        }
    }
    return ProgramCount();
}

// A word for who, a blank, and what he writes; or one of the marks below.
void Step(Daemon& daemon, const std::string& line, Input& input) {
    const std::string_view who = std::string_view(line).substr(0, line.find(' '));
    const std::string what = line.substr(std::min(who.size() + 1, line.size()));
    if (who == "hook4" || who == "hook6") {
        const bool v4 = who == "hook4";
        const std::string output =
            HookOutput(v4 ? vimbrad::kUdhcpcHook : vimbrad::kDhclientHook, what, input.Until('|'));
        ProgramWrites(FindProgram(v4 ? "udhcpc " : "dhclient "), output);
    } else if (who == "pass") {
        daemon.Pass(strtoul(what.c_str(), nullptr, 10) % 100'000'000);
    } else if (who == "kept") {
        daemon.KeptProgramsWrite(what + "\n");
    } else if (who == "end") {
        ProgramEnds(FindProgram(what), what.size() % 3, 0);
    } else if (who == "ask") {
        daemon.Ask("{\"ask\":\"status\"}\n");
    } else {
        ProgramWrites(FindProgram(who), what + "\n");
    }
    daemon.Run();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Input input(data, size);
    Daemon daemon;
    StartAll(daemon);
    for (int steps = 0; steps < 40 && !input.AtEnd(); steps++) {
        Step(daemon, input.Until('\n'), input);
    }
    daemon.Ask("{\"ask\":\"status\"}\n");
    return 0;
}

}  // namespace vimbra::tests
