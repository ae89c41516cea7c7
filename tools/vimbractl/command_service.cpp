#include <vimbra/service.h>

#include <algorithm>

#include "commands.hpp"

namespace ctl {

namespace {

// Calls find all rows of the table but its last.
constexpr int kRows = VIMBRA_SERVICE_ROWS - 1;

bool ParseService(const std::string& text, std::string& name) {
    name = text;
    return std::any_of(g_atNetServiceInfo, g_atNetServiceInfo + kRows,
                       [&](const TServType& row) { return text == row.pchServType; });
}

bool ParsePort(const std::string& text, u32& port) {
    return ParseNumber(text, port) && port >= 1 && port <= UINT16_MAX;
}

const Kind<std::string> kService = {"telnetd, ssh, ftpd, tftpd or httpd", ParseService,
                                    "{telnetd,ssh,ftpd,tftpd,httpd}"};
const Kind<u32> kPort = {"a number from 1 to 65535", ParsePort};

bool ParsePath(const std::string& text, std::string& path) {
    path = text;
    return text.size() <= VIMBRA_SERVICE_PATH_LEN &&
           std::none_of(text.begin(), text.end(),
                        [](unsigned char c) { return c < ' ' || c == 0x7f; });
}

const Kind<std::string> kPath = {"up to 64 characters of text", ParsePath};

struct Arguments {
    std::string name;
    u16 family = VIMBRA_FAMILY_IPV4;
    std::optional<u32> port;
    std::optional<std::string> path;
};

// The table's protocols say the family by their last character.
const TServType& RowOf(const Arguments& arguments) {
    return *std::find_if(g_atNetServiceInfo, g_atNetServiceInfo + kRows, [&](const TServType& row) {
        const bool isV6 = std::string_view(row.tInetdInfo.pchProto).ends_with('6');
        return arguments.name == row.pchServType &&
               isV6 == (arguments.family == VIMBRA_FAMILY_IPV6);
    });
}

void Start(Tool& tool, Arguments& arguments) {
    const TServType& row = RowOf(arguments);
    std::string protocol = row.tInetdInfo.pchProto;
    TVimbraServInfo info = {arguments.name.data(),
                            static_cast<u16>(arguments.port.value_or(row.wPort)), protocol.data(),
                            arguments.path ? arguments.path->data() : nullptr};
    tool.Call([&] { return VimbraServiceStart(&info); });
    tool.Done();
}

void Stop(Tool& tool, Arguments& arguments) {
    tool.Call([&] { return VimbraServiceStop(arguments.name.data()); });
    tool.Done();
}

}  // namespace

void AddServiceCommands(CLI::App& root, Tool& tool) {
    const Commands<Arguments> commands(
        AddGroupCommand(root, "service", "Network services that inetd starts."), tool);

    CLI::App& start = commands.Add(
        {"start", "Switch a service on. It takes the place of one of the same program.",
         "service start telnetd\nservice start telnetd --port 2323\nservice start httpd --family "
         "ipv6 --path /etc/httpd.conf"},
        Start);
    AddArgument(start, "service", commands->name, kService, "The service").Required();
    AddFamilyArgument(start, commands->family, kFamily, "Of its address, ipv4 by default");
    AddArgument(start, "--port", commands->port, kPort, "Its port; its usual one by default");
    AddArgument(start, "--path", commands->path, kPath,
                "What follows its arguments, such as its configuration file");

    CLI::App& stop = commands.Add(
        {"stop",
         "Switch a service off and end a process of its name. Where the configuration\n"
         "holds several lines for it, one goes with each stop.",
         "service stop telnetd"},
        Stop);
    AddArgument(stop, "service", commands->name, kService, "The service").Required();
}

}  // namespace ctl
