#include <vimbra/webs.h>

#include "commands.hpp"

namespace ctl {

namespace {

bool ParsePort(const std::string& text, u32& port) {
    return ParseNumber(text, port) && port >= 1 && port <= 65535;
}

const Kind<u32> kPort = {"a number, 1 to 65535", ParsePort};

}  // namespace

void AddWebCommands(CLI::App& root, Tool& tool) {
    CLI::App& group = AddGroupCommand(root, "web", "The device's web server.");
    auto port = std::make_shared<u32>(80);

    CLI::App& start =
        AddCommand(group, tool, {"start", "Start the web server.", "web start\nweb start 8080"},
                   [&tool, port] {
                       tool.Call([port] { return VimbraWebsEnable(static_cast<s32>(*port)); });
                       tool.Done();
                   });
    AddArgument(start, "port", *port, kPort, "Its port, 80 by default");

    AddCommand(group, tool, {"stop", "Stop the web server.", "web stop"}, [&tool] {
        tool.Call(VimbraWebsDisable);
        tool.Done();
    });
}

}  // namespace ctl
